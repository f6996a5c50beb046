// Roots that a pool keeps.
#pragma once

#include <cstddef>
#include <typeinfo>

#include "vnxstd/archive/handle.h"
#include "vnxstd/pelbuf/root.h"
#include "vnxstd/pelbuf/rootpool.h"

class qc_PelRootPool;

/// A pixel root, and before it what its pool knows about it. The root is out, counted by handles, or idle, on the list
/// of its lane. When the last handle lets go of it, deleting it gives it back.
class qc_SlottedPelRoot {
 public:
  virtual ~qc_SlottedPelRoot();
  qc_SlottedPelRoot(const qc_SlottedPelRoot&) = delete;
  qc_SlottedPelRoot& operator=(const qc_SlottedPelRoot&) = delete;

  /// How many bytes a pel takes; 0 for a type of which pools keep no roots.
  static unsigned pelSize(const std::type_info& type) noexcept;
  /// A root over somebody's memory, of a type that has a size.
  static qc_SlottedPelRoot* make(const std::type_info& type, long width, long height, long rowUpdate, void* pels);

  static qc_SlottedPelRoot& of(qc_PelRoot& root) noexcept { return *root.package_; }
  virtual qc_PelRoot& root() noexcept = 0;
  /// False when an image was loaded into the root meanwhile, so that its pels lie in memory of its own.
  bool isIntact() noexcept { return root().storage_.block == nullptr; }

  /// The root has no owners any more.
  void giveBack() noexcept;

  qcPtrHandle<qc_PelRootPool> home;  // lives as long as any of its roots
  std::size_t lane = 0;
  qc_SlottedPelRoot* newer = nullptr;  // neighbours on the idle list
  qc_SlottedPelRoot* older = nullptr;
  qcBasicPelRootPool::BasicSlot slot;  // in a basic pool
  std::size_t array = 0;               // in a discrete pool

 protected:
  qc_SlottedPelRoot() noexcept = default;
  void attach(qc_PelRoot& root) noexcept { root.package_ = this; }
};
