// Archives that cross to another process.
#pragma once

#include <memory>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"

class qcCommunicator;
/// The stream buffer of a transfer archive.
class qc_StreamBufferWithTimeout;

/// An archive whose bytes go to another process, or come from it. What is stored between two flushes is a message,
/// which stands alone: an object that is stored again in a later one is stored in full, and is another object for the
/// reader, while an image that goes by reference stays the same.
///
/// The time that is spent waiting within one message, for the peer to send it or to take it, is at most timeOut();
/// beyond it qcTcpip::Timeout is thrown, and qcTcpip::ConnectionBroken when the peer has gone. A message that was
/// broken off so cannot be taken up again: from then on everything throws ConnectionBroken. Waiting in vain for a
/// message to begin breaks nothing off. A load that fails for another reason leaves the rest of its message, which
/// nextMessage skips. Where the message ends within an object, a vector or an image, whose store has failed there,
/// the load throws Eof, or BadBuffer within a text, and the next message is untouched; so flush after a store
/// that failed, before storing on. Other values see qcArchiveCompound. An archive that goes before its message is
/// loaded leaves the rest for the next one, which makes no sense there: nextMessage first. docs/archive-format.md gives
/// the bytes of messages. For one thread at a time. An object is stored and loaded under the persistence lock. While it
/// is stored nothing is sent, which takes memory for its bytes; so nobody who waits for the peer to take something
/// keeps others from storing or loading. But while a peer stalls in the middle of an object that is being loaded, no
/// other thread of the process does either.
class VNXSTD_EXPORT qcTransferArchive : public qcArchive {
 public:
  /// What is stored and not yet flushed is sent; a failure to do so is lost here.
  ~qcTransferArchive() override;

  /// Seconds of waiting within a message. What is not above 0, or not a number, does not wait; more than ten years is
  /// for ever.
  void timeOut(double seconds) noexcept;
  double timeOut() const noexcept;

  /// Sends what was stored, and ends the message, but not within a vector or an image that is being stored. Within an
  /// object it does nothing.
  /// Over TCP that can still be lost, when the communicator goes before the peer has loaded it and the peer then sends
  /// something, as it does when it lets go of an image. To be sure, finish sending, and serve until the peer has gone,
  /// before the communicator goes; with images that were lent, not before the peer has copied them and said so.
  void flush();
  /// The same as flush.
  void sync() override { flush(); }
  /// Goes to the end of the message that is being loaded, if any. The peer's images in what is skipped, here or behind
  /// a load that failed, are never told of: the peer keeps them until the connection ends. Images that a reader may
  /// want to skip are best sent in messages of their own, when it has asked for them.
  void nextMessage();

  bool isConnected() const;
  /// Waits for the peer to go, this many seconds at most; whether it has.
  bool waitUntilDisconnected(double seconds) const;
  qcCommunicator& connectedTo() const noexcept { return communicator_; }

 protected:
  void beforeObject() override;

 private:
  friend class qcCommunicator;
  friend class qc_StreamBufferWithTimeout;
  qcTransferArchive(std::unique_ptr<qc_StreamBufferWithTimeout> stream, Direction direction, Ordering ordering,
                    qcCommunicator& communicator);

  std::unique_ptr<qc_StreamBufferWithTimeout> stream_;
  qcCommunicator& communicator_;
};
