#include "vnxstd/timer/timeout.h"

#include "vnxstd/except/failure.h"
#include "zrtsys/attention.h"

namespace {

const qc_ErrorRegistration<qcTimeout::Errors, qcTimeout::Expired, qcTimeout::InternalExpired, qcTimeout::Cancel>
    registered;

void convertStatus(long code) {
  if (code == zrtsys::attentionExpired) throw qcTimeout::Expired();
  if (code == zrtsys::attentionCancelled) throw qcTimeout::Cancel();
}

struct ConverterRegistration {
  ConverterRegistration() { qfRegisterExceptionConverter(zrtsys::facility, &convertStatus); }
};
const ConverterRegistration converterRegistered;

}  // namespace

struct qcTimeout::Holder {
  Holder() { qfThrowExceptionOnFailure(zrtsys::constructAttentionTag(&tag)); }
  ~Holder() { zrtsys::destructAttentionTag(&tag); }

  bool isAttached = false;
  zrtsys::AttentionTag tag;
};

qcTimeout::qcTimeout(double seconds) : holder_(std::make_unique<Holder>()) {
  qfThrowExceptionOnFailure(zrtsys::attachTimeout(&holder_->tag, seconds));
  holder_->isAttached = true;
  qfThrowExceptionOnFailure(zrtsys::attachCancel(&holder_->tag, &isCancelled_));
}

qcTimeout::~qcTimeout() { detach(); }

void qcTimeout::detach() {
  if (!holder_) return;
  if (holder_->isAttached) qfThrowExceptionOnFailure(zrtsys::detachTimeout(&holder_->tag));
  holder_.reset();
}

void qcTimeout::check() { qfThrowExceptionOnFailure(zrtsys::checkAttention()); }
