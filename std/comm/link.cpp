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

// What is kept for a peer that takes nothing.
constexpr std::size_t kMostUnsent = std::size_t{16} << 20;

// Seconds after which a thread that waits for the connection looks again at what another one may have left to it
// meanwhile, since that cannot wake it.
constexpr double kLook = 0.01;

// While a thread waits for the answer to one call it answers others, which may take calls. Peers could go on with that
// until the stack is used up.
constexpr int kMostCallsWithin = 16;
thread_local int callsWithin = 0;
thread_local qcDeadline callDeadline;

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
  letGo(lock);
  changed_.wait(lock, [this] { return !isReading_ && !isSending_; });
  communicator_ = nullptr;
}

std::shared_ptr<qc_CallService> qc_Link::service() {
  const Lock lock(mutex_);
  if (!isReceivingOver_) makeService();
  return service_;
}

// Unless there is one.
void qc_Link::makeService() {
  if (!service_) service_ = lastService_.lock();
  if (service_ || !qc_CallService::factory) return;
  service_ = qc_CallService::factory(*this);
  lastService_ = service_;
}

std::shared_ptr<qc_CallService> qc_Link::lastService() const {
  const Lock lock(mutex_);
  return lastService_.lock();
}

// --- reading --------------------------------------------------------------------------------------------------------

// Nothing comes any more, so the peer can use nothing of what it was given here; only messages yet to be loaded may
// bring some of it back.
void qc_Link::endReceiving(Lock& lock) {
  isReceivingOver_ = true;
  for (const auto& call : callsOfThePeer_) asideBytes_ -= call.size() + kFrameCost;
  callsOfThePeer_.clear();
  changed_.notify_all();
  if (inbox_.empty()) letGo(lock);
}

void qc_Link::letGo(Lock& lock) {
  std::shared_ptr<qc_CallService> last = std::exchange(service_, nullptr);
  if (!last) return;
  lock.unlock();  // what it holds goes without the lock
  last.reset();
  lock.lock();
}

// Whether the frame that has begun has to wait for room.
bool qc_Link::isMessageWithoutRoom(bool isRoom) const {
  return !isRoom && headCount_ == kHead && (head_ & (kCall | kReply)) == 0;
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

// Reads what there is of a frame; whether that is whole.
bool qc_Link::readOn(bool isRoom) {
  const auto fill = [this](char* to, std::size_t count, std::size_t& have) {
    while (have < count) {
      const std::size_t part = communicator_->receiveNow(to + have, count - have);
      if (part == 0) return false;
      have += part;
    }
    return true;
  };
  if (headCount_ < kHead) {
    if (!fill(headBytes_.data(), kHead, headCount_)) return false;
    checkHead();
    bodyCount_ = 0;
  }
  if (isMessageWithoutRoom(isRoom)) return false;
  body_.resize(head_ & kCountMask);
  return fill(body_.data(), body_.size(), bodyCount_);
}

// Reads, as the one thread that does, until a frame is there and handed on, or something can be sent that was left;
// only what there is already without a deadline. False when that passes first. An error ends the receiving, and the
// communicator does when it goes.
bool qc_Link::read(Lock& lock, bool takesMessages, const qcDeadline* deadline) {
  const bool isRoom = takesMessages || asideBytes_ < kMostSetAside;
  bool canSendRest = isSomethingLeft();
  isReading_ = true;
  lock.unlock();
  const auto stopReading = [&] {
    lock.lock();
    isReading_ = false;
    changed_.notify_all();
  };
  bool isWhole = false, isInTime = true;
  try {
    while (!(isWhole = readOn(isRoom)) && deadline && !isMessageWithoutRoom(isRoom)) {
      const qcDeadline look = std::min(*deadline, qcDeadline(kLook));
      const qcCommunicator::Ready ready = communicator_->waitFor(canSendRest, true, look);
      lock.lock();
      canSendRest = isSomethingLeft();
      const bool isOver = isReceivingOver_;
      lock.unlock();
      if (isOver) break;
      if (ready.canReceive) continue;
      isInTime = ready.canSend || !deadline->hasPassed();
      if (ready.canSend || !isInTime) break;
    }
    if (isWhole && (head_ & kCall) != 0 && loadWord(body_.data()) == 0) {
      isWhole = false;
      const std::vector<char> call = std::exchange(body_, {});
      headCount_ = 0;
      answer(call, qcDeadline(0.0));
    }
  } catch (const qcTimeout::Errors&) {
    stopReading();
    throw;
  } catch (...) {  // the connection has ended, or what comes makes no sense
    stopReading();
    endReceiving(lock);
    throw;
  }
  stopReading();
  if (isWhole) handOn(lock);
  return isInTime;
}

// Hands the frame that has been read to whoever it is for.
void qc_Link::handOn(Lock& lock) {
  std::vector<char> body = std::exchange(body_, {});
  headCount_ = 0;
  const std::size_t cost = body.size() + kFrameCost;
  if ((head_ & kCall) != 0) {
    callsOfThePeer_.push_back(std::move(body));
    asideBytes_ += cost;
  } else if ((head_ & kReply) != 0) {
    const std::uint32_t number = loadWord(body.data());
    const auto caller = calls_.find(number);
    if (caller != calls_.end()) {
      if (!caller->second->isThere) caller->second->reply = std::move(body);  // which is the caller's from then on
      caller->second->isThere = true;
    } else if (making_.erase(number) != 0) {  // its caller's time was up
      lock.unlock();
      undo(body);
      lock.lock();
    }
  } else {
    isMidMessage_ = (head_ & kLast) == 0;
    if (!dropsMessages_) {
      dropsMessages_ = true;  // unless there is memory: what follows makes no sense without this frame
      inbox_.push_back({std::move(body), !isMidMessage_});
      dropsMessages_ = false;
      asideBytes_ += cost;
    }
  }
  changed_.notify_all();
}

// Waits until isThere(), asked under the lock, and reads and answers meanwhile; false when the deadline passes first.
template <class IsThere>
bool qc_Link::await(Lock& lock, const qcDeadline& deadline, bool takesMessages, IsThere isThere) {
  for (;;) {
    sendRest(lock);
    const auto canRead = [&] {
      return !isReading_ && !isMessageWithoutRoom(takesMessages || asideBytes_ < kMostSetAside);
    };
    const auto canGoOn = [&] { return isThere() || isReceivingOver_ || !callsOfThePeer_.empty() || canRead(); };
    if (!qf_WaitFor(changed_, lock, deadline, canGoOn)) return false;
    if (isThere()) return true;
    if (isReceivingOver_) throw qcTcpip::ConnectionBroken();
    if (!callsOfThePeer_.empty()) {
      answerNext(lock, deadline);
    } else {
      if (!read(lock, takesMessages, &deadline)) return isThere();
      if (!callsOfThePeer_.empty()) continue;  // what was read in time is answered
    }
    if (isThere()) return true;
    qfThrowExceptionOnFailure(zrtsys::checkAttention());  // which a flood of frames must not put off
    if (deadline.hasPassed()) return false;
  }
}

qc_Link::Frame qc_Link::receiveMessageFrame(const qcDeadline& deadline) {
  Lock lock(mutex_);
  if (dropsMessages_) throw qcTcpip::ConnectionBroken();
  if (isReceivingOver_ && inbox_.empty()) letGo(lock);
  if (!await(lock, deadline, true, [this] { return !inbox_.empty(); })) throw qcTcpip::Timeout();
  makeService();  // also when the end came first: what the frame refers to is there until the frame is used up
  Frame frame = std::move(inbox_.front());
  inbox_.pop_front();
  frame.service = service_;
  if (isReceivingOver_ && inbox_.empty()) service_ = nullptr;
  asideBytes_ -= frame.bytes.size() + kFrameCost;
  changed_.notify_all();
  return frame;
}

bool qc_Link::isInMessageFrame() const {
  const Lock lock(mutex_);
  return !isReading_ && headCount_ == kHead && (head_ & (kCall | kReply)) == 0;
}

void qc_Link::breakMessages(bool isStoring) {
  Lock lock(mutex_);
  (isStoring ? sendsNoMessages_ : dropsMessages_) = true;
  if (isStoring) return;
  for (const Frame& frame : inbox_) asideBytes_ -= frame.bytes.size() + kFrameCost;
  inbox_.clear();
  changed_.notify_all();
  if (isReceivingOver_) letGo(lock);
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

// Sends what is left of earlier frames and then this one, which may be none; without a deadline, which is for one that
// is none and while nobody sends, only what goes at once. What has begun to go out is kept for the next sender, so that
// frames stay whole. `sent`, 0 before, is how much of the frame has gone out, also when this throws.
void qc_Link::transmit(Lock& lock, const char* frame, std::size_t size, const qcDeadline* deadline, std::size_t& sent) {
  if (deadline && !qf_WaitFor(changed_, lock, *deadline, [this] { return !isSending_; })) throw qcTcpip::Timeout();
  if (isSendingOver_) throw qcTcpip::ConnectionBroken();
  isSending_ = true;
  std::string rest = std::exchange(unsent_, {});
  std::size_t sentRest = 0;
  lock.unlock();
  const auto sendAll = [&](const char* data, std::size_t count, std::size_t& done) {
    while (done < count) {
      const std::size_t part = communicator_->sendNow(data + done, count - done);
      if (part == 0 && !deadline) return;
      if (part == 0) waitToSend(*deadline);
      done += part;
    }
  };
  const auto stopSending = [&] {
    lock.lock();
    isSending_ = false;
    changed_.notify_all();
    try {
      rest.erase(0, sentRest);
      if (sent > 0) rest.append(frame + sent, size - sent);
      rest.append(unsent_);
      unsent_.swap(rest);
    } catch (...) {
      isSendingOver_ = true;
      throw;
    }
  };
  try {
    sendAll(rest.data(), rest.size(), sentRest);
    sendAll(frame, size, sent);
  } catch (const qcTcpip::ConnectionBroken&) {
    stopSending();
    isSendingOver_ = true;
    unsent_ = {};
    throw;
  } catch (...) {
    stopSending();
    throw;
  }
  stopSending();
  if (frame) sendRest(lock);  // what others have left meanwhile
}

// Whether there is something to send that nobody is sending.
bool qc_Link::isSomethingLeft() const { return !unsent_.empty() && !isSending_ && !isSendingOver_; }

// Sends what is left as far as that needs no waiting.
void qc_Link::sendRest(Lock& lock) {
  if (!isSomethingLeft()) return;
  std::size_t sent = 0;
  try {
    transmit(lock, nullptr, 0, nullptr, sent);
  } catch (const qcTcpip::Errors&) {
  }
}

// Waits until the connection takes more. Reads meanwhile: a peer that sends itself may take nothing before.
void qc_Link::waitToSend(const qcDeadline& deadline) {
  const auto reads = [this] { return !isReading_ && !isReceivingOver_ && asideBytes_ < kMostSetAside; };
  Lock lock(mutex_);
  const bool isReader = reads();
  lock.unlock();
  const qcCommunicator::Ready ready = communicator_->waitFor(true, isReader, std::min(deadline, qcDeadline(kLook)));
  if (ready.canSend) return;
  lock.lock();
  if (isSendingOver_) throw qcTcpip::ConnectionBroken();
  if (ready.canReceive && reads()) {
    try {
      read(lock, false, nullptr);
    } catch (...) {  // nothing comes any more; the peer may take something yet
    }
  }
  lock.unlock();
  qfThrowExceptionOnFailure(zrtsys::checkAttention());
  if (deadline.hasPassed()) throw qcTcpip::Timeout();
}

void qc_Link::sendMessageFrame(char* frame, std::size_t count, bool isLast, const qcDeadline& deadline) {
  storeWord(frame, static_cast<std::uint32_t>(count) | (isLast ? kLast : 0));
  Lock lock(mutex_);
  if (sendsNoMessages_) throw qcTcpip::ConnectionBroken();
  std::size_t sent = 0;
  transmit(lock, frame, kHead + count, &deadline, sent);
}

// --- calls ----------------------------------------------------------------------------------------------------------

std::vector<char> qc_Link::call(std::span<const char> body, bool makes) {
  const qcDeadline deadline = std::min(qcDeadline(timeOut.load()), callDeadline);
  if (callsWithin == kMostCallsWithin) throw qcTcpip::AccessFailed();
  std::vector<char> frame = frameOf(0, body);
  Waiting waiting;
  std::uint32_t number = 0;
  {
    const Lock lock(mutex_);
    if (isReceivingOver_) throw qcTcpip::ConnectionBroken();
    do {
      number = ++lastCall_;  // 0 is that of calls without a reply
    } while (number == 0 || calls_.contains(number) || making_.contains(number));
    if (makes) making_.insert(number);
    try {
      calls_.emplace(number, &waiting);
    } catch (...) {
      making_.erase(number);
      throw;
    }
  }
  struct Within {
    ~Within() {  // what has come after all, when nobody takes it any more, is undone
      --callsWithin;
      callDeadline = outer;
      Lock lock(link.mutex_);
      link.calls_.erase(number);
      if (!waiting.isThere || link.making_.erase(number) == 0 || isTaken) return;
      lock.unlock();
      link.undo(waiting.reply);
    }
    qc_Link& link;
    std::uint32_t number;
    Waiting& waiting;
    qcDeadline outer;
    bool isTaken = false;
  } within{*this, number, waiting, std::exchange(callDeadline, deadline)};
  ++callsWithin;
  storeWord(frame.data() + kHead, number);
  storeWord(frame.data(), static_cast<std::uint32_t>(frame.size() - kHead) | kLast | kCall);
  {
    Lock lock(mutex_);
    std::size_t sent = 0;
    transmit(lock, frame.data(), frame.size(), &deadline, sent);
    if (!await(lock, deadline, false, [&] { return waiting.isThere; })) throw qcTcpip::Timeout();
  }
  within.isTaken = true;
  waiting.reply.erase(waiting.reply.begin(), waiting.reply.begin() + 4);
  qcMemoryArchive reply(waiting.reply.data(), static_cast<long>(waiting.reply.size()), false);
  bool isGood = false;
  reply || isGood;
  if (!isGood) rethrowFrom(reply);
  return std::move(waiting.reply);
}

void qc_Link::undo(const std::vector<char>& reply) noexcept {
  try {
    qcMemoryArchive archive(reply.data() + 4, static_cast<long>(reply.size()) - 4, false);
    bool isGood = false;
    archive || isGood;
    const std::shared_ptr<qc_CallService> made = service();
    if (isGood && made) made->undo(archive);
  } catch (...) {  // it makes no sense, or the peer forgets when the connection ends
  }
}

void qc_Link::post(std::span<const char> body) {
  std::vector<char> frame = frameOf(0, body);
  storeWord(frame.data(), static_cast<std::uint32_t>(frame.size() - kHead) | kLast | kCall);
  Lock lock(mutex_);
  if (unsent_.size() > kMostUnsent) {
    isSendingOver_ = true;
    unsent_ = {};
  }
  if (isSendingOver_) return;  // the peer forgets by itself
  unsent_.append(frame.data(), frame.size());
  sendRest(lock);
}

// Takes a call that was set aside, or was read just now.
void qc_Link::answerNext(Lock& lock, const qcDeadline& deadline) {
  const std::vector<char> call = std::move(callsOfThePeer_.front());
  callsOfThePeer_.pop_front();
  asideBytes_ -= call.size() + kFrameCost;
  lock.unlock();
  try {
    answer(call, deadline);
  } catch (...) {
    lock.lock();
    throw;
  }
  lock.lock();
}

// A peer that does not take the answer in time gets it when this side sends or serves again, unless too much is left.
void qc_Link::answer(const std::vector<char>& call, const qcDeadline& deadline) {
  const std::uint32_t number = loadWord(call.data());
  bool isGood = true;
  std::vector<char> frame;
  const auto fail = [&](qcException& error) {
    // Who carries out a notice is the one that reads, and must wait for no thread that waits for what it reads: one in
    // the middle of an object has the lock under which an error is stored.
    if (number == 0) return;
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
    number == 0 ? answering->notice(body) : answering->answer(body, reply);
    frame = frameOf(number, reply.bytes());
  } catch (qcTimeout::Errors&) {  // the time of this thread is not the caller's; its next wait throws this again
    qcTcpip::Timeout error;
    fail(error);
  } catch (qcTcpip::ConnectionBroken&) {  // that to a third side, not the caller's
    qcTcpip::AccessFailed error;
    fail(error);
  } catch (qcException& error) {
    fail(error);
  } catch (const std::bad_alloc&) {
    qcTcpip::AccessFailed error;
    fail(error);
  }
  if (number == 0) return;
  storeWord(frame.data(), static_cast<std::uint32_t>(frame.size() - kHead) | kLast | kReply);
  Lock lock(mutex_);
  std::size_t sent = 0;
  const auto keep = [&] {  // half of the room is for notices, without which nothing can be sent any more
    if (sent > 0 || isSendingOver_ || unsent_.size() + frame.size() > kMostUnsent / 2) return;
    unsent_.append(frame.data(), frame.size());
  };
  try {
    transmit(lock, frame.data(), frame.size(), &deadline, sent);
  } catch (const qcTcpip::Timeout&) {
    keep();
  } catch (const qcTcpip::Errors&) {
  } catch (const qcTimeout::Errors&) {
    keep();
    throw;
  }
}

// --- objects on the other side --------------------------------------------------------------------------------------

qcCommunicator* qcRemoteObject::communicator() const noexcept { return link_ ? link_->communicator() : nullptr; }
