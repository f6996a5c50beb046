#include "vnxstd/comm/transfer.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <streambuf>
#include <vector>

#include "vnxstd/comm/communicator.h"
#include "vnxstd/except/catalogue.h"

namespace {

// A message travels in frames: four bytes, least significant first, that hold the number of bytes that follow and, as
// the highest bit, whether the frame is the last one.
constexpr std::size_t kFrameHead = 4, kMostInFrame = 65536;
constexpr std::uint32_t kLastFrame = 0x80000000;

}  // namespace

/// Puts messages into frames, and takes them out. The time that waiting may take is counted down within a message.
class qc_StreamBufferWithTimeout : public std::streambuf {
 public:
  qc_StreamBufferWithTimeout(qcCommunicator& communicator, double seconds)
      : communicator_(communicator), buffer_(kFrameHead + kMostInFrame), seconds_(seconds) {}

  void timeOut(double seconds) noexcept { seconds_ = seconds; }
  double timeOut() const noexcept { return seconds_; }

  void beginStoring() { setp(buffer_.data() + kFrameHead, buffer_.data() + buffer_.size()); }

  void sendMessage() {
    if (pptr() != pbase() || inMessage_) sendFrame(kLastFrame);
  }

  void skipMessage() {
    while (inMessage_) receiveFrame();
    setg(nullptr, nullptr, nullptr);
  }

 protected:
  int_type overflow(int_type c) override {
    sendFrame(0);
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
    return pos_type(received_ - (egptr() - gptr()));
  }

  int_type underflow() override {
    do {
      receiveFrame();
    } while (gptr() == egptr());
    return traits_type::to_int_type(*gptr());
  }

 private:
  using Clock = qcDeadline::Clock;

  // Runs something that waits until the time of the message is used up, and counts what it took.
  template <class Work>
  void timed(Work work) {
    if (broken_) throw qcTcpip::ConnectionBroken();
    if (!inMessage_) waited_ = 0;
    const Clock::time_point from = Clock::now();
    try {
      work(qcDeadline(seconds_ - waited_));
    } catch (...) {
      broken_ = broken_ || inMessage_ || midFrame_;
      throw;
    }
    waited_ += std::chrono::duration<double>(Clock::now() - from).count();
  }

  void sendFrame(std::uint32_t last) {
    const auto count = static_cast<std::size_t>(pptr() - pbase());
    const std::uint32_t head = static_cast<std::uint32_t>(count) | last;
    for (std::size_t i = 0; i < kFrameHead; ++i) buffer_[i] = static_cast<char>(head >> (8 * i));
    midFrame_ = true;  // how much of it has gone out is unknown after a failure
    timed([&](const qcDeadline& deadline) { communicator_.send(buffer_.data(), kFrameHead + count, deadline); });
    midFrame_ = false;
    inMessage_ = last == 0;
    beginStoring();
  }

  void receiveFrame() {
    std::array<char, kFrameHead> bytes;
    midFrame_ = false;
    setg(nullptr, nullptr, nullptr);  // a failure leaves nothing to read
    timed([&](const qcDeadline& deadline) {
      communicator_.receive(bytes.data(), 1, deadline);
      midFrame_ = true;
      communicator_.receive(bytes.data() + 1, bytes.size() - 1, deadline);
      std::uint32_t head = 0;
      for (std::size_t i = 0; i < kFrameHead; ++i)
        head |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
      const std::uint32_t count = head & ~kLastFrame;
      // Frames without bytes would keep a reader waiting for ever, without waiting.
      const bool isEnd = inMessage_ && (head & kLastFrame) != 0;
      if (count > kMostInFrame || (count == 0 && !isEnd)) throw qcArchive::BadContent("transfer", 100);
      communicator_.receive(buffer_.data(), count, deadline);
      setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
      received_ += count;
      inMessage_ = (head & kLastFrame) == 0;
    });
    midFrame_ = false;
  }

  qcCommunicator& communicator_;
  std::vector<char> buffer_;
  double seconds_;
  double waited_ = 0;       // in this message
  off_type received_ = 0;   // bytes of the archive
  bool inMessage_ = false;  // its last frame is not through yet
  bool midFrame_ = false;
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

bool qcTransferArchive::isConnected() const { return communicator_.isConnected(); }
bool qcTransferArchive::waitUntilDisconnected(double seconds) const {
  return communicator_.waitUntilDisconnected(seconds);
}
