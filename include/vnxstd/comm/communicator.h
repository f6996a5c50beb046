// A connection to another process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/widths.h"
#include "vnxstd/export.h"
#include "vnxstd/sync/sync.h"

class qcTransferArchive;
/// The frames that cross, and the calls of the two sides; for the library itself.
class qc_Link;

/// A connected stream socket, local or TCP. Bytes go both ways; one thread may send while another one receives. What
/// archives and calls send are frames: plain bytes must not be sent or received while there are archives, or images of
/// the other side.
///
/// Images that cross by reference stay where they are (pelbuf/buffer.h). Their pels are asked for by calls, which the
/// other side answers while one of its threads serves, loads a message or waits for an answer itself. That side gives
/// the peer what it has stored to it by reference, to read and to write, and nothing else. A thread that waits for the
/// peer to take what it sends reads meanwhile what comes, so that both sides can send at once.
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
  /// Ends the connection, and the waits of other threads that serve it or use images of the peer, within some 10 ms,
  /// but after an answer under way; none may be in another operation, or be making an image on it. Images that were
  /// lent to the peer are let go of; the peer's throw qcTcpip::ConnectionBroken from now on. What was sent gets there,
  /// over TCP unless the peer itself sends something afterwards (qcTransferArchive::flush); what has come unread is
  /// discarded. A process forked from the one that made it discards nothing; if it is to go on with the connection, the
  /// maker must let go last.
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
  /// Tells the peer that nothing more is coming; what it sends can still be received. No calls are answered from now
  /// on: images that were lent to the peer cannot be read any more. Who sends images lets the reader finish first,
  /// after an end of its own, such as a null handle, since loads throw ConnectionBroken after an orderly end, too.
  void finishSending();

  /// Answers the calls of the peer for so many seconds; whether the peer has gone meanwhile. Messages that come are set
  /// aside for the archive that loads them, 64 MiB at most: then nothing is answered until some are loaded. Any number
  /// of threads may serve. An answer for which another side has to be asked takes at most the time that a call there
  /// may take. A call that fails is answered with an error, which is an object: both sides store and load it when no
  /// other thread of the process is in the middle of one, however long that takes. A thread that waits wakes every
  /// 10 ms, to send what another one has left, which takes 0.1 % of a core.
  bool serve(double seconds);
  /// Seconds that a call may take, 30 unless set; beyond it qcTcpip::Timeout is thrown. As those of an archive.
  void timeOut(double seconds) noexcept;
  double timeOut() const noexcept;
  /// How many bytes the pels of all images may take that the peer makes here, 0 unless set: beyond it the peer gets
  /// qcTcpip::AccessFailed. An image counts for 1 KiB at least.
  void peerStorage(qcUInt64 bytes) noexcept;
  qcUInt64 peerStorage() const noexcept;

  /// An archive that stores to or loads from the peer. A loading one waits for the header that the peer's archive sends
  /// with its first message. One of each direction at a time, for whole messages (transfer.h); this must outlive it.
  std::unique_ptr<qcTransferArchive> archive(qcArchive::Direction direction, double timeOutSeconds = 30,
                                             qcArchive::Ordering ordering = qcArchive::littleEndian);

  const std::shared_ptr<qc_Link>& link() const noexcept { return link_; }

 private:
  friend class qc_Link;
  qcCommunicator() noexcept;
  /// As many bytes as can be without waiting, 0 when none can.
  std::size_t sendNow(const char* data, std::size_t count);
  std::size_t receiveNow(char* data, std::size_t count);
  struct Ready {
    bool canSend = false, canReceive = false;
  };
  /// Waits until one of what is asked for can be done; neither at the deadline. What has gone wrong can be done, and
  /// throws then.
  Ready waitFor(bool sending, bool receiving, const qcDeadline& deadline) const;

  int socket_ = -1;
  bool isTcp_ = false, hasSent_ = false;
  long process_ = 0;  // that made it
  std::shared_ptr<qc_Link> link_;
};
