// Reading beside what an archive does, for what has to be known of its records.
#pragma once

#include "std/archive/chain.h"
#include "std/archive/gate.h"

// Reads the medium itself while it lives: what has to be known before storing counts for no limit of loading.
class qc_RecordChain::Ungated {
 public:
  explicit Ungated(qcArchive& archive) noexcept : archive_(archive), gate_(archive.buffer_) {
    archive.settle();
    if (archive.gate_) archive.buffer_ = &archive.gate_->medium();
  }
  ~Ungated() { archive_.buffer_ = gate_; }
  Ungated(const Ungated&) = delete;
  Ungated& operator=(const Ungated&) = delete;

 private:
  qcArchive& archive_;
  std::streambuf* gate_;
};

// Reads something, wherever the archive is and whatever it does.
template <class Read>
auto qc_RecordChain::readAside(Read read) {
  const std::streamoff here = archive_.offset();
  const auto direction = archive_.direction_;
  archive_.mode(qcArchive::loading);
  decltype(read()) result;
  try {
    result = read();
  } catch (...) {
    archive_.direction_ = direction;
    archive_.seekTo(here);
    throw;
  }
  archive_.seekTo(here);
  archive_.mode(direction);
  return result;
}
