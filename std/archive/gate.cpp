#include "std/archive/gate.h"

#include <algorithm>
#include <limits>

#include "std/archive/areas.h"
#include "std/archive/format.h"

void qc_Gate::check(qcUInt64 bytes) const {
  const qcUInt64 left = left_ - static_cast<qcUInt64>(gptr() - eback());
  if (bytes > left) refuse(archive_, qcLoadContext::Limit::bytes, archive_.limits().bytes, bytes - left);
}

void qc_Gate::refuse(const qcArchive& archive, qcLoadContext::Limit limit, qcInt64 allowed, qcUInt64 beyond) {
  using namespace qc_format;
  qcArchive::BadContent error(kArchiveSource, limit == qcLoadContext::Limit::nesting ? kNestingLine : kLimitLine);
  const auto most = static_cast<qcUInt64>(std::max<qcInt64>(allowed, 0));
  const qcUInt64 found = most + std::min(beyond, std::numeric_limits<qcUInt64>::max() - most);
  archive.explain(error, "at most " + std::to_string(most), std::to_string(found), limit);
  throw error;
}

void qc_Gate::skip(qcUInt64 bytes) {
  settle();
  check(bytes);
  left_ -= bytes;
}

void qc_Gate::settle() noexcept {
  const auto used = static_cast<std::size_t>(gptr() - eback());
  qc_Areas::skipRead(medium_, used);
  left_ -= used;
  setg(nullptr, nullptr, nullptr);
}

// Shows what the medium has read ahead. Nothing is shown yet.
void qc_Gate::show() noexcept {
  if (watched_) return;
  auto* const next = const_cast<char*>(qc_Areas::getNext(medium_));
  const auto size = static_cast<std::size_t>(std::min<qcUInt64>(qc_Areas::readable(medium_), left_));
  setg(next, next, next + size);
}

qc_Gate::int_type qc_Gate::underflow() {
  settle();
  const int_type next = medium_.sgetc();
  if (!traits_type::eq_int_type(next, traits_type::eof())) check(1);
  show();
  return next;
}

qc_Gate::int_type qc_Gate::uflow() {
  char c = 0;
  return xsgetn(&c, 1) == 1 ? traits_type::to_int_type(c) : traits_type::eof();
}

std::streamsize qc_Gate::xsgetn(char* to, std::streamsize count) {
  settle();
  const auto wanted = static_cast<qcUInt64>(std::max<std::streamsize>(count, 0));
  const std::size_t allowed = static_cast<std::size_t>(std::min(wanted, left_));
  const std::size_t got = qc_Areas::read(medium_, to, allowed);
  left_ -= got;
  if (got == allowed) check(wanted - got);
  show();
  return static_cast<std::streamsize>(got);
}

qc_Gate::int_type qc_Gate::overflow(int_type c) {
  settle();
  return traits_type::eq_int_type(c, traits_type::eof()) ? c : medium_.sputc(traits_type::to_char_type(c));
}

std::streamsize qc_Gate::xsputn(const char* from, std::streamsize count) {
  settle();
  return medium_.sputn(from, count);
}

int qc_Gate::sync() {
  settle();
  return medium_.pubsync();
}

qc_Gate::pos_type qc_Gate::seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) {
  settle();
  return medium_.pubseekoff(offset, from, which);
}

qc_Gate::pos_type qc_Gate::seekpos(pos_type position, std::ios_base::openmode which) {
  settle();
  return medium_.pubseekpos(position, which);
}
