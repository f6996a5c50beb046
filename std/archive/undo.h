// Taking apart the objects of a load that failed.
#pragma once

#include <cstdint>
#include <span>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/persistent.h"

/// One object that a load has made.
struct qc_LoadedObject {
  qcPersistent* object;   // null once it is destroyed
  const qcRepBase* rep;   // its count, one higher while the load lasts; null when it is not counted
  std::int32_t id;        // under which the archive knows it, 0 when nothing can refer to it
  bool complete = false;  // its body is loaded
  bool dropped = false;   // handles have had it, and have all let go of it

  /// Its count again, to be looked up by address.
  struct Count {
    const qcRepBase* rep;
    bool gone;
  };
};

/// While one of these lives, handles on this thread let go of destroyed objects without touching them.
class qc_LoadUndo {
 public:
  /// Puts `counts` in order of address.
  explicit qc_LoadUndo(std::span<qc_LoadedObject::Count> counts) noexcept;
  ~qc_LoadUndo();
  qc_LoadUndo(const qc_LoadUndo&) = delete;
  qc_LoadUndo& operator=(const qc_LoadUndo&) = delete;

  void markGone(const qcRepBase* rep) noexcept;
  static bool isGone(const qcRepBase* rep) noexcept;

 private:
  qc_LoadedObject::Count* find(const qcRepBase* rep) const noexcept;

  std::span<qc_LoadedObject::Count> counts_;
  qc_LoadUndo* outer_;
};
