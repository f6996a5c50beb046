// Opening a chain of records, and looking for what is lost of it.

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/chain.h"
#include "std/archive/chainaside.h"
#include "std/archive/index.h"

using namespace qc_format;

namespace {

constexpr std::size_t kScanBytes = 16384;
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

// The places of the records that were begun there, each of which names the one before; others may have stored something
// else there, and there may be more behind them.
std::vector<std::streamoff> qc_RecordChain::begunFrom(std::streamoff place) {
  const std::streamoff end = archive_.endOffset();
  if (place == 0 || place >= end || !isBegun(place)) return {};
  std::vector<std::streamoff> heads{place};
  for (const std::streamoff at : candidates(std::min(place + static_cast<std::streamoff>(kLinkedHead), end))) {
    qc_Record record;
    if (at < openedEnd_ && read(at, record) && record.previous == static_cast<qcUInt64>(heads.back()))
      heads.push_back(at);
  }
  return heads;
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

// Whether a record follows the last one by what it says. It leads ahead; or it is the last one itself, which the one
// that was begun last names, unless it is that one or lies behind it. What a pointer has brought along was linked with
// it.
bool qc_RecordChain::isFollowing(const qc_Record& record, std::streamoff end) {
  const auto place = static_cast<qcUInt64>(record.at);
  const auto isLast = [&] {
    const bool isBrought = tail().is(kPointer) && tail().isFollowed() && record.at == tail().end();
    return place >= anchor_.size || tail().position == place || isBrought ||
           isNamedAt(anchor_.size + kPreviousField, record.at, end);
  };
  const bool leadsAhead = record.position == 0 ? isLast() : record.position > place;
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
