#include "std/archive/chain.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/chainaside.h"

using namespace qc_format;

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

// Nothing leads to what is unfinished any more. A link that stayed would lead into what is stored next; and heads that
// follow the last record would be taken for those that a lost link has led to.
void qc_RecordChain::giveUp() {
  const std::streamoff place = std::exchange(unfinished_, 0);
  try {
    const Ungated medium(archive_);
    const std::vector<std::streamoff> heads = readAside([&] { return begunFrom(place); });
    cutLink();
    for (auto head = heads.rbegin(); head != heads.rend(); ++head) overwrite<unsigned char>(*head, 0);
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

void qc_RecordChain::relink() {
  if (anchored_ && broken_ == 0) return;
  if (!anchored_ && records_.empty()) throw qcArchive::BadContent(kIndexSource, kNoChainLine);
  const std::int32_t lastId = largestIdentifier();  // also of what is lost: others may refer to it
  const qcUInt64 linkedTo = tail().position;
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
  const auto begun = static_cast<std::streamoff>(std::min(anchor_.size, static_cast<qcUInt64>(archive_.endOffset())));
  const std::int32_t last = std::max(lastId, static_cast<std::int32_t>(anchor_.last));
  // What was begun and never linked stays known for that.
  const bool isThere = begun >= tail().end() && begun < archive_.endOffset() && isBegun(begun);
  const bool isUnfinished = isThere && linkedTo != anchor_.size;
  isUnfinished ? announce(begun, last) : announceLast(last);
}

void qc_RecordChain::countIdentifiers(std::streamoff place, std::int32_t lastId) {
  if (!anchored_ || broken_ != 0 || static_cast<qcUInt64>(lastId) <= anchor_.last) return;
  if (place < anchor_.end() || place >= tail().end()) return;  // over the anchor, or where they are looked for
  announce(static_cast<std::streamoff>(anchor_.size), lastId);
}

qc_RecordAddition::qc_RecordAddition(qc_RecordChain& chain, std::int32_t lastId)
    : chain_(chain), start_(chain.archive_.offset()), before_(chain.records_.size()), lastId_(lastId) {
  chain.checkGrowth();
  if (chain.inObject_) throw qcArchive::BadBuffer(kIndexSource, kNotAtEndLine);
  if (chain.open_) return;
  if (chain.isSizeLost_) {
    chain.overwrite<std::uint64_t>(chain.tail().at + kSizeField, chain.tail().size);
    chain.archive_.sync();  // before a link makes another record the last one
    chain.isSizeLost_ = false;
  }
  chain.unfinished_ = 0;
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
    // A link that is torn later, or a search, could take what stays for what follows the last record. The first one
    // goes last: until then it is what was announced.
    for (std::size_t i = chain_.records_.size(); !isCut && !linking_ && i > before_; --i)
      chain_.overwrite<unsigned char>(chain_.records_[i - 1].at, 0);
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
  if (chain_.records_.size() == chain_.open_->before_) chain_.announce(record.at, lastId_);
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
    else if (!isTold)
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
