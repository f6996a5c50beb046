// What crosses a communicator: frames, and who reads, sends and answers them.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "vnxstd/archive/widths.h"
#include "vnxstd/sync/sync.h"

class qcArchive;
class qcCommunicator;
class qc_Link;

/// Answers calls of the peer. Lives from the first call or use until the connection ends.
class qc_CallService {
 public:
  virtual ~qc_CallService();
  /// Reads a call and stores the answer. What it throws crosses to the caller.
  virtual void answer(qcArchive& call, qcArchive& reply) = 0;
  /// Reads a call that wants no reply. These are carried out in the order in which they come, before anything behind
  /// them is looked at, and ask nobody.
  virtual void notice(qcArchive& call) = 0;
  /// Reads a reply, behind its flag, that came after its caller's time was up, and undoes what was done for it.
  virtual void undo(qcArchive& reply) = 0;

  /// Makes the service of a link. Set, before main, by the one module that has something to answer.
  using Factory = std::shared_ptr<qc_CallService> (*)(qc_Link& link);
  static Factory factory;
};

/// The frames of a connection: those of messages, which archives read, and calls with their replies, one frame each.
///
/// Every thread that waits for a frame of its own reads whatever comes meanwhile, if no other thread does: it answers
/// calls, hands replies to whoever waits for them, and sets frames of messages aside. One that waits for the peer to
/// take what it sends reads too, and sets calls aside. A frame is read and sent in pieces as they come and go; a thread
/// whose time is up leaves the rest to the next one. All operations are safe from several threads; what waits throws as
/// qcCommunicator says. Outlives its communicator as long as anybody has it.
class qc_Link {
 public:
  static constexpr std::size_t kHead = 4, kMostInMessageFrame = 65536, kMostInCall = (std::size_t{1} << 20) + 4096;
  static constexpr std::uint32_t kLast = 0x80000000, kCall = 0x40000000, kReply = 0x20000000;

  struct Frame {
    std::vector<char> bytes;
    bool isLast = false;
    std::shared_ptr<qc_CallService> service{};  // keeps what the frame refers to until it is used up
  };

  explicit qc_Link(qcCommunicator& communicator) : communicator_(&communicator) {}
  qc_Link(const qc_Link&) = delete;
  qc_Link& operator=(const qc_Link&) = delete;
  ~qc_Link();

  /// The communicator; null once it is gone.
  qcCommunicator* communicator() const noexcept;
  /// The communicator is going: nothing crosses any more. Waits for those who still read or send.
  void close() noexcept;

  /// Sends a frame of a message: `count` bytes behind room for the head.
  void sendMessageFrame(char* frame, std::size_t count, bool isLast, const qcDeadline& deadline);
  Frame receiveMessageFrame(const qcDeadline& deadline);
  /// Whether a frame is known to be one of a message, and nobody has read it to its end.
  bool isInMessageFrame() const;
  /// A message was broken off: there will be no further ones in this direction.
  void breakMessages(bool isStoring);

  /// Sends a call, waits for its reply and returns that, the bytes of an archive behind a flag that is true. Throws
  /// what the peer has thrown. Waits for timeOut() seconds at most, and within answers no longer than the call that is
  /// waited in already may take. What comes too late is undone if it `makes` something.
  std::vector<char> call(std::span<const char> body, bool makes = false);
  /// Sends a call without reply, at once if that needs no waiting, otherwise before the next frame or while a thread
  /// waits for one. A peer that has left too many of them lying gets nothing more.
  void post(std::span<const char> body);
  /// Answers calls until the deadline, which gives false, or until the peer has gone.
  bool serve(const qcDeadline& deadline);

  /// The service, which is made when it is first asked for; null once nothing can be received any more, and all that
  /// was received is handed out.
  std::shared_ptr<qc_CallService> service();
  /// The same as long as any thread still uses it.
  std::shared_ptr<qc_CallService> lastService() const;

  std::atomic<double> timeOut{30};       // seconds, of calls
  std::atomic<qcUInt64> peerStorage{0};  // bytes that the peer may use here

 private:
  using Lock = std::unique_lock<std::mutex>;
  struct Waiting {
    bool isThere = false;
    std::vector<char> reply;
  };

  void makeService();
  template <class IsThere>
  bool await(Lock& lock, const qcDeadline& deadline, bool takesMessages, IsThere isThere);
  bool isMessageWithoutRoom(bool isRoom) const;
  bool readOn(bool isRoom);
  void checkHead();
  bool read(Lock& lock, bool takesMessages, const qcDeadline* deadline);
  void handOn(Lock& lock);
  void answerNext(Lock& lock, const qcDeadline& deadline);
  void answer(const std::vector<char>& call, const qcDeadline& deadline);
  void undo(const std::vector<char>& reply) noexcept;
  void endReceiving(Lock& lock);
  void letGo(Lock& lock);
  void transmit(Lock& lock, const char* frame, std::size_t size, const qcDeadline* deadline, std::size_t& sent);
  void waitToSend(const qcDeadline& deadline);
  bool isSomethingLeft() const;
  void sendRest(Lock& lock);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  qcCommunicator* communicator_;

  // The frame that is being read: that of the thread that reads, under the lock that of all.
  bool isReading_ = false, isReceivingOver_ = false;
  std::array<char, kHead> headBytes_{};
  std::size_t headCount_ = 0, bodyCount_ = 0;
  std::uint32_t head_ = 0;
  std::vector<char> body_;

  std::deque<Frame> inbox_;                       // of messages, set aside
  std::deque<std::vector<char>> callsOfThePeer_;  // that nobody answers yet
  std::size_t asideBytes_ = 0;                    // of both
  bool isMidMessage_ = false, dropsMessages_ = false, sendsNoMessages_ = false;

  bool isSending_ = false, isSendingOver_ = false;
  std::string unsent_;  // whole frames, or the rest of one and whole frames, which go before any other

  std::map<std::uint32_t, Waiting*> calls_;
  std::set<std::uint32_t> making_;  // calls that make something, also those that nobody waits for any more
  std::uint32_t lastCall_ = 0;
  std::shared_ptr<qc_CallService> service_;
  std::weak_ptr<qc_CallService> lastService_;
};
