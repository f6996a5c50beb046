#include "vnxstd/comm/transfer.h"

#include <algorithm>
#include <chrono>
#include <streambuf>
#include <vector>

#include "std/archive/areas.h"
#include "std/archive/index.h"
#include "std/comm/link.h"
#include "vnxstd/comm/communicator.h"
#include "vnxstd/except/catalogue.h"

/// Puts messages into frames, and takes them out. The time that waiting may take is counted down within a message.
class qc_StreamBufferWithTimeout : public std::streambuf {
 public:
  qc_StreamBufferWithTimeout(qcCommunicator& communicator, double seconds)
      : link_(communicator.link()), seconds_(seconds) {}

  void timeOut(double seconds) noexcept { seconds_ = seconds; }
  double timeOut() const noexcept { return seconds_; }

  void beginStoring() {
    buffer_.resize(kRoom);
    buffer_.shrink_to_fit();
    setp(buffer_.data() + qc_Link::kHead, buffer_.data() + buffer_.size());
  }

  /// Told when a message ends that is stored, and when one begins that is loaded.
  void tell(qcTransferArchive& archive) noexcept { archive_ = &archive; }

  // Within an object or a value the message goes on: the reader would not know what the rest belongs to.
  void sendMessage() {
    const bool isLast = !qc_ArchiveIndex::isWithin(*archive_);
    if (isKept() || (pptr() == pbase() && !(isLast && inMessage_) && !broken_)) return;
    if (isLast) archive_->beginAnew();  // also when the message does not get there
    send(isLast);
  }

  // Leaves room for an object.
  void makeRoom() {
    if (pptr() - pbase() > static_cast<std::ptrdiff_t>(qc_Link::kMostInMessageFrame / 2)) send(false);
  }

  void skipMessage() {
    while (inMessage_) receiveFrame();
    dropFrame();
  }

 protected:
  int_type overflow(int_type c) override {
    if (isKept()) {
      grow();
    } else {
      send(false);
    }
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    return sputc(traits_type::to_char_type(c));
  }

  int sync() override {
    if (pbase()) sendMessage();
    return 0;
  }

  // Positions are those of the bytes received so far; there is no going to any of them.
  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override {
    if (offset != 0 || from != std::ios_base::cur || which != std::ios_base::in) return pos_type(off_type(-1));
    return pos_type(received_ - (egptr() - gptr()) - (hasLast_ ? 1 : 0));
  }

  // A message that ends within one was cut short by a store that failed; the next one is not the rest of it.
  int_type underflow() override {
    while (gptr() == egptr() && !hasLast_) {
      if (!inMessage_ && qc_ArchiveIndex::isWithin(*archive_)) return traits_type::eof();
      receiveFrame();
    }
    return traits_type::to_int_type(gptr() == egptr() ? buffer_.back() : *gptr());
  }

  int_type uflow() override {
    const int_type next = underflow();
    gptr() == egptr() ? dropFrame() : gbump(1);
    return next;
  }

 private:
  using Clock = qcDeadline::Clock;
  static constexpr std::size_t kRoom = qc_Link::kHead + qc_Link::kMostInMessageFrame;

  // An object is stored under the persistence lock, which nobody may have who waits for the peer to take something: the
  // peer may be waiting for what another thread is to store. So the object is kept here until it is whole.
  bool isKept() const { return !broken_ && qc_ArchiveIndex::isInObject(*archive_); }

  void grow() {
    const auto size = static_cast<std::size_t>(pptr() - pbase());
    buffer_.resize(buffer_.size() * 2);
    setp(buffer_.data() + qc_Link::kHead, buffer_.data() + buffer_.size());
    qc_Areas::skipWritten(*this, size);
  }

  // Runs something that waits until the time of the message is used up, and counts what it took. How much of a frame
  // has gone out is unknown after a failure.
  template <class Work>
  void timed(bool isStoring, Work work) {
    if (broken_) throw qcTcpip::ConnectionBroken();
    if (!inMessage_) waited_ = 0;
    const Clock::time_point from = Clock::now();
    try {
      work(qcDeadline(seconds_ - waited_));
    } catch (...) {
      broken_ = isStoring || inMessage_ || link_->isInMessageFrame();
      if (isStoring) setp(nullptr, nullptr);  // so that whatever is stored from now on throws
      if (broken_) link_->breakMessages(isStoring);
      throw;
    }
    waited_ += std::chrono::duration<double>(Clock::now() - from).count();
  }

  // The head of each frame takes the place of bytes that have gone out with the one before.
  void send(bool isLast) {
    auto left = static_cast<std::size_t>(pptr() - pbase());
    timed(true, [&](const qcDeadline& deadline) {
      for (char* frame = buffer_.data();; frame += qc_Link::kMostInMessageFrame) {
        const std::size_t count = std::min(left, qc_Link::kMostInMessageFrame);
        left -= count;
        link_->sendMessageFrame(frame, count, isLast && left == 0, deadline);
        if (left == 0) return;
      }
    });
    inMessage_ = !isLast;
    beginStoring();
  }

  void dropFrame() noexcept {
    setg(nullptr, nullptr, nullptr);
    hasLast_ = false;
    service_ = nullptr;
  }

  void receiveFrame() {
    dropFrame();  // a failure leaves nothing to read
    const bool isFirst = !inMessage_;
    timed(false, [&](const qcDeadline& deadline) {
      qc_Link::Frame frame = link_->receiveMessageFrame(deadline);
      buffer_ = std::move(frame.bytes);
      service_ = std::move(frame.service);
      inMessage_ = !frame.isLast;
    });
    received_ += static_cast<off_type>(buffer_.size());
    hasLast_ = !buffer_.empty();
    if (hasLast_) setg(buffer_.data(), buffer_.data(), buffer_.data() + buffer_.size() - 1);
    if (isFirst) archive_->beginAnew();
  }

  std::shared_ptr<qc_Link> link_;
  qcTransferArchive* archive_ = nullptr;
  std::vector<char> buffer_;
  // The last byte of a frame is taken by uflow, so that this knows when the frame is used up, and lets go at once of
  // what keeps its images when the connection has ended.
  bool hasLast_ = false;
  std::shared_ptr<qc_CallService> service_;
  double seconds_;
  double waited_ = 0;       // in this message
  off_type received_ = 0;   // bytes of the archive
  bool inMessage_ = false;  // its last frame is not through yet
  bool broken_ = false;
};

std::unique_ptr<qcTransferArchive> qcCommunicator::archive(qcArchive::Direction direction, double timeOutSeconds,
                                                           qcArchive::Ordering ordering) {
  return std::unique_ptr<qcTransferArchive>(new qcTransferArchive(
      std::make_unique<qc_StreamBufferWithTimeout>(*this, timeOutSeconds), direction, ordering, *this));
}

qcTransferArchive::qcTransferArchive(std::unique_ptr<qc_StreamBufferWithTimeout> stream, Direction direction,
                                     Ordering ordering, qcCommunicator& communicator)
    : qcArchive(stream.get(), direction, ordering, false, false),
      stream_(std::move(stream)),
      communicator_(communicator) {
  stream_->tell(*this);
  if (isStoring()) stream_->beginStoring();
  ctorFinished();
}

qcTransferArchive::~qcTransferArchive() { dtorStarting(); }

void qcTransferArchive::timeOut(double seconds) noexcept { stream_->timeOut(seconds); }
double qcTransferArchive::timeOut() const noexcept { return stream_->timeOut(); }

void qcTransferArchive::flush() {
  if (isStoring()) stream_->sendMessage();
}

void qcTransferArchive::nextMessage() {
  settle();
  if (isLoading()) stream_->skipMessage();
}

void qcTransferArchive::beforeObject() { stream_->makeRoom(); }

bool qcTransferArchive::isConnected() const { return communicator_.isConnected(); }
bool qcTransferArchive::waitUntilDisconnected(double seconds) const {
  return communicator_.waitUntilDisconnected(seconds);
}
