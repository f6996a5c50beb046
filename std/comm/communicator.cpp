#include "vnxstd/comm/communicator.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "std/comm/link.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/except/failure.h"
#include "zrtsys/attention.h"

#if defined(_WIN32)

// The sockets of this platform are another interface, which nobody has asked for yet.
qcCommunicator::qcCommunicator(int socket) : socket_(socket) { throw qcTcpip::NotSupported(); }
qcCommunicator::~qcCommunicator() = default;
std::pair<std::unique_ptr<qcCommunicator>, std::unique_ptr<qcCommunicator>> qcCommunicator::loopback() {
  throw qcTcpip::NotSupported();
}
std::size_t qcCommunicator::sendNow(const char*, std::size_t) { throw qcTcpip::NotSupported(); }
std::size_t qcCommunicator::receiveNow(char*, std::size_t) { throw qcTcpip::NotSupported(); }
qcCommunicator::Ready qcCommunicator::waitFor(bool, bool, const qcDeadline&) const { throw qcTcpip::NotSupported(); }
bool qcCommunicator::isConnected() const { throw qcTcpip::NotSupported(); }
bool qcCommunicator::waitUntilDisconnected(double) const { throw qcTcpip::NotSupported(); }
void qcCommunicator::finishSending() { throw qcTcpip::NotSupported(); }

#else

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

#if defined(POLLRDHUP)
constexpr short kGone = POLLRDHUP | POLLHUP | POLLERR;
#else
constexpr short kGone = POLLHUP | POLLERR;
#endif

// Waits until one of the events has come or the deadline has passed; what has come. Throws when a time limit on the
// thread ends the wait before.
short pollUntil(int socket, short events, const qcDeadline& deadline) {
  for (;;) {
    const qcDeadline look = std::min(deadline, qcDeadline::nextLook());
    int wait = -1;
    if (!look.isNever()) {
      const auto now = std::min(look.time(), qcDeadline::Clock::now());  // no deadline is too early for a difference
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(look.time() - now);
      wait = static_cast<int>(std::min<std::chrono::milliseconds::rep>(left.count(), 60000));
    }
    pollfd ask{socket, events, 0};
    const int count = ::poll(&ask, 1, wait);
    if (count > 0) return ask.revents;
    if (count < 0 && errno != EINTR) throw qcTcpip::AccessFailed();
    const bool isOver = deadline.hasPassed();
    const zrtsys::Status attention = zrtsys::checkAttention();
    // Waits shorter than the looks at the flag are cancelled too.
    if (!isOver || attention == zrtsys::attentionCancelled || qcDeadline::ofThread() < deadline) {
      qfThrowExceptionOnFailure(attention);
    }
    if (isOver) return 0;
  }
}

}  // namespace

qcCommunicator::qcCommunicator() noexcept = default;

qcCommunicator::qcCommunicator(int socket) : qcCommunicator() {
  socket_ = socket;
  link_ = std::make_shared<qc_Link>(*this);
  int type = 0;
  socklen_t size = sizeof type;
  sockaddr_storage peer;
  socklen_t peerSize = sizeof peer;
  const bool isStream = ::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM &&
                        ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0;
  // Calls return when they would have to wait: all waiting is done in one place.
  const int flags = isStream ? ::fcntl(socket, F_GETFL) : -1;
  if (flags < 0 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) != 0) throw qcTcpip::AccessFailed();
  // Frames are sent whole: holding back the end of one until the peer acknowledges what went before saves nothing, and
  // costs each call some 40 ms.
  const int on = 1;
  isTcp_ = ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0;
  process_ = ::getpid();
}

qcCommunicator::~qcCommunicator() {
  if (socket_ < 0) return;
  if (link_) link_->close();
  if (isTcp_ && hasSent_ && process_ == ::getpid()) {
    // Closing a TCP socket with bytes unread takes back what is on its way to the peer. It is not shut down, which
    // would end the connection for other processes that have inherited the socket, too. A peer may send on and on.
    constexpr std::size_t kMost = std::size_t{64} << 20;
    std::array<char, 16384> unread;
    ssize_t part = 1;
    for (std::size_t all = 0; part > 0 && all < kMost; all += unread.size()) {
      part = ::recv(socket_, unread.data(), unread.size(), MSG_DONTWAIT);
    }
  }
  ::close(socket_);
}

std::pair<std::unique_ptr<qcCommunicator>, std::unique_ptr<qcCommunicator>> qcCommunicator::loopback() {
  std::unique_ptr<qcCommunicator> first(new qcCommunicator), second(new qcCommunicator);
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) throw qcTcpip::AccessFailed();
  first->socket_ = ends[0];
  second->socket_ = ends[1];
  for (auto* end : {first.get(), second.get()}) end->link_ = std::make_shared<qc_Link>(*end);
  return {std::move(first), std::move(second)};
}

qcCommunicator::Ready qcCommunicator::waitFor(bool sending, bool receiving, const qcDeadline& deadline) const {
  const int come = pollUntil(socket_, static_cast<short>((sending ? POLLOUT : 0) | (receiving ? POLLIN : 0)), deadline);
  const bool isWrong = (come & (POLLHUP | POLLERR | POLLNVAL)) != 0;
  return {sending && (isWrong || (come & POLLOUT) != 0), receiving && (isWrong || (come & POLLIN) != 0)};
}

std::size_t qcCommunicator::sendNow(const char* data, std::size_t count) {
  for (;;) {
    const ssize_t sent = ::send(socket_, data, count, MSG_NOSIGNAL);
    if (sent > 0) {
      hasSent_ = true;
      return static_cast<std::size_t>(sent);
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
    if (errno != EINTR) throw qcTcpip::ConnectionBroken();
  }
}

std::size_t qcCommunicator::receiveNow(char* data, std::size_t count) {
  for (;;) {
    const ssize_t received = ::recv(socket_, data, count, 0);
    if (received > 0) return static_cast<std::size_t>(received);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
    if (received == 0 || errno != EINTR) throw qcTcpip::ConnectionBroken();
  }
}

bool qcCommunicator::isConnected() const { return !waitUntilDisconnected(0); }

bool qcCommunicator::waitUntilDisconnected(double seconds) const {
  if (!(seconds > 0)) {  // asks, whatever limits there are
    pollfd ask{socket_, kGone, 0};
    return ::poll(&ask, 1, 0) > 0 && (ask.revents & kGone) != 0;
  }
  return (pollUntil(socket_, kGone, qcDeadline(seconds)) & kGone) != 0;
}

void qcCommunicator::finishSending() { ::shutdown(socket_, SHUT_WR); }

#endif

void qcCommunicator::send(const char* data, std::size_t count, const qcDeadline& deadline) {
  for (std::size_t sent = 0; sent < count;) {
    const std::size_t part = sendNow(data + sent, count - sent);
    if (part == 0 && !waitFor(true, false, deadline).canSend) throw qcTcpip::Timeout();
    sent += part;
  }
}

void qcCommunicator::receive(char* data, std::size_t count, const qcDeadline& deadline) {
  for (std::size_t received = 0; received < count;) {
    const std::size_t part = receiveNow(data + received, count - received);
    if (part == 0 && !waitFor(false, true, deadline).canReceive) throw qcTcpip::Timeout();
    received += part;
  }
}

bool qcCommunicator::serve(double seconds) {
  const auto link = link_;  // this may go while an answer is under way
  return link->serve(qcDeadline(seconds));
}

void qcCommunicator::timeOut(double seconds) noexcept { link_->timeOut = seconds; }
double qcCommunicator::timeOut() const noexcept { return link_->timeOut; }
void qcCommunicator::peerStorage(qcUInt64 bytes) noexcept { link_->peerStorage = bytes; }
qcUInt64 qcCommunicator::peerStorage() const noexcept { return link_->peerStorage; }
