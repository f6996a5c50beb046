#include "objects.h"

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

// Whether the anchor leads to a record that names it, if numbers are read in this order.
bool isLeading(std::istream& file, bool swap) {
  const qc_Record anchor = headAt(file, qc_format::kAnchorAt, swap).record;
  if (!anchor.is(qc_format::kAnchor) || anchor.position == 0 || anchor.position > INT64_MAX) return false;
  const auto first = headAt(file, static_cast<qcInt64>(anchor.position), swap).linked();
  return first && first->previous == static_cast<qcUInt64>(qc_format::kAnchorAt);
}

}  // namespace

std::unique_ptr<qcFileArchive> openArchive(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const int first = file.get();
  // No plain archive has an anchor: one that says that it is plain is refused as a seekable one.
  const bool isSeekable = (first != std::ifstream::traits_type::eof() && (first & 1) != 0) ||
                          headAt(file, qc_format::kAnchorAt, false).record.is(qc_format::kAnchor);
  auto archive =
      std::make_unique<qcFileArchive>(qf_Widen(path), qcArchive::loading, qcArchive::littleEndian, isSeekable, true);
  if (const bool swap = isSwapped(*archive); isSeekable && !isLeading(file, swap) && isLeading(file, !swap))
    throw FileError(path, "at byte 1: expected the byte order of its records, found the other one");
  return archive;
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
  bytes_.seekg(at).read(tag.data(), tag.size());
  try {
    if (bytes_ && tag == kPointerTag) return load();
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
