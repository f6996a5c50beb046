#include "objects.h"

#include <algorithm>
#include <bit>
#include <string_view>

#include <vnxstd/archive/persistent.h>
#include <vnxstd/archive/text.h>
#include <vnxstd/vdb/vdbarch.h>

#include "files.h"
#include "recordhead.h"

void KeptObjects::add(qcPersistent* object) {
  if (auto* counted = dynamic_cast<qcRepBase*>(object))
    shared_.emplace_back(counted);
  else if (object)
    owned_.try_emplace(object, object);
}

namespace {

// Where the first object of a chain lies whose numbers are read in this order; nothing where the anchor leads to no
// record that names it.
std::optional<qcInt64> firstObject(std::istream& file, bool swap) {
  constexpr int kMost = 8;  // records before it
  qc_Record last = headAt(file, qc_format::kAnchorAt, swap).record;
  if (!last.is(qc_format::kAnchor)) return std::nullopt;
  for (int i = 0; i < kMost && !last.is(qc_format::kObject); ++i) {
    if (last.position == 0 || last.position > INT64_MAX) break;
    const auto next = headAt(file, static_cast<qcInt64>(last.position), swap).linked();
    if (!next || next->previous != static_cast<qcUInt64>(last.at)) break;
    last = *next;
  }
  return last.is(qc_format::kAnchor) ? std::nullopt : std::optional<qcInt64>(last.at);
}

// Whether the object that begins soon behind a place has a marker, as none of version 0 has.
bool isMarked(std::istream& file, qcInt64 at) {
  constexpr std::string_view kMarker = "\xF1\x66\x4B\xDF", kEntry = "\x6F\x8B\x68\x44";
  std::string bytes(512, '\0');
  bytes.resize(readAt(file, at, bytes.data(), bytes.size()));
  return bytes.find(kMarker) < bytes.find(kEntry);
}

}  // namespace

void checkHead(const std::string& path) {
  std::ifstream file = openedOnce(path);
  std::array<unsigned char, 2> head{};
  if (readAt(file, 0, head.data(), head.size()) < head.size() || head[1] > 1) return;
  const auto [first, order] = head;
  const bool isSeekable = (first & 1) != 0, swap = (order == 1) != (std::endian::native == std::endian::little);
  const auto object = firstObject(file, swap), other = firstObject(file, !swap);
  const auto id = [&](bool swapped) { return headAt(file, qc_format::kAnchorAt, swapped).record.id; };
  constexpr std::int32_t kLarge = 1 << 24, kSmall = 1 << 16;
  const bool isOther = isSeekable ? !object && other : !other && id(swap) >= kLarge && id(!swap) < kSmall;
  const auto refuse = [&](qcInt64 at, const char* expected, const char* found) {
    throw FileError(path, "its first two bytes do not fit what follows",
                    qcLoadContext{at, {}, qcLoadContext::Limit::none, expected, found});
  };
  if (isOther) refuse(1, "the byte order of its records", "the other one");
  if (first >> 1 == 0 && isMarked(file, isSeekable && object ? *object : qc_format::kAnchorAt))
    refuse(0, "version 1, as objects have markers", "version 0");
}

std::unique_ptr<qcFileArchive> openArchive(const std::string& path) {
  checkHead(path);
  std::ifstream file = openedOnce(path);
  unsigned char first = 0;
  readAt(file, 0, &first, 1);
  // No plain archive has an anchor: one that says that it is plain is refused as a seekable one.
  const bool isSeekable = (first & 1) != 0 || headAt(file, qc_format::kAnchorAt, false).record.is(qc_format::kAnchor);
  return std::make_unique<qcFileArchive>(qf_Widen(path), qcArchive::loading, qcArchive::littleEndian, isSeekable, true);
}

bool hasChain(const qcArchive& archive, const std::string& path) {
  if (archive.damaged() != qcArchive::Position(0)) return true;
  std::ifstream file = openedOnce(path);
  const auto anchor = headAt(file, qc_format::kAnchorAt, isSwapped(archive)).linked();
  return anchor && anchor->is(qc_format::kAnchor);
}

std::string damageOf(const qcArchive& archive) {
  if (!archive.isSeekable() || archive.damaged() == qcArchive::Position(0)) return {};
  return "damaged at byte " + std::to_string(static_cast<std::streamoff>(archive.damaged())) +
         ": records behind it are not found; vnx db salvage looks for them";
}

bool isResult(const qcArchiveRecord& mark) {
  return mark.kind == qcArchiveRecord::mark && !mark.removed && mark.number <= qcVDBArchive::kLastNumber;
}

bool hasPointer(const std::vector<qcArchiveRecord>& records, std::size_t mark) {
  return mark + 1 < records.size() && records[mark + 1].kind == qcArchiveRecord::pointer;
}

// What is left of a damaged chain, or of the first record, is no value.
ObjectReader::ObjectReader(const std::string& path) : bytes_(path, std::ios::binary), archive_(openArchive(path)) {
  const auto isSome = [](qcArchive::Position place) { return place != qcArchive::Position(0); };
  isIndexed_ =
      isSeekable() && (isSome(archive_->damaged()) || isSome(archive_->unfinished()) || !archive_->records().empty());
}

std::optional<qcPersistent*> ObjectReader::next() {
  if (isIndexed_) return nextOfIndex();
  if (archive_->remaining() <= 0) return std::nullopt;
  const std::streamoff at = archive_->tell();
  auto tag = kPointerTag;
  const bool isTag = readAt(bytes_, at, tag.data(), tag.size()) == tag.size() && tag == kPointerTag;
  try {
    if (isTag) return load();
  } catch (const qcArchive::UnknownType&) {  // where it ends nobody else can tell
  }
  unnamed_ = at;
  return std::nullopt;
}

// The records of other programs may be of classes that are known to these alone.
std::optional<qcPersistent*> ObjectReader::nextOfIndex() {
  while ((id_ = archive_->nextObjectID(id_)) != 0) {
    archive_->seek(archive_->findObject(id_));
    try {
      return load();
    } catch (const qcArchive::UnknownType&) {
      ++unknown_;
    }
  }
  return std::nullopt;
}

// The object that stands here; the reader keeps it.
qcPersistent* ObjectReader::load() {
  qcPersistent* object = nullptr;
  qcPersistent::serializePointer(*archive_, nullptr, object);
  kept_.add(object);
  return object;
}
