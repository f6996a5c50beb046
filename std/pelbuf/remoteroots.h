// Roots that are known on both sides of a communicator.
//
// A root that is stored to a transfer archive is lent: the peer knows it by a number, and it lives at least until the
// peer has let go of it as often as it was stored, or the connection ends. The peer has a proxy of it, one while that
// lives, which is a root without pels that asks for them. What a peer names is looked up among what was lent to it over
// this very connection.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "std/comm/link.h"
#include "vnxstd/pelbuf/root.h"

class qcTransferArchive;

/// Stores a root, which may be null, by reference, or loads one for a buffer of this type into the handle.
void qf_TransferPelRoot(qcTransferArchive& archive, qcPtrHandle<qc_PelRoot>& root, qePelType type);

/// The proxy of a root of the peer's, which the peer has counted for this side once more. Throws
/// qcRemoteObject::ObjectMismatch when the root was of another size before, qcArchive::BadType when it is not known yet
/// and `type` is Any.
qcPtrHandle<qc_PelRoot> qf_GetRemotePelRoot(const std::shared_ptr<qc_Link>& link, std::uint32_t identity, long width,
                                            long height, qePelType type);
/// A new proxy, counted once, is known from now on.
void qf_AddRemotePelRoot(qc_PelRoot& proxy);
/// A proxy is being destroyed: the peer is told.
void qf_RemoveRemotePelRoot(qc_PelRoot& proxy) noexcept;

/// Tells the peer that this side counts a root of the peer's more or less often.
void qf_RPCPelRootChangeRefCount(qc_Link& link, std::uint32_t identity, std::int32_t change);
/// Lets the peer make a root, counted once; returns its number.
std::uint32_t qf_RPCPelRootMake(qc_Link& link, qePelType type, long width, long height, long alignModulus);
/// Copies pels where not both roots, of one type, live here. The rectangles lie inside them.
void qf_RPCPelRootCopy(const qc_PelRoot& from, const qcPelRect& rectangle, qc_PelRoot& to, const qcPair<long>& at);

/// The roots that are known over one connection. Safe from several threads.
class qc_RemotePelRoots : public qc_CallService {
 public:
  explicit qc_RemotePelRoots(qc_Link& link) noexcept : link_(link) {}

  /// Those of a connection. Throws qcTcpip::ConnectionBroken once it has ended and nobody uses them any more.
  static std::shared_ptr<qc_RemotePelRoots> of(qc_Link& link);

  /// Counts once more that the peer has a root of this side; returns its number.
  std::uint32_t lend(qc_PelRoot& root);
  /// A root of this side that the peer has sent back, with one of its counts. Throws qcArchive::NotFound.
  qcPtrHandle<qc_PelRoot> takeBack(std::uint32_t identity);
  /// Counts a root of this side more or less often; nothing happens when the peer does not have it.
  void changeCount(std::uint32_t identity, std::int32_t change);

  qcPtrHandle<qc_PelRoot> proxy(const std::shared_ptr<qc_Link>& link, std::uint32_t identity, long width, long height,
                                qePelType type);
  void add(qc_PelRoot& proxy);
  /// Returns how often the proxy was counted.
  std::int32_t remove(const qc_PelRoot& proxy) noexcept;

  void answer(qcArchive& call, qcArchive& reply) override;
  void notice(qcArchive& call) override;
  void undo(qcArchive& reply) override;

  // What only this class may do with roots.
  static qc_Link& linkOf(const qc_PelRoot& proxy) { return *proxy.link(); }
  static void transferPels(qc_PelRoot& root, qcArchive& archive, const qcPelRect& rectangle) {
    root.transferPels(archive, rectangle);
  }
  /// A root that lives here, with pels of 0.
  static qcPtrHandle<qc_PelRoot> makeLocal(qePelType type, long width, long height, long alignModulus);

 private:
  struct Lent {
    qcPtrHandle<qc_PelRoot> root;
    std::int64_t count = 0;
    qcUInt64 bytes = 0;  // of a root that the peer has made
  };

  std::uint32_t enter(qc_PelRoot& root, qcUInt64 bytes);
  qcPtrHandle<qc_PelRoot> find(std::uint32_t identity);
  void readChange(qcArchive& call);
  std::uint32_t makeForPeer(qePelType type, long width, long height, long alignModulus);
  void answerPels(bool isWritten, qcArchive& call, qcArchive& reply);

  qc_Link& link_;
  std::mutex mutex_;
  std::map<std::uint32_t, Lent> lent_;
  std::unordered_map<const qc_PelRoot*, std::uint32_t> numbers_;  // of lent roots
  std::uint32_t lastNumber_ = 0;
  qcUInt64 madeBytes_ = 0;
  std::unordered_map<std::uint32_t, qc_PelRoot*> proxies_;
};
