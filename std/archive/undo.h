// Taking apart the objects of a load that failed.
#pragma once

#include <span>

#include "vnxstd/archive/handle.h"

/// While one of these lives, handles on this thread let go of destroyed objects without touching them. Nothing
/// that they let go of waits until it is over.
class qc_LoadUndo {
 public:
  /// The count of one of the objects; null for an object without one.
  struct Count {
    const qcRepBase* rep;
    bool gone;  // the object is destroyed
  };

  /// Puts `counts` in order of address.
  explicit qc_LoadUndo(std::span<Count> counts) noexcept;
  ~qc_LoadUndo();
  qc_LoadUndo(const qc_LoadUndo&) = delete;
  qc_LoadUndo& operator=(const qc_LoadUndo&) = delete;

  void markGone(const qcRepBase* rep) noexcept;
  static bool isGone(const qcRepBase* rep) noexcept;

 private:
  Count* find(const qcRepBase* rep) const noexcept;

  std::span<Count> counts_;
  qc_LoadUndo* outer_;
  int depth_;  // what deletions were under way
  const qcRepBase* waiting_;
};
