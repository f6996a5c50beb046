#include "std/comm/link.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "std/sync/wait.h"
#include "vnxstd/archive/memory.h"
#include "vnxstd/comm/communicator.h"
#include "vnxstd/comm/remote.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/timer/timeout.h"

namespace {

const qc_ErrorRegistration<qcRemoteObject::Errors, qcRemoteObject::ObjectMismatch> registered;

// What is set aside of messages at most while threads wait for something else; a frame counts for more than its bytes,
// since each takes memory of its own.
constexpr std::size_t kMostSetAside = std::size_t{64} << 20, kFrameCost = 128;

constexpr std::uint32_t kCountMask = 0x00FFFFFF;

void storeWord(char* to, std::uint32_t word) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<char>(word >> (8 * i));
}

std::uint32_t loadWord(const char* from) {
  std::uint32_t word = 0;
  for (int i = 0; i < 4; ++i) word |= std::uint32_t{static_cast<unsigned char>(from[i])} << (8 * i);
  return word;
}

/// Room for the head, the number of the call, and the bytes of an archive.
std::vector<char> frameOf(std::uint32_t number, std::span<const char> body) {
  if (body.size() + 4 > qc_Link::kMostInCall) throw qcArchive::BadContent("transfer", 140);
  std::vector<char> frame(qc_Link::kHead + 4 + body.size());
  storeWord(frame.data() + qc_Link::kHead, number);
  std::copy(body.begin(), body.end(), frame.begin() + qc_Link::kHead + 4);
  return frame;
}

/// Loads the error that the peer has thrown and throws it here.
void rethrowFrom(qcArchive& reply) {
  std::unique_ptr<qcException> error;
  reply || error;
  if (!error) throw qcArchive::BadContent("transfer", 150);
  error.release()->suicideAndRethrow();
}

}  // namespace

qc_CallService::Factory qc_CallService::factory = nullptr;
qc_CallService::~qc_CallService() = default;

qc_Link::~qc_Link() = default;

qcCommunicator* qc_Link::communicator() const noexcept {
  const Lock lock(mutex_);
  return communicator_;
}

void qc_Link::close() noexcept {
  Lock lock(mutex_);
  isSendingOver_ = true;
  endReceiving(lock);
  changed_.wait(lock, [this] { return !isReading_ && !isSending_; });
  communicator_ = nullptr;
}

std::shared_ptr<qc_CallService> qc_Link::service() {
  const Lock lock(mutex_);
  if (!service_ && !isReceivingOver_ && qc_CallService::factory) service_ = qc_CallService::factory(*this);
  return service_;
}

// --- reading --------------------------------------------------------------------------------------------------------

// Nothing comes any more, so the peer can use nothing of what it was given here.
void qc_Link::endReceiving(Lock& lock) {
  isReceivingOver_ = true;
  changed_.notify_all();
  std::shared_ptr<qc_CallService> last = std::exchange(service_, nullptr);
  if (!last) return;
  lock.unlock();  // what it holds goes without the lock
  last.reset();
  lock.lock();
}

// Whether the next frame is one of a message that there is no room for.
bool qc_Link::isStalled() const {
  return headCount_ == kHead && (head_ & (kCall | kReply)) == 0 && inboxBytes_ >= kMostSetAside;
}

void qc_Link::checkHead() {
  head_ = loadWord(headBytes_.data());
  const std::uint32_t count = head_ & kCountMask, kind = head_ & ~(kCountMask | kLast);
  bool isGood = false;
  if (kind == kCall || kind == kReply) {
    isGood = (head_ & kLast) != 0 && count >= 4 && count <= kMostInCall;
  } else if (kind == 0) {
    // Frames without bytes would keep a reader waiting for ever, without waiting.
    isGood = count <= kMostInMessageFrame && (count != 0 || (isMidMessage_ && (head_ & kLast) != 0));
  }
  if (!isGood) throw qcArchive::BadContent("transfer", 100);
}

// Reads on until the frame is there, or a frame that there is no room for has begun.
void qc_Link::readFrame(const qcDeadline& deadline, bool isRoom) {
  if (headCount_ < kHead) {
    while (headCount_ < kHead) {
      headCount_ += communicator_->receiveSome(headBytes_.data() + headCount_, kHead - headCount_, deadline);
    }
    checkHead();
    bodyCount_ = 0;
  }
  if (!isRoom && (head_ & (kCall | kReply)) == 0) return;
  const std::size_t count = head_ & kCountMask;
  body_.resize(count);
  while (bodyCount_ < count) {
    bodyCount_ += communicator_->receiveSome(body_.data() + bodyCount_, count - bodyCount_, deadline);
  }
}

// Hands the frame that has been read to whoever it is for; whether that was a call, whose answer takes time.
bool qc_Link::dispatch(Lock& lock, const qcDeadline& deadline) {
  if (headCount_ < kHead || bodyCount_ < (head_ & kCountMask)) return false;  // no room for it yet
  const std::uint32_t head = head_;
  std::vector<char> body = std::move(body_);
  headCount_ = bodyCount_ = 0;
  body_ = {};
  if ((head & kCall) != 0) {
    lock.unlock();
    try {
      answer(body, deadline);
    } catch (...) {
      lock.lock();
      throw;
    }
    lock.lock();
    return true;
  }
  if ((head & kReply) != 0) {
    const auto caller = calls_.find(loadWord(body.data()));  // gone when its time was up
    if (caller != calls_.end()) {
      caller->second->reply = std::move(body);
      caller->second->isThere = true;
    }
  } else {
    isMidMessage_ = (head & kLast) == 0;
    if (!dropsMessages_) {
      const std::size_t cost = body.size() + kFrameCost;
      dropsMessages_ = true;  // unless there is memory: what follows makes no sense without this frame
      inbox_.push_back({std::move(body), !isMidMessage_});
      dropsMessages_ = false;
      inboxBytes_ += cost;
    }
  }
  changed_.notify_all();
  return false;
}

// Waits until isThere(), asked under the lock, and reads meanwhile; false when the deadline passes first.
template <class IsThere>
bool qc_Link::await(Lock& lock, const qcDeadline& deadline, bool takesMessages, IsThere isThere) {
  for (;;) {
    const auto canRead = [&] { return !isReading_ && (takesMessages || !isStalled()); };
    const auto canGoOn = [&] { return isThere() || isReceivingOver_ || canRead(); };
    if (!qf_WaitFor(changed_, lock, deadline, canGoOn)) return false;
    if (isThere()) return true;
    if (isReceivingOver_) throw qcTcpip::ConnectionBroken();
    isReading_ = true;
    const bool isRoom = takesMessages || inboxBytes_ < kMostSetAside;
    lock.unlock();
    const auto stopReading = [&] {
      lock.lock();
      isReading_ = false;
      changed_.notify_all();
    };
    try {
      readFrame(deadline, isRoom);
    } catch (const qcTcpip::Timeout&) {
      stopReading();
      return isThere();
    } catch (const qcTimeout::Errors&) {
      stopReading();
      throw;
    } catch (...) {  // the connection has ended, or what comes makes no sense
      stopReading();
      endReceiving(lock);
      throw;
    }
    stopReading();
    if (dispatch(lock, deadline) && !isThere()) {
      qfThrowExceptionOnFailure(zrtsys::checkAttention());
      if (deadline.hasPassed()) return false;
    }
  }
}

qc_Link::Frame qc_Link::receiveMessageFrame(const qcDeadline& deadline) {
  Lock lock(mutex_);
  if (dropsMessages_) throw qcTcpip::ConnectionBroken();
  if (!await(lock, deadline, true, [this] { return !inbox_.empty(); })) throw qcTcpip::Timeout();
  Frame frame = std::move(inbox_.front());
  inbox_.pop_front();
  inboxBytes_ -= frame.bytes.size() + kFrameCost;
  changed_.notify_all();
  return frame;
}

bool qc_Link::isInMessageFrame() const {
  const Lock lock(mutex_);
  return !isReading_ && headCount_ > 0 && (headCount_ < kHead || (head_ & (kCall | kReply)) == 0);
}

void qc_Link::breakMessages(bool isStoring) {
  const Lock lock(mutex_);
  (isStoring ? sendsNoMessages_ : dropsMessages_) = true;
  if (isStoring) return;
  inbox_.clear();
  inboxBytes_ = 0;
  changed_.notify_all();
}

bool qc_Link::serve(const qcDeadline& deadline) {
  Lock lock(mutex_);
  try {
    await(lock, deadline, false, [] { return false; });
  } catch (const qcTcpip::ConnectionBroken&) {
    return true;
  }
  return false;
}

// --- sending --------------------------------------------------------------------------------------------------------

// Sends what is left of earlier frames and then this one, which may be none. What has begun to go out when this throws
// is kept for the next sender, so that frames stay whole.
void qc_Link::transmit(Lock& lock, const char* frame, std::size_t size, const qcDeadline& deadline) {
  if (!qf_WaitFor(changed_, lock, deadline, [this] { return !isSending_; })) throw qcTcpip::Timeout();
  if (isSendingOver_) throw qcTcpip::ConnectionBroken();
  isSending_ = true;
  std::string first = std::exchange(unsent_, {});
  std::size_t sentFirst = 0, sent = 0;
  lock.unlock();
  const auto stopSending = [&] {
    lock.lock();
    isSending_ = false;
    changed_.notify_all();
  };
  try {
    while (sentFirst < first.size()) {
      sentFirst += communicator_->sendSome(first.data() + sentFirst, first.size() - sentFirst, deadline);
    }
    while (sent < size) sent += communicator_->sendSome(frame + sent, size - sent, deadline);
  } catch (const qcTcpip::ConnectionBroken&) {
    stopSending();
    isSendingOver_ = true;
    throw;
  } catch (...) {
    stopSending();
    isSendingOver_ = true;  // unless there is memory for the rest
    first.erase(0, sentFirst);
    if (sent > 0) first.append(frame + sent, size - sent);
    unsent_.insert(0, first);
    isSendingOver_ = false;
    throw;
  }
  stopSending();
}

void qc_Link::sendMessageFrame(char* frame, std::size_t count, bool isLast, const qcDeadline& deadline) {
  storeWord(frame, static_cast<std::uint32_t>(count) | (isLast ? kLast : 0));
  Lock lock(mutex_);
  if (sendsNoMessages_) throw qcTcpip::ConnectionBroken();
  transmit(lock, frame, kHead + count, deadline);
}

void qc_Link::send(std::vector<char>& frame, std::uint32_t bits, const qcDeadline& deadline) {
  storeWord(frame.data(), static_cast<std::uint32_t>(frame.size() - kHead) | kLast | bits);
  Lock lock(mutex_);
  transmit(lock, frame.data(), frame.size(), deadline);
}

// --- calls ----------------------------------------------------------------------------------------------------------

std::vector<char> qc_Link::call(std::span<const char> body) {
  const qcDeadline deadline(timeOut.load());
  Waiting waiting;
  std::uint32_t number = 0;
  {
    const Lock lock(mutex_);
    if (isReceivingOver_) throw qcTcpip::ConnectionBroken();
    do {
      number = ++lastCall_;  // 0 is that of calls without a reply
    } while (number == 0 || !calls_.emplace(number, &waiting).second);
  }
  struct Leave {
    ~Leave() {
      const Lock lock(link.mutex_);
      link.calls_.erase(number);
    }
    qc_Link& link;
    std::uint32_t number;
  } const leave{*this, number};
  std::vector<char> frame = frameOf(number, body);
  send(frame, kCall, deadline);
  {
    Lock lock(mutex_);
    if (!await(lock, deadline, false, [&] { return waiting.isThere; })) throw qcTcpip::Timeout();
  }
  waiting.reply.erase(waiting.reply.begin(), waiting.reply.begin() + 4);
  qcMemoryArchive reply(waiting.reply.data(), static_cast<long>(waiting.reply.size()), false);
  bool isGood = false;
  reply || isGood;
  if (!isGood) rethrowFrom(reply);
  return std::move(waiting.reply);
}

void qc_Link::post(std::span<const char> body) {
  std::vector<char> frame = frameOf(0, body);
  storeWord(frame.data(), static_cast<std::uint32_t>(frame.size() - kHead) | kLast | kCall);
  Lock lock(mutex_);
  if (isSendingOver_) return;  // the peer forgets by itself
  unsent_.append(frame.data(), frame.size());
  if (isSending_) return;
  try {
    transmit(lock, nullptr, 0, qcDeadline(0.0));
  } catch (const qcTcpip::Errors&) {
  } catch (const qcTimeout::Errors&) {
  }
}

// A peer that does not take the answer in time gets none.
void qc_Link::answer(const std::vector<char>& call, const qcDeadline& deadline) {
  const std::uint32_t number = loadWord(call.data());
  bool isGood = true;
  std::vector<char> frame;
  const auto fail = [&](qcException& error) {
    qcMemoryArchive reply(qcArchive::littleEndian, false);
    isGood = false;
    reply || isGood;
    qf_SerializeOwnedPointer(reply, &error, nullptr);
    frame = frameOf(number, reply.bytes());
  };
  try {
    qcMemoryArchive body(call.data() + 4, static_cast<long>(call.size()) - 4, false);
    qcMemoryArchive reply(qcArchive::littleEndian, false);
    reply || isGood;
    const std::shared_ptr<qc_CallService> answering = service();
    if (!answering) throw qcTcpip::NotSupported();
    answering->answer(body, reply);
    frame = frameOf(number, reply.bytes());
  } catch (qcTimeout::Errors& error) {
    if (zrtsys::checkAttention() < 0) throw;  // of this thread; otherwise of another side that it has asked
    fail(error);
  } catch (qcException& error) {
    fail(error);
  } catch (const std::bad_alloc&) {
    qcTcpip::AccessFailed error;
    fail(error);
  }
  if (number == 0) return;
  try {
    send(frame, kReply, deadline);
  } catch (const qcTcpip::Errors&) {
  }
}

// --- objects on the other side --------------------------------------------------------------------------------------

qcCommunicator* qcRemoteObject::communicator() const noexcept { return link_ ? link_->communicator() : nullptr; }
