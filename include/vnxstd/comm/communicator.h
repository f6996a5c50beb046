// A connection to another process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"
#include "vnxstd/sync/sync.h"

class qcTransferArchive;

/// A connected stream socket, local or TCP. Bytes go both ways; one thread may send while another one receives.
///
/// Waits end with qcTcpip::Timeout at their deadline, with qcTimeout::Expired or Cancel when a time limit on the thread
/// ends them first, and with qcTcpip::ConnectionBroken when the peer has gone; a signal that interrupts them changes
/// nothing, and writing to a peer that has gone raises none. Where the platform has no such sockets everything throws
/// qcTcpip::NotSupported.
class VNXSTD_EXPORT qcCommunicator {
 public:
  /// Takes over a connected socket, also when this throws. Throws qcTcpip::AccessFailed when it is no stream socket, or
  /// not connected: one that listens, or whose connection is still being made or was reset.
  explicit qcCommunicator(int socket);
  /// Ends the connection.
  ~qcCommunicator();
  qcCommunicator(const qcCommunicator&) = delete;
  qcCommunicator& operator=(const qcCommunicator&) = delete;

  /// Two ends of a new local connection.
  static std::pair<std::unique_ptr<qcCommunicator>, std::unique_ptr<qcCommunicator>> loopback();

  /// Sends all bytes.
  void send(const char* data, std::size_t count, const qcDeadline& deadline);
  /// Receives exactly this many bytes.
  void receive(char* data, std::size_t count, const qcDeadline& deadline);

  /// Whether the peer has its end open. A peer that has finished sending counts as gone, since over TCP nobody can tell
  /// whether it still reads: what it sent before can be received, and sending works until it really goes.
  bool isConnected() const;
  /// Waits for the peer to go, this many seconds at most; whether it has. What is not above 0, or not a number, asks
  /// without waiting.
  bool waitUntilDisconnected(double seconds) const;
  /// Tells the peer that nothing more is coming; what it sends can still be received.
  void finishSending();

  /// An archive that stores to or loads from the peer. A loading one waits for the header that the peer's archive sends
  /// with its first message. There may be one of each direction at a time; the communicator must outlive them.
  std::unique_ptr<qcTransferArchive> archive(qcArchive::Direction direction, double timeOutSeconds = 30,
                                             qcArchive::Ordering ordering = qcArchive::littleEndian);

 private:
  qcCommunicator() = default;
  void waitFor(short events, const qcDeadline& deadline) const;

  int socket_ = -1;
};
