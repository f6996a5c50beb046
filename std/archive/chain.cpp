#include "std/archive/chain.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/gate.h"
#include "std/archive/index.h"

using namespace qc_format;

namespace {

constexpr std::size_t kScanBytes = 16384;
// Fields that are written over.
constexpr std::streamoff kIdField = 5, kKindField = 9, kSizeField = 10, kPositionField = 18, kPreviousField = 26,
                         kLastField = 34;
constexpr unsigned kFarthest = 48;  // bits of a position; a link that leads farther is damaged

// Whether writing a link that leads to `place` can have left these bytes when it was cut short.
bool isTorn(qcUInt64 link, qcUInt64 place) noexcept {
  for (unsigned shift = 0; shift < 64; shift += 8) {
    const qcUInt64 byte = link >> shift & 0xFF;
    if (byte != 0 && byte != (place >> shift & 0xFF)) return false;
  }
  return true;
}

}  // namespace

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

// Reading.

// Whether a well-formed linked record lies there, or the anchor in its place.
bool qc_RecordChain::read(std::streamoff place, qc_Record& record) {
  unsigned char head[kLinkedHead];
  archive_.seekTo(place);
  if (qc_Areas::read(*archive_.buffer_, head, sizeof head) != sizeof head) return false;
  if (!qf_IsRecord(head) || head[4] > kRecordVersion) return false;
  record = qf_ParseHead(head, archive_.swapBytes_);
  record.at = place;
  if (!record.isLinked()) return false;
  qf_ParseFields(record, head + kRecordHead, archive_.swapBytes_);
  return record.isValid() && record.is(kAnchor) == (place == kAnchorAt);
}

void qc_RecordChain::open() {
  std::streamoff end = archive_.endOffset();
  qc_Record anchor;
  openedEnd_ = end;
  anchored_ = kAnchorAt + static_cast<std::streamoff>(kLinkedHead) <= end && read(kAnchorAt, anchor);
  if (!anchored_) {
    // What was cut within the anchor is no archive without one, whose values would be what is left of the anchor.
    const bool isShort = archive_.version() != 0 && end < kAnchorAt + static_cast<std::streamoff>(kLinkedHead);
    if (isShort && isBegun(kAnchorAt)) {
      archive_.seekTo(kAnchorAt);
      throw archive_.located(qcArchive::Eof(kArchiveSource, kReadRawLine), std::to_string(kLinkedHead) + " bytes",
                             std::to_string(end - kAnchorAt));
    }
    if (isAnchorLost(end)) broken_ = kAnchorAt;
    return archive_.seekTo(kAnchorAt);
  }
  anchor_ = anchor;
  broken_ = follow(end);
  openedEnd_ = end;
  settle(end);
  // A link that leads backwards says nothing of where: what is missing lies behind the last record.
  if (broken_ != 0 && broken_ < tail().bodyAt()) broken_ = tail().end();
  archive_.seekTo(anchor_.end());
}

// Whether there was an anchor where none can be read: a record follows it, right behind or where it says, or all of it
// is zero and there are records.
bool qc_RecordChain::isAnchorLost(std::streamoff end) {
  std::array<unsigned char, kLinkedHead> bytes{};
  archive_.seekTo(kAnchorAt);
  if (archive_.version() == 0 || qc_Areas::read(*archive_.buffer_, bytes.data(), bytes.size()) != bytes.size())
    return false;
  qc_Record record, anchor;
  anchor.at = kAnchorAt;
  anchor.kind = kAnchor;
  anchor.wide = true;
  qf_ParseFields(anchor, bytes.data() + kRecordHead, archive_.swapBytes_);
  for (const qcUInt64 place : {static_cast<qcUInt64>(anchor.end()), anchor.position}) {
    const auto at = static_cast<std::streamoff>(std::min(place, static_cast<qcUInt64>(end)));
    if (read(at, record) && record.previous == static_cast<qcUInt64>(kAnchorAt)) return true;
  }
  if (!std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; })) return false;
  const auto heads = candidates(anchor.end());
  return std::any_of(heads.begin(), heads.end(), [&](std::streamoff at) { return read(at, record); });
}

// Takes in the records that the last one leads to; returns where the chain is broken, or 0. Links only lead forwards.
// The end is looked for again where they lead behind it: somebody else may be adding records.
std::streamoff qc_RecordChain::follow(std::streamoff& end) {
  while (tail().position != 0) {
    std::streamoff place = 0;
    qc_Record record;
    const auto leads = [&] {
      place = static_cast<std::streamoff>(std::min(tail().position, static_cast<qcUInt64>(end)));
      if (place < tail().end() || !read(place, record) || record.previous != static_cast<qcUInt64>(tail().at))
        return false;
      const bool isLost = record.is(kObject) && record.size == 0 && record.position == 0;
      if (isLost) record.size = ownSize(record, end);
      isSizeLost_ = isLost && isInside(record, end);
      const bool isEmpty = record.is(kObject) && record.position == static_cast<qcUInt64>(record.bodyAt());
      return isInside(record, end) && !(isEmpty && isNamedByNext(record, end));  // no object is
    };
    if (!leads()) {
      end = archive_.endOffset();
      if (!leads()) return place;
    }
    if (!add(record)) return place;
  }
  return 0;
}

bool qc_RecordChain::isInside(const qc_Record& record, std::streamoff end) const noexcept {
  const qcUInt64 room = static_cast<qcUInt64>(end - record.bodyAt());
  return !record.is(kObject) || (record.size != 0 && record.size <= room);  // 0 until the object is finished
}

// Tells what an interrupted program has left from damage. What was announced but never linked was not finished, also
// when the link was cut short; and of what was linked nothing may have reached the medium before the power failed.
void qc_RecordChain::settle(std::streamoff end) {
  if (broken_ != 0 && isMissing(broken_, end)) {
    unfinished_ = std::exchange(broken_, 0);
    return;
  }
  if (broken_ == 0) broken_ = lostObject(end);
  if (broken_ != 0 && tail().position == 0) return;
  const auto announced = static_cast<std::streamoff>(std::min(anchor_.size, static_cast<qcUInt64>(end)));
  if (announced >= tail().end() && isBegun(announced)) {
    if (broken_ != 0) {
      qc_Record record;
      const bool isDamaged = tail().position == anchor_.size || !isTorn(tail().position, anchor_.size);
      if (isDamaged || !read(announced, record)) return;
      broken_ = 0;
    }
    unfinished_ = announced;
  } else if (broken_ == 0) {
    broken_ = lostLink(end);
  }
}

// Where the object lies that the last record has brought along as a pointer, which was linked together with it, if the
// link to it is gone; else 0.
std::streamoff qc_RecordChain::lostObject(std::streamoff end) {
  qc_Record record;
  const bool isFollowed = tail().position == 0 && tail().is(kPointer) && tail().isFollowed();
  if (!isFollowed || !readSized(tail().end(), record, end) || !record.is(kObject) || !isFollowing(record, end))
    return 0;
  const bool isOwn = record.id == tail().id || tail().size != 0;  // redirecting changes the pointer's number
  return isOwn && !object(record.id) ? record.at : 0;
}

// Where the last record did lead to; 0 for nowhere. A link that says nothing when it is lost: what was stored behind it
// has been announced since, is there, and names what was before it. Once a record was given up, the last one before it
// is announced again.
std::streamoff qc_RecordChain::lostLink(std::streamoff end) {
  qc_Record record;
  auto place = static_cast<std::streamoff>(std::min(anchor_.size, static_cast<qcUInt64>(end)));
  while (place >= tail().end() && read(place, record) && record.previous < static_cast<qcUInt64>(place)) {
    const bool isAnnounced = static_cast<qcUInt64>(place) == anchor_.size;  // begun just now, by somebody else
    if (record.previous == static_cast<qcUInt64>(tail().at)) return isAnnounced ? 0 : place;
    place = static_cast<std::streamoff>(record.previous);
  }
  return 0;
}

// Whether the record that the last one leads to is not there, in full or in part, rather than damaged: the data ends
// before it does, or a whole part of the medium was never written. What can still be found behind it tells otherwise.
bool qc_RecordChain::isMissing(std::streamoff place, std::streamoff end) {
  constexpr std::streamoff kSector = 512;
  const auto head = std::min(end - place, static_cast<std::streamoff>(kLinkedHead));
  qc_Record record;
  bool isCut = false;
  if (place < tail().end() || tail().position >> kFarthest != 0) return false;
  if (head == static_cast<std::streamoff>(kLinkedHead)) {
    isCut = read(place, record) && record.previous == static_cast<qcUInt64>(tail().at);
    if (isCut && (isInside(record, end) || isWhole(record, end))) return false;
    if (!isCut) {
      std::array<unsigned char, kLinkedHead> bytes{};
      archive_.seekTo(place);
      if (qc_Areas::read(*archive_.buffer_, bytes.data(), bytes.size()) != bytes.size()) return false;
      const auto boundary = static_cast<std::size_t>(std::min(kSector - place % kSector, head));
      const auto isZero = [](unsigned char byte) { return byte == 0; };
      const auto middle = bytes.begin() + static_cast<std::ptrdiff_t>(boundary);
      const bool isFrontGone = std::all_of(bytes.begin(), middle, isZero);
      const bool isBackGone = boundary < bytes.size() && std::all_of(middle, bytes.end(), isZero);
      const bool isNew = (bytes[kKindField] & kSecondNumber) == 0;
      if (!isFrontGone && !(isBackGone && isNew && isFront(bytes.data(), boundary))) return false;
    }
  }
  // What a body that was cut holds, be it an archive, is no record of this chain.
  const auto heads = candidates(tail().end());
  return std::none_of(heads.begin(), heads.end(), [&](std::streamoff at) {
    return at != place && read(at, record) && record.previous >= static_cast<qcUInt64>(tail().at) &&
           record.previous < static_cast<qcUInt64>(at) && (!isCut || isNamed(record, end));
  });
}

// Whether the object ends with the data, by what it says itself, although its head says that it does not.
bool qc_RecordChain::isWhole(const qc_Record& record, std::streamoff end) {
  try {
    const qc_ArchiveIndex::Body body = archive_.index_->readBodyOf(record);
    return body.size == static_cast<qcUInt64>(end - body.at);
  } catch (const qcException&) {
    return false;
  }
}

// Whether a linked record was begun there that follows the last one; its head may have been cut short by the end of the
// data, even before its first byte.
bool qc_RecordChain::isBegun(std::streamoff place) {
  std::array<unsigned char, kLinkedHead> head;
  archive_.seekTo(place);
  const std::size_t count = qc_Areas::read(*archive_.buffer_, head.data(), head.size());
  if (!isFront(head.data(), count)) return false;
  qc_Record record;
  return count < head.size() || (read(place, record) && record.previous == static_cast<qcUInt64>(tail().at));
}

// Whether these first bytes of a head can be those of a linked record that follows the last one.
bool qc_RecordChain::isFront(const unsigned char* head, std::size_t count) {
  const std::size_t known = std::min(count, kRecordTag.size());
  if (!std::equal(head, head + known, kRecordTag.begin())) return false;
  if (count > kRecordTag.size() && head[kRecordTag.size()] != kWideRecord) return false;
  if (count > kRecordTag.size() + 1 && head[kRecordTag.size() + 1] > kRecordVersion) return false;
  if (count >= kRecordHead) {
    const qc_Record record = qf_ParseHead(head, archive_.swapBytes_);
    const bool isRenumbered = (record.kind & kSecondNumber) != 0;  // the number lies farther behind
    if (!record.isLinked() || !(isRenumbered || record.isValid())) return false;
  }
  qc_Composer<sizeof(std::uint64_t)> previous(archive_.swapBytes_);
  previous.word(static_cast<std::uint64_t>(tail().at));
  constexpr std::size_t kNamedAt = kPreviousField;
  const std::size_t named = std::min(std::max(count, kNamedAt) - kNamedAt, previous.size());
  return std::equal(previous.data(), previous.data() + named, head + kPreviousField);
}

// Calls `found` with every place from `from` on where a record may begin, and with the bytes there.
template <class Found>
void qc_RecordChain::scan(std::streamoff from, Found found) {
  std::vector<unsigned char> window(kScanBytes + kRecordHead);
  std::size_t kept = 0;
  for (std::streamoff start = from;;) {
    archive_.seekTo(start + static_cast<std::streamoff>(kept));
    const std::size_t read = qc_Areas::read(*archive_.buffer_, window.data() + kept, kScanBytes);
    const std::size_t size = kept + read;
    for (std::size_t i = 0; i + kRecordHead <= size; ++i) {
      const auto* tag = static_cast<const unsigned char*>(std::memchr(&window[i], kRecordTag[0], size - i));
      if (!tag) break;
      i = static_cast<std::size_t>(tag - window.data());
      if (i + kRecordHead <= size && qf_IsRecord(tag)) found(start + static_cast<std::streamoff>(i), tag);
    }
    if (read == 0) return;
    kept = std::min(size, kRecordHead - 1);
    std::memmove(window.data(), window.data() + size - kept, kept);
    start += static_cast<std::streamoff>(size - kept);
  }
}

// The places of what may be linked records.
std::vector<std::streamoff> qc_RecordChain::candidates(std::streamoff from) {
  std::vector<std::streamoff> places;
  scan(from, [&](std::streamoff place, const unsigned char* head) {
    if (qf_ParseHead(head, archive_.swapBytes_).isLinked()) places.push_back(place);
  });
  return places;
}

// Where the last record ends. A record that it leads to, and that names it, tells better than a size that leads
// farther.
std::streamoff qc_RecordChain::tailEnd() {
  const std::streamoff end = tail().end();
  if (tail().position < static_cast<qcUInt64>(tail().bodyAt()) || tail().position >= static_cast<qcUInt64>(end))
    return end;
  const auto place = static_cast<std::streamoff>(tail().position);
  qc_Record next;
  return read(place, next) && next.previous == static_cast<qcUInt64>(tail().at) ? place : end;
}

long qc_RecordChain::salvage() {
  if (anchored_ && broken_ == 0) return 0;
  if (!anchored_) {  // as if it were there, and led nowhere
    if (archive_.endOffset() < kAnchorAt + static_cast<std::streamoff>(kLinkedHead)) return 0;
    anchor_ = qc_Record();
    anchor_.at = kAnchorAt;
    anchor_.kind = kAnchor;
    anchor_.wide = true;
  }
  if (!records_.empty() && tail().position == 0 && broken_ < tail().at)
    return 0;  // searched already, up to the last record
  const std::size_t before = records_.size();
  const std::streamoff here = archive_.offset();
  std::streamoff end = archive_.endOffset();
  const auto heads = candidates(tailEnd());
  // Of those that follow the last record by what they say, the last one did: what lies before it was given up. One that
  // has no neighbour to confirm it may be other data, and stands for none but itself.
  std::streamoff follower = -1;
  bool isSure = false;
  for (auto place = heads.rbegin(); place != heads.rend() && !isSure; ++place) {
    qc_Record record;
    if (!readSized(*place, record, end) || !isFollowing(record, end)) continue;
    isSure = tail().position == static_cast<qcUInt64>(*place) || isNamedByNext(record, end);
    if (isSure || follower == -1) follower = *place;
  }
  for (const std::streamoff place : heads) {
    qc_Record record;
    if ((isSure && place < follower) || (place < tail().end() && place < tailEnd()) || !readSized(place, record, end))
      continue;
    if (place != follower) {
      const bool follows = record.previous == static_cast<qcUInt64>(tail().at), isLast = tail().position == 0;
      if (follows && isLast && static_cast<qcUInt64>(place) == anchor_.size) break;  // begun, and never linked
      if (follows ? isLast || !isFollowing(record, end) : !isInChain(record, end)) continue;
    }
    if (add(record)) follow(end);
  }
  archive_.seekTo(here);
  return static_cast<long>(records_.size() - before);
}

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

std::optional<qc_Record> qc_RecordChain::headAt(std::streamoff place) {
  return readAside([&] {
    qc_Record record;
    return read(place, record) ? std::optional(record) : std::nullopt;
  });
}

qcUInt64 qc_RecordChain::ownSize(const qc_Record& object, std::streamoff end) {
  return readAside([&]() -> qcUInt64 {
    try {
      const qc_ArchiveIndex::Body body = archive_.index_->readBodyOf(object);
      if (body.size == 0 || body.at > end || body.size > static_cast<qcUInt64>(end - body.at)) return 0;
      return static_cast<qcUInt64>(body.at - object.bodyAt()) + body.size;
    } catch (const qcException& error) {
      if (error.loadContext() && error.loadContext()->limit != qcLoadContext::Limit::none) throw;
      return 0;
    }
  });
}

// Reads the head of a record. The size of an object may be all that a head has lost, or that has not reached the
// medium.
bool qc_RecordChain::readSized(std::streamoff place, qc_Record& record, std::streamoff end) {
  if (!read(place, record)) return false;
  if (record.is(kObject) && record.position == static_cast<qcUInt64>(record.bodyAt())) return false;  // none is empty
  const auto room = static_cast<qcUInt64>(std::max<std::streamoff>(end - record.bodyAt(), 0));
  if (record.is(kObject) && (record.size == 0 || record.size > room)) {
    if (const qcUInt64 size = ownSize(record, end); size != 0) record.size = size;
  }
  return true;
}

void qc_RecordChain::relink() {
  if (anchored_ && broken_ == 0) return;
  if (!anchored_ && records_.empty()) throw qcArchive::BadContent(kIndexSource, kNoChainLine);
  const std::int32_t lastId = largestIdentifier();  // also of what is lost: others may refer to it
  if (!anchored_) announce(0, lastId);
  for (std::size_t i = 0; i <= records_.size(); ++i) {
    qc_Record& record = i == 0 ? anchor_ : records_[i - 1];
    const auto before = static_cast<qcUInt64>(i < 2 ? kAnchorAt : records_[i - 2].at);
    const auto next = static_cast<qcUInt64>(i == records_.size() ? 0 : records_[i].at);
    if (i != 0 && record.previous != before)
      overwrite<std::uint64_t>(record.at + kPreviousField, record.previous = before);
    if (record.position != next) overwrite<std::uint64_t>(record.at + kPositionField, record.position = next);
    if (!record.is(kObject)) continue;
    if (next != 0 && static_cast<qcUInt64>(record.end()) > next) {
      record.size = ownSize(record, static_cast<std::streamoff>(next));
      if (record.size == 0) record.size = next - static_cast<qcUInt64>(record.bodyAt());  // all of it is the object's
    }
    const auto field = static_cast<qcUInt64>(record.at + kSizeField);
    if (!isNamedAt(field, static_cast<std::streamoff>(record.size), archive_.endOffset()))
      overwrite<std::uint64_t>(record.at + kSizeField, record.size);
  }
  anchored_ = true;
  broken_ = 0;
  announceLast(std::max(lastId, static_cast<std::int32_t>(anchor_.last)));
}

// Whether a record follows the last one by what it says. It leads ahead; or it is the last one itself, which never lies
// before the one that was begun last.
bool qc_RecordChain::isFollowing(const qc_Record& record, std::streamoff end) const noexcept {
  const auto place = static_cast<qcUInt64>(record.at);
  const bool leadsAhead = record.position == 0 ? place >= anchor_.size : record.position > place;
  return record.previous == static_cast<qcUInt64>(tail().at) && leadsAhead && isInside(record, end);
}

// Whether a record that was come across was linked: a neighbour names its place, be the rest of it damaged. Other data
// may look like a record.
bool qc_RecordChain::isInChain(const qc_Record& record, std::streamoff end) {
  if (!isInside(record, end)) return false;
  const auto place = static_cast<qcUInt64>(record.at);
  return tail().position == place || (record.position == 0 && place == anchor_.size) || isNamed(record, end);
}

bool qc_RecordChain::isNamed(const qc_Record& record, std::streamoff end) {
  const bool isBehind = record.previous >= static_cast<qcUInt64>(tail().at) &&  //
                        record.previous < static_cast<qcUInt64>(record.at);
  return isNamedByNext(record, end) || (isBehind && isNamedAt(record.previous + kPositionField, record.at, end));
}

bool qc_RecordChain::isNamedByNext(const qc_Record& record, std::streamoff end) {
  return record.position > static_cast<qcUInt64>(record.at) && record.position < static_cast<qcUInt64>(end) &&
         isNamedAt(record.position + kPreviousField, record.at, end);
}

// Whether the word at `field` is that place.
bool qc_RecordChain::isNamedAt(qcUInt64 field, std::streamoff place, std::streamoff end) {
  std::uint64_t word = 0;
  if (field > static_cast<qcUInt64>(end) - sizeof word) return false;
  archive_.seekTo(static_cast<std::streamoff>(field));
  if (qc_Areas::read(*archive_.buffer_, &word, sizeof word) != sizeof word) return false;
  if (archive_.swapBytes_) qf_Reverse(word);
  return word == static_cast<qcUInt64>(place);
}

std::int32_t qc_RecordChain::largestIdentifier() {
  constexpr qcUInt64 kMost = std::numeric_limits<std::int32_t>::max();
  std::int32_t largest = 0;
  const auto count = [&largest](qcUInt64 id) {
    if (id < kMost) largest = std::max(largest, static_cast<std::int32_t>(id));
  };
  count(anchor_.last);
  for (const qc_Record& record : records_) {
    if (record.is(kObject)) count(record.last), count(static_cast<qcUInt64>(record.id));
    if (record.is(kPointer)) count(static_cast<qcUInt64>(record.number()));  // its object may be missing
  }
  const Ungated medium(archive_);
  const std::streamoff here = archive_.offset();
  scan(anchored_ && broken_ == 0 ? tail().end() : 0, [&](std::streamoff, const unsigned char* head) {
    const qc_Record record = qf_ParseHead(head, archive_.swapBytes_);
    if (head[4] <= kRecordVersion && !(record.wide && record.is(kMark))) count(static_cast<qcUInt64>(record.id));
  });
  archive_.seekTo(here);
  return largest;
}

void qc_RecordChain::countIdentifiers(std::streamoff place, std::int32_t lastId) {
  if (!anchored_ || broken_ != 0 || static_cast<qcUInt64>(lastId) <= anchor_.last) return;
  if (place < anchor_.end() || place >= tail().end()) return;  // over the anchor, or where they are looked for
  announce(static_cast<std::streamoff>(anchor_.size), lastId);
}

// What is known of the records.

bool qc_RecordChain::add(const qc_Record& record) {
  const std::size_t index = records_.size();
  records_.push_back(record);
  if (record.isRemoved()) return true;
  try {
    if (record.is(kPointer)) {
      pointers_.insert(pointers_.end(), index);
      return true;
    }
    Numbers& numbers = record.is(kMark) ? marks_ : objects_;
    if (record.number() > 0) {
      const auto [entry, isNew] = numbers.emplace(record.number(), index);
      if (isNew) return true;
      if (record.is(kMark)) {  // the number is its from now on
        if (open_) {
          replaced_.push_back({entry->second, index});
        } else {
          stale_.push_back(entry->second);
        }
        records_[entry->second].kind |= kRemoved;
        entry->second = index;
        return true;
      }
    }
  } catch (...) {
    records_.pop_back();
    throw;
  }
  records_.pop_back();
  return false;
}

void qc_RecordChain::forget(std::size_t index) noexcept {
  const qc_Record& record = records_[index];
  if (record.is(kPointer)) pointers_.erase(index);
  if (record.is(kMark)) freeNumber(record.number());
  if (record.is(kObject)) objects_.erase(record.number());
}

// Forgets what was added behind the first `count` records; marks that were replaced have their numbers again.
void qc_RecordChain::dropFrom(std::size_t count) noexcept {
  for (; !replaced_.empty() && replaced_.back().by >= count; replaced_.pop_back()) {
    const auto [index, by] = replaced_.back();
    records_[index].kind &= static_cast<unsigned char>(~kRemoved);
    records_[by].kind |= kRemoved;
    marks_.find(records_[index].number())->second = index;
  }
  while (records_.size() > count) {
    if (!records_.back().isRemoved()) forget(records_.size() - 1);
    records_.pop_back();
  }
}

void qc_RecordChain::freeNumber(std::int32_t number) noexcept {
  marks_.erase(number);
  if (number >= firstMark_) freeMark_ = std::min(freeMark_, number);
}

std::int32_t qc_RecordChain::freeMark() {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  for (auto taken = marks_.find(freeMark_); taken != marks_.end() && taken->first == freeMark_; ++taken) {
    if (freeMark_ == kMost) throw qcArchive::BadContent(kIndexSource, kNumberLine);
    ++freeMark_;
  }
  return freeMark_;
}

const qc_Record* qc_RecordChain::found(const Numbers& numbers, std::int32_t number) const noexcept {
  const auto entry = numbers.find(number);
  return entry == numbers.end() ? nullptr : &records_[entry->second];
}

std::size_t qc_RecordChain::indexFrom(std::streamoff place) const noexcept {
  const auto isBefore = [](const qc_Record& record, std::streamoff at) { return record.at < at; };
  return static_cast<std::size_t>(std::lower_bound(records_.begin(), records_.end(), place, isBefore) -
                                  records_.begin());
}

const qc_Record* qc_RecordChain::at(std::streamoff place) const noexcept {
  const std::size_t index = indexFrom(place);
  return index < records_.size() && records_[index].at == place ? &records_[index] : nullptr;
}

const qc_Record* qc_RecordChain::pointerFrom(std::streamoff place) const noexcept {
  const auto pointer = pointers_.lower_bound(indexFrom(place));
  return pointer == pointers_.end() ? nullptr : &records_[*pointer];
}

// Writing.

void qc_RecordChain::start() {
  anchored_ = true;
  anchor_.at = archive_.offset();
  anchor_.kind = kAnchor;
  anchor_.wide = true;
  writeHead(anchor_);
}

void qc_RecordChain::writeHead(const qc_Record& record) {
  qc_Composer<kLinkedHead> out(archive_.swapBytes_);
  qf_ComposeRecord(out, record);
  qf_WriteBytes(*archive_.buffer_, out.data(), out.size(), kWriteRawLine);
}

// Writes over what is there, and leaves the archive where it was, in the direction that it had, also when that fails.
// What has been written is no failure, if only the way back can be found at a second attempt.
template <class Write>
void qc_RecordChain::writeAt(std::streamoff place, Write write) {
  const std::streamoff here = archive_.offset();
  const auto direction = archive_.direction_;
  bool isWritten = false, isBack = false;
  try {
    archive_.mode(qcArchive::storing);
    archive_.seekTo(place);
    write();
    archive_.flush();
    isWritten = true;
    archive_.seekTo(here);
    archive_.mode(direction);
  } catch (...) {
    archive_.direction_ = direction;
    try {
      archive_.seekTo(here);
      isBack = true;
    } catch (...) {  // what has gone wrong first is under way already
    }
    if (!isWritten || !isBack) throw;
  }
}

template <class Word>
void qc_RecordChain::overwrite(std::streamoff place, Word word) {
  qc_Composer<sizeof word> out(archive_.swapBytes_);
  if constexpr (sizeof word == 1) {
    out.byte(word);
  } else {
    out.word(word);
  }
  writeAt(place, [&] { qf_WriteBytes(*archive_.buffer_, out.data(), out.size(), kWriteRawLine); });
}

bool qc_RecordChain::canGrow() { return anchored_ && broken_ == 0 && archive_.offset() == archive_.endOffset(); }

void qc_RecordChain::checkGrowth() {
  if (broken_ != 0) throw qcArchive::BadContent(kIndexSource, kBrokenChainLine);
  if (!anchored_) throw qcArchive::BadContent(kIndexSource, kNoChainLine);
  if (archive_.isLoading() || archive_.offset() != archive_.endOffset()) {
    throw qcArchive::BadBuffer(kIndexSource, kNotAtEndLine);
  }
}

// Says of marks that were replaced that they have no number: it would be theirs again once the later one has another.
// The later one must have reached the medium by then, and this the medium before what comes next.
void qc_RecordChain::cleanStale() {
  if (stale_.empty()) return;
  archive_.sync();
  for (; !stale_.empty(); stale_.pop_back()) {
    const qc_Record& mark = records_[stale_.back()];
    overwrite(mark.at + kKindField, mark.kind);
  }
  archive_.sync();
}

// Says where the next record will lie; 0 for none.
void qc_RecordChain::announce(std::streamoff place, std::int32_t lastId) {
  anchor_.size = static_cast<qcUInt64>(place);
  anchor_.last = static_cast<qcUInt64>(lastId);
  writeAt(anchor_.at, [this] { writeHead(anchor_); });
}

// Nothing was begun since the last record, from which those before it can be found.
void qc_RecordChain::announceLast(std::int32_t lastId) { announce(records_.empty() ? 0 : tail().at, lastId); }

void qc_RecordChain::keepBehind(std::streamoff place) {
  if (unfinished_ != 0 && broken_ == 0 && place >= unfinished_) giveUp();
}

// Nothing leads to what is unfinished any more. A link that stayed would lead into what is stored next; and a head that
// follows the last record would be taken for the one that a lost link has led to.
void qc_RecordChain::giveUp() {
  const std::streamoff place = std::exchange(unfinished_, 0);
  try {
    const Ungated medium(archive_);
    const bool isThere = place != 0 && readAside([&] { return place < archive_.endOffset() && isBegun(place); });
    cutLink();
    if (isThere) overwrite<unsigned char>(place, 0);  // others may have stored something else there
    announceLast(static_cast<std::int32_t>(anchor_.last));
  } catch (...) {
    unfinished_ = place;
    throw;
  }
}

void qc_RecordChain::cutLink() {
  if (tail().position == 0) return;
  qc_Record& last = records_.empty() ? anchor_ : records_.back();
  overwrite<std::uint64_t>(last.at + kPositionField, 0);
  last.position = 0;
}

void qc_RecordChain::cutUnfinished(std::streamoff unfinished) {
  if (unfinished == 0 || broken_ != 0) return;
  cutLink();  // first: one that was torn must not lead behind the end
  // What was stored since the archive was opened lies behind it, and stays.
  if (archive_.endOffset() == openedEnd_ && archive_.truncate(unfinished))
    archive_.highWater_ = openedEnd_ = unfinished;
  archive_.seekTo(archive_.endOffset());
  giveUp();
  archive_.sync();  // nothing of it may turn up again, should the power fail, where the next record is stored
}

// What an addition that is open would take back must not change meanwhile.
void qc_RecordChain::checkClosed() const {
  if (open_) throw qcArchive::BadBuffer(kIndexSource, kNotAtEndLine);
}

void qc_RecordChain::renumber(const qc_Record& record, std::int32_t number) {
  checkClosed();
  cleanStale();
  const auto index = static_cast<std::size_t>(&record - records_.data());
  qc_Record changed = record;
  changed.kind ^= kSecondNumber;
  if ((changed.kind & kSecondNumber) != 0) {
    const bool isMark = record.is(kMark);
    (isMark ? changed.last : changed.size) = static_cast<qcUInt64>(number);
    overwrite(record.at + (isMark ? kLastField : kSizeField), static_cast<std::uint64_t>(number));
  } else {
    changed.id = number;
    overwrite(record.at + kIdField, static_cast<std::uint32_t>(number));
  }
  archive_.sync();  // the byte that makes it count must not reach the medium before it
  if (record.is(kMark)) {
    marks_.emplace(number, index);  // takes its memory before anything counts
    try {
      overwrite(record.at + kKindField, changed.kind);
    } catch (...) {
      marks_.erase(number);
      throw;
    }
    freeNumber(record.number());
  } else {
    overwrite(record.at + kKindField, changed.kind);
  }
  records_[index] = changed;
}

void qc_RecordChain::remove(const qc_Record& record) {
  checkClosed();
  cleanStale();
  const auto index = static_cast<std::size_t>(&record - records_.data());
  const auto kind = static_cast<unsigned char>(record.kind | kRemoved);
  overwrite(record.at + kKindField, kind);
  forget(index);
  records_[index].kind = kind;
}

qc_RecordAddition::qc_RecordAddition(qc_RecordChain& chain, std::int32_t lastId)
    : chain_(chain), start_(chain.archive_.offset()), before_(chain.records_.size()) {
  chain.checkGrowth();
  if (chain.inObject_) throw qcArchive::BadBuffer(kIndexSource, kNotAtEndLine);
  if (chain.open_) return;
  if (chain.isSizeLost_) {
    chain.overwrite<std::uint64_t>(chain.tail().at + kSizeField, chain.tail().size);
    chain.archive_.sync();  // before a link makes another record the last one
    chain.isSizeLost_ = false;
  }
  chain.unfinished_ = 0;
  chain.announce(start_, lastId);
  chain.open_ = this;
}

qc_RecordAddition::~qc_RecordAddition() {
  if (!linked_) abandon();
  if (isOuter()) chain_.open_ = nullptr;
}

void qc_RecordAddition::abandon() noexcept {
  bool isCut = false;
  try {
    isCut = isOuter() && !linking_ && chain_.archive_.truncate(start_);
    // A link that is torn later, or a search, could take what stays for what follows the last record.
    for (std::size_t i = before_; !isCut && !linking_ && i < chain_.records_.size(); ++i)
      chain_.overwrite<unsigned char>(chain_.records_[i].at, 0);
  } catch (...) {  // the medium refuses everything; the chain does not lead here
  }
  const bool hasReplaced = !chain_.replaced_.empty();
  chain_.dropFrom(before_);
  chain_.inObject_ = false;
  try {
    // A link that may be there must lead somewhere.
    if (linking_) chain_.overwrite<std::uint64_t>(chain_.tail().at + kPositionField, 0);
    if (!isOuter()) return;
    qcArchive& archive = chain_.archive_;
    if (isCut) archive.highWater_ = std::min(archive.highWater_, start_);
    archive.seekTo(isCut ? start_ : archive.endOffset());
    chain_.announceLast(static_cast<std::int32_t>(chain_.anchor_.last));
    if (hasReplaced) archive.sync();  // a mark must not turn up again in place of the one that it was to replace
  } catch (...) {
  }
}

void qc_RecordAddition::begin(unsigned char kind, std::int32_t id, qcUInt64 last) {
  qc_Record record;
  record.at = chain_.archive_.offset();
  record.id = id;
  record.kind = kind;
  record.wide = true;
  record.last = last;
  record.previous = static_cast<qcUInt64>(chain_.tail().at);
  if (record.isFollowed() && record.is(kPointer)) record.position = static_cast<qcUInt64>(record.bodyAt());
  chain_.writeHead(record);
  if (!chain_.add(record)) throw qcArchive::Duplicate(kIndexSource, kTakenLine);
  chain_.inObject_ = record.is(kObject);
}

void qc_RecordAddition::finish(std::int32_t lastId) {
  qcArchive& archive = chain_.archive_;
  qc_Record& record = chain_.records_.back();
  const std::streamoff end = archive.offset();
  record.size = static_cast<qcUInt64>(end - record.bodyAt());
  record.last = static_cast<qcUInt64>(lastId);
  archive.seekTo(record.at);
  chain_.writeHead(record);
  archive.seekTo(end);
  chain_.inObject_ = false;
}

void qc_RecordAddition::link(std::int32_t lastId) {
  if (linked_) return;
  const bool hasRecords = chain_.records_.size() > before_;
  const auto first = static_cast<qcUInt64>(hasRecords ? chain_.records_[before_].at : 0);
  if (isOuter()) {
    qcUInt64 told = chain_.anchor_.last;
    for (std::size_t i = before_; i < chain_.records_.size(); ++i)
      if (chain_.records_[i].is(kObject)) told = std::max(told, chain_.records_[i].last);
    const bool isTold = told >= static_cast<qcUInt64>(lastId);
    const std::int32_t last = isTold ? static_cast<std::int32_t>(chain_.anchor_.last) : lastId;
    if (!hasRecords)
      chain_.announceLast(last);
    else if (first != chain_.anchor_.size || !isTold)
      chain_.announce(static_cast<std::streamoff>(first), last);
  }
  if (isOuter() && !chain_.replaced_.empty()) {
    chain_.stale_.reserve(chain_.stale_.size() + chain_.replaced_.size());
    chain_.archive_.sync();  // what takes the place of others is on the medium, whole, before it does
  }
  // The first record of those that come together is linked by the one that stands by itself, when all are there.
  const bool isFirst = chain_.open_->before_ == before_;
  if ((isOuter() || !isFirst) && hasRecords) {
    qc_Record& tail = before_ == 0 ? chain_.anchor_ : chain_.records_[before_ - 1];
    linking_ = true;
    chain_.overwrite(tail.at + kPositionField, static_cast<std::uint64_t>(first));
    tail.position = first;
  }
  linked_ = true;
  if (!isOuter()) return;
  for (const auto& mark : chain_.replaced_) chain_.stale_.push_back(mark.index);
  chain_.replaced_.clear();
  chain_.open_ = nullptr;
}
