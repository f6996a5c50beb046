#include "vnxstd/archive/archive.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <ostream>

#include "std/archive/areas.h"
#include "std/archive/byteswap.h"
#include "std/archive/format.h"
#include "std/archive/gate.h"
#include "std/archive/index.h"
#include "std/archive/observed.h"
#include "vnxstd/archive/text.h"

using namespace qc_format;

namespace {

const qc_ErrorRegistration<qcArchive::Errors, qcArchive::Eof, qcArchive::BadBuffer, qcArchive::BadType,
                           qcArchive::BadContent, qcArchive::NotFound, qcArchive::Duplicate, qcArchive::UnknownType,
                           qcArchive::UnknownVersion, qcArchive::BadFile, qcArchive::UnknownArchiveVersion,
                           qcArchive::CannotWriteToOldArchive, qcArchive::NotSeekable>
    errorsRegistered;

constexpr bool kNativeIsLittle = std::endian::native == std::endian::little;
static_assert(kNativeIsLittle || std::endian::native == std::endian::big);
static_assert(sizeof(int) == 4 && sizeof(short) == 2 && sizeof(float) == 4 && sizeof(double) == 8);

constexpr qcUInt64 kMostBytes = std::numeric_limits<qcUInt64>::max();
constexpr std::size_t kStaging = 4096;  // bytes that are swapped at a time where the medium's own area is too small

}  // namespace

// Errors.

qcArchive::Errors::Errors(const char* file, int line) : file_(qf_WidenLossy(file ? file : "")), line_(line) {}

qcArchive::Errors::Errors(const wchar_t* file, int line) : file_(file ? file : L""), line_(line) {}

void qcArchive::Errors::dispatchSerialize(qcArchive& archive) { serializeLevel(archive, this, 0, &Errors::serialize_); }

void qcArchive::Errors::serialize_(qcArchive& archive, unsigned char version) {
  checkVersion(archive, version, 0, kArchiveSource, kErrorsVersionLine);
  qcException::dispatchSerialize(archive);
  auto line = static_cast<std::uint32_t>(line_);
  archive || file_ || line;
  if (archive.isLoading()) line_ = static_cast<std::int32_t>(line);
}

void qcArchive::Errors::message_(std::wostream& out) const {
  if (file_.empty()) {
    qcException::message_(out);
  } else if (line_ != 0) {
    out << L"thrown from file: " << file_ << L", line: " << line_;
  } else {
    out << file_;
  }
}

qcArchive::UnknownType::UnknownType(const char* name, const char* file, int line)
    : qc_ErrorLeaf(file, line), name_(name ? name : "") {}

void qcArchive::UnknownType::archiveFields(qcArchive& archive) { archive || name_; }

void qcArchive::UnknownType::message_(std::wostream& out) const {
  out << qf_WidenLossy(name_);
  if (!file().empty()) out << L"; thrown from file: " << file() << L", line: " << line();
}

void qcArchive::checkVersion(unsigned char version, unsigned char newest, const char* file, int line) {
  if (version > newest) throw UnknownVersion(file, line);
}

void qcArchive::checkVersion(const qcArchive& archive, unsigned char version, unsigned char newest, const char* file,
                             int line) {
  if (version <= newest) return;
  throw archive.located(UnknownVersion(file, line), "a version up to " + std::to_string(newest),
                        std::to_string(version));
}

// Making, header, direction.

qcArchive::qcArchive(std::streambuf* buffer, Direction direction, Ordering ordering, bool seekable, bool readOnly)
    : buffer_(buffer),
      readOnly_(readOnly && direction == loading),
      direction_(direction),
      ordering_(ordering == littleEndian ? littleEndian : bigEndian),
      swapBytes_((ordering == littleEndian) != kNativeIsLittle),
      seekable_(seekable),
      index_(std::make_unique<qc_ArchiveIndex>(*this)) {}

qcArchive::~qcArchive() = default;

void qcArchive::ctorFinished() {
  version_ = kVersion;
  if (seekable_ && offset() > 0) throw NotSeekable(kArchiveSource, kSeekLine);
  if (isStoring()) {
    unsigned char head[2] = {static_cast<unsigned char>((seekable_ ? kSeekableFlag : 0) | (kVersion << kVersionShift)),
                             static_cast<unsigned char>(ordering_)};
    qf_WriteBytes(*buffer_, head, sizeof head, kWriteRawLine);
    if (seekable_) index_->chain().start();
    return;
  }
  explained([this] {
    readHeader();
    if (seekable_) index_->chain().open();
  });
}

void qcArchive::readHeader() {
  unsigned char head = 0, order = 0;
  *this || head;
  if (((head & kSeekableFlag) != 0) != seekable_) {
    const char* const kinds[] = {"a plain archive", "a seekable archive"};
    throw located(BadType(kArchiveSource, kSeekableFlagLine), kinds[seekable_ ? 1 : 0], kinds[seekable_ ? 0 : 1]);
  }
  const auto version = static_cast<unsigned char>(head >> kVersionShift);
  if (version > kVersion) {
    throw located(UnknownArchiveVersion(kArchiveSource, kArchiveVersionLine), "a version up to 1",
                  std::to_string(version));
  }
  version_ = version;
  *this || order;
  if (order > 1) {
    throw located(BadBuffer(kArchiveSource, kOrderingLine), "an ordering of 0 or 1", std::to_string(order));
  }
  ordering_ = static_cast<Ordering>(order);
  swapBytes_ = (ordering_ == littleEndian) != kNativeIsLittle;
}

void qcArchive::dtorStarting() noexcept {
  settle();
  try {
    if (isStoring()) buffer_->pubsync();
  } catch (...) {  // a destructor has nobody to tell; sync and close do
  }
  index_->letGo();
}

qcArchiveCompound::qcArchiveCompound(qcArchive& archive) noexcept : archive_(archive) { ++archive_.compounds_; }

qcArchiveCompound::~qcArchiveCompound() { --archive_.compounds_; }

void qcArchive::mode(Direction direction) {
  if (!seekable_) throw NotSeekable(kArchiveSource, kModeLine);
  if (direction == storing && readOnly_) throw BadBuffer(kArchiveSource, kReadOnlyLine);
  const std::streamoff position = offset();
  highWater_ = std::max(highWater_, position);
  if (direction == direction_) return;
  if (isStoring()) {
    flush();
  } else {
    explained([this] { index_->numberBehindData(); });
  }
  const Direction before = std::exchange(direction_, direction);
  try {
    seekTo(position);
    if (isStoring()) index_->chain().keepBehind(position);
  } catch (...) {
    direction_ = before;
    throw;
  }
}

void qcArchive::append() {
  if (!seekable_) throw NotSeekable(kArchiveSource, kAppendLine);
  const std::streamoff unfinished = index_->chain().unfinished();
  mode(storing);
  index_->chain().cutUnfinished(unfinished);
  seekTo(std::max(highWater_, endOffset()));
}

void qcArchive::wideSizes(bool wide) noexcept { index_->wideSizes(wide); }

bool qcArchive::isStillLoading(const qcPersistent* object) const noexcept { return index_->isStillLoading(object); }
void qcArchive::checkDepth() const { index_->checkDepth(); }

// Limits and observers.

void qcArchive::observer(qcArchiveObserver* observer) {
  if (observer) openGate();
  if (gate_) gate_->watched(observer != nullptr);
  observer_ = observer;
}

void qcArchive::limits(qcArchiveLimits limits) {
  const auto atLeast = [](qcInt64 limit) { return static_cast<qcUInt64>(std::max<qcInt64>(limit, 0)); };
  if (limits.bytes != qcArchiveLimits::kUnlimited) openGate();
  if (gate_) gate_->limit(atLeast(limits.bytes));
  limits.nesting = std::max(limits.nesting, 1L);
  objectsLeft_ = atLeast(limits.objects);
  elementsLeft_ = atLeast(limits.elements);
  limits_ = std::move(limits);
  index_->forgetNames();
}

// Puts a gate before the medium. It stays, since it costs little.
void qcArchive::openGate() {
  if (gate_) return;
  gate_ = std::make_unique<qc_Gate>(*this, *buffer_);
  gate_->limit(qcArchiveLimits::kUnlimited);
  buffer_ = gate_.get();
}

void qcArchive::settle() noexcept {
  if (gate_) gate_->settle();
}

void qcArchive::checkCount(qcUInt64 count, std::size_t bytesEach) {
  if (count > elementsLeft_)
    qc_Gate::refuse(*this, qcLoadContext::Limit::elements, limits_.elements, count - elementsLeft_);
  if (bytesEach != 0) gate_->check(count > kMostBytes / bytesEach ? kMostBytes : count * bytesEach);
}

// One more than is allowed.
void qcArchive::refuse(qcLoadContext::Limit limit, qcInt64 allowed) const { qc_Gate::refuse(*this, limit, allowed, 1); }

void qcArchive::sync() { flush(); }

bool qcArchive::truncate(std::streamoff) { return false; }

void qcArchive::flush() {
  if (buffer_->pubsync() == -1) throw BadBuffer(kArchiveSource, kSyncLine);
}

// Positions.

std::ios_base::openmode qcArchive::side() const noexcept {
  return isLoading() ? std::ios_base::in : std::ios_base::out;
}

// A seekable archive needs its positions: where one cannot be told, nothing must be decided or written by it.
std::streamoff qcArchive::offset() {
  const std::streamoff here = buffer_->pubseekoff(0, std::ios_base::cur, side());
  if (here < 0 && seekable_) throw BadBuffer(kArchiveSource, kSeekLine);
  return here;
}

std::streamoff qcArchive::endOffset() {
  const std::streamoff here = offset();
  const std::streamoff end = buffer_->pubseekoff(0, std::ios_base::end, side());
  if (here >= 0 && buffer_->pubseekoff(here, std::ios_base::beg, side()) == std::streampos(here) && end >= 0)
    return end;
  if (seekable_) throw BadBuffer(kArchiveSource, kSeekLine);
  return -1;
}

void qcArchive::seekTo(std::streamoff position) {
  if (position < 0 || buffer_->pubseekoff(position, std::ios_base::beg, side()) != std::streampos(position)) {
    throw BadBuffer(kArchiveSource, kSeekLine);
  }
}

qcArchive::Position qcArchive::tell() { return Position(offset()); }

void qcArchive::seek(Position position) {
  if (!seekable_) throw NotSeekable(kArchiveSource, kSeekLine);
  const auto target = static_cast<std::streamoff>(position);
  // A target beyond the end would leave bytes that nobody wrote.
  if (target < 0 || target > std::max(highWater_, endOffset())) throw BadBuffer(kArchiveSource, kSeekLine);
  highWater_ = isStoring() ? std::max(highWater_, offset()) : highWater_;
  seekTo(target);
  if (isStoring()) index_->chain().keepBehind(target);
}

void qcArchive::seek(long offset, int origin) {
  if (!seekable_) throw NotSeekable(kArchiveSource, kSeekLine);
  if (origin < 0 || origin > 2) throw BadBuffer(kArchiveSource, kSeekLine);
  const std::streamoff base = origin == 0 ? 0 : origin == 1 ? this->offset() : std::max(highWater_, endOffset());
  constexpr std::streamoff kFarthest = std::numeric_limits<std::streamoff>::max();
  if (base < 0 || (offset > 0 && base > kFarthest - offset)) throw BadBuffer(kArchiveSource, kSeekLine);
  seek(Position(base + offset));
}

qcInt64 qcArchive::remaining() {
  if (isStoring()) return -1;
  const std::streamoff here = offset();
  const std::streamoff end = endOffset();
  return here < 0 || end < here ? -1 : end - here;
}

void qcArchive::reserve8() { fill(1); }
void qcArchive::reserve16() { fill(2); }
void qcArchive::reserve32() { fill(4); }
void qcArchive::reserve64() { fill(8); }

// What is there already stays; behind the end of the data there is nothing yet but zeros.
void qcArchive::fill(unsigned count) {
  char bytes[8] = {};
  std::streamoff kept = 0;
  if (const std::streamoff here = isStoring() && seekable_ ? offset() : -1; here >= 0) {
    kept = std::clamp<std::streamoff>(std::max(highWater_, endOffset()) - here, 0, count);
    if (kept != 0) seekTo(here + kept);
  }
  raw(bytes, static_cast<long>(count - kept));
}

// Places of errors.

void qcArchive::explain(qcException& error, std::string_view expected, std::string_view found,
                        qcLoadContext::Limit limit, std::streamoff readSince) const noexcept {
  if (error.loadContext_ || isStoring()) return;
  try {
    const auto context = std::make_shared<qcLoadContext>();
    const std::streamoff here = buffer_->pubseekoff(0, std::ios_base::cur, side());
    if (here >= readSince) context->position = here - readSince;
    context->path = index_->path();
    context->limit = limit;
    context->expected = expected;
    context->found = found;
    error.loadContext_ = context;
  } catch (...) {  // an error without a place is still the error
  }
}

// Bytes and numbers.

void qcArchive::readBeyondArea(void* data, std::size_t count, int line) {
  const std::size_t got = explained([&] { return qc_Areas::read(*buffer_, data, count); });
  if (got == count) return;
  Eof error(kArchiveSource, line);
  explain(error, std::to_string(count) + (count == 1 ? " byte" : " bytes"), std::to_string(got),
          qcLoadContext::Limit::none, static_cast<std::streamoff>(got));
  throw error;
}

void qcArchive::raw(char* data, long n) {
  if (n <= 0) return;
  const auto count = static_cast<std::size_t>(n);
  if (observed([&] { raw(data, n); },
               [&](auto& observer, auto span) { observer.numbers(span, unsignedInteger, 1, data, count); })) {
    return;
  }
  if (isLoading()) {
    qc_Areas::readAll(*this, data, count, kReadRawLine);
  } else {
    qf_WriteBytes(*buffer_, data, count, kWriteRawLine);
  }
}

// One number that the medium has to fetch, or that somebody is to be told of.
template <class Bits>
void qcArchive::fetch(Bits& bits, Number kind) {
  if (observed([&] { fetch(bits, kind); },
               [&](auto& observer, auto span) { observer.numbers(span, kind, sizeof bits, &bits, 1); })) {
    return;
  }
  qc_Areas::readAll(*this, &bits, sizeof bits, sizeof bits == 1 ? kReadByteLine : kReadWordLine);
  if constexpr (sizeof bits > 1) {
    if (swapBytes_) qf_Reverse(bits);
  }
}

// One number of N bytes, whose bits are those of `value`.
template <class Bits>
void qcArchive::number(Bits& bits, Number kind) {
  if (isLoading()) {
    if (qc_Areas::readable(*buffer_) < sizeof bits) return fetch(bits, kind);
    std::memcpy(&bits, qc_Areas::getNext(*buffer_), sizeof bits);
    qc_Areas::skipRead(*buffer_, sizeof bits);
    if constexpr (sizeof bits > 1) {
      if (swapBytes_) qf_Reverse(bits);
    }
  } else {
    Bits wire = bits;
    if constexpr (sizeof bits > 1) {
      if (swapBytes_) qf_Reverse(wire);
    }
    qf_WriteBytes(*buffer_, &wire, sizeof wire, sizeof bits == 1 ? kWriteByteLine : kWriteWordLine);
  }
}

template <class Bits, class T>
qcArchive& qcArchive::bitsOf(T& value) {
  static_assert(sizeof(Bits) == sizeof(T));
  auto bits = std::bit_cast<Bits>(value);
  number(bits, numberKind<T>());
  if (isLoading()) value = std::bit_cast<T>(bits);
  return *this;
}

qcArchive& operator||(qcArchive& archive, unsigned char& value) { return archive.bitsOf<std::uint8_t>(value); }
qcArchive& qcArchive::operator||(signed char& value) { return bitsOf<std::uint8_t>(value); }
qcArchive& qcArchive::operator||(char& value) { return bitsOf<std::uint8_t>(value); }
qcArchive& qcArchive::operator||(unsigned short& value) { return bitsOf<std::uint16_t>(value); }
qcArchive& qcArchive::operator||(short& value) { return bitsOf<std::uint16_t>(value); }
qcArchive& qcArchive::operator||(unsigned int& value) { return bitsOf<std::uint32_t>(value); }
qcArchive& qcArchive::operator||(int& value) { return bitsOf<std::uint32_t>(value); }
qcArchive& qcArchive::operator||(unsigned long long& value) { return bitsOf<std::uint64_t>(value); }
qcArchive& qcArchive::operator||(long long& value) { return bitsOf<std::uint64_t>(value); }
qcArchive& qcArchive::operator||(float& value) { return bitsOf<std::uint32_t>(value); }
qcArchive& qcArchive::operator||(double& value) { return bitsOf<std::uint64_t>(value); }

qcArchive& qcArchive::operator||(bool& value) {
  std::uint8_t byte = value ? 1 : 0;
  number(byte, boolean);
  if (isLoading()) value = byte != 0;
  return *this;
}

template <class Bits, class T>
qcArchive& qcArchive::checkedLong(T& value) {
  if (isStoring() && (value < std::numeric_limits<Bits>::min() || value > std::numeric_limits<Bits>::max())) {
    throw BadContent(kArchiveSource, kNumberTooWideLine);
  }
  auto bits = static_cast<Bits>(value);
  *this || bits;
  if (isLoading()) value = bits;
  return *this;
}

qcArchive& qcArchive::operator||(unsigned long& value) { return checkedLong<unsigned int>(value); }
qcArchive& qcArchive::operator||(long& value) { return checkedLong<int>(value); }

void qcArchive::words(void* data, std::size_t count, unsigned size, Number kind) {
  auto* bytes = static_cast<char*>(data);
  if (count > std::numeric_limits<std::size_t>::max() / size) throw BadContent(kArchiveSource, kNumberTooWideLine);
  if (observed([&] { words(data, count, size, kind); },
               [&](auto& observer, auto span) { observer.numbers(span, kind, size, data, count); })) {
    return;
  }
  if (!swapBytes_ || size == 1) {
    if (isLoading()) {
      qc_Areas::readAll(*this, bytes, count * size, kReadRawLine);
    } else {
      qf_WriteBytes(*buffer_, bytes, count * size, kWriteRawLine);
    }
    return;
  }
  // Swapped on the way between the caller's memory and the medium's own area; a few numbers go through a staging area
  // when the medium has to fetch or make room for more.
  char staging[kStaging];
  while (count != 0) {
    const std::size_t ready = (isLoading() ? qc_Areas::readable(*buffer_) : qc_Areas::writable(*buffer_)) / size;
    const std::size_t step = std::min(count, ready != 0 ? ready : kStaging / size);
    if (isLoading()) {
      if (ready != 0) {
        qf_CopySwapped(bytes, qc_Areas::getNext(*buffer_), step, size);
        qc_Areas::skipRead(*buffer_, step * size);
      } else {
        qc_Areas::readAll(*this, staging, step * size, kReadRawLine);
        qf_CopySwapped(bytes, staging, step, size);
      }
    } else {
      if (ready != 0) {
        qf_CopySwapped(qc_Areas::putNext(*buffer_), bytes, step, size);
        qc_Areas::skipWritten(*buffer_, step * size);
      } else {
        qf_CopySwapped(staging, bytes, step, size);
        qf_WriteBytes(*buffer_, staging, step * size, kWriteRawLine);
      }
    }
    bytes += step * size;
    count -= step;
  }
}
