// The linked records of a seekable archive: its marks, and the objects and pointers that can be found without reading
// the archive from the front.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "std/archive/record.h"
#include "vnxstd/archive/archive.h"

class qc_RecordAddition;

/// Each record says where the next one lies. The link to a new record is written last, so that a record is either whole
/// and found, or not found; the anchor, right behind the header, says beforehand where it will lie, so that what an
/// interrupted program has left there is recognised. Opening an archive reads the heads alone.
class qc_RecordChain {
 public:
  explicit qc_RecordChain(qcArchive& archive) noexcept : archive_(archive) {}
  qc_RecordChain(const qc_RecordChain&) = delete;
  qc_RecordChain& operator=(const qc_RecordChain&) = delete;

  /// Writes the anchor of a new archive.
  void start();
  /// Reads the chain, and goes behind the anchor. A broken chain is no error here.
  void open();

  /// Whether a record stored now would be linked: the archive is at the end of its data and has a sound chain.
  bool canGrow();
  /// Throws what hinders linking.
  void checkGrowth();

  std::streamoff unfinished() const noexcept { return unfinished_; }
  std::streamoff damaged() const noexcept { return broken_; }
  /// Cuts off what an interrupted program has left, which began there.
  void cutUnfinished(std::streamoff unfinished);
  /// What is stored from that place on is not cut off with what an interrupted program has left before it.
  void keepBehind(std::streamoff place);
  /// Takes in the records that can be found behind the place where the chain is broken; returns how many.
  long salvage();
  /// The head of a linked record that lies at a place of the medium, be it in the chain or not.
  std::optional<qc_Record> headAt(std::streamoff place);
  /// The size of an object by its own entry; 0 where that says nothing, or leads beyond `end`.
  qcUInt64 ownSize(const qc_Record& object, std::streamoff end);
  /// Writes links from each record taken in to the next one.
  void relink();

  /// All records, in the order in which they lie.
  const std::vector<qc_Record>& all() const noexcept { return records_; }
  /// The record that begins at a place; null for none.
  const qc_Record* at(std::streamoff place) const noexcept;
  const qc_Record* mark(std::int32_t number) const noexcept { return found(marks_, number); }
  const qc_Record* object(std::int32_t id) const noexcept { return found(objects_, id); }

  using Numbers = std::map<std::int32_t, std::size_t>;
  const Numbers& marks() const noexcept { return marks_; }
  const Numbers& objects() const noexcept { return objects_; }
  /// The first pointer at or behind a place; null for none.
  const qc_Record* pointerFrom(std::streamoff place) const noexcept;

  /// The first number for a mark, from where numbering begins, that is free.
  std::int32_t freeMark();
  void numberMarksFrom(std::int32_t number) noexcept { firstMark_ = freeMark_ = number; }

  /// Gives a mark or a pointer another number. Either the old or the new one is in the file at any moment.
  void renumber(const qc_Record& record, std::int32_t number);
  void remove(const qc_Record& record);

  /// The largest identifier that may be in use in the data. Reads what lies behind the last record.
  std::int32_t largestIdentifier();
  /// Says that identifiers up to `lastId` are in use, which were given to what was stored at `place`; for what lies
  /// where nobody looks for them.
  void countIdentifiers(std::streamoff place, std::int32_t lastId);

 private:
  friend class qc_RecordAddition;
  const qc_Record* found(const Numbers& numbers, std::int32_t number) const noexcept;
  std::size_t indexFrom(std::streamoff place) const noexcept;
  const qc_Record& tail() const noexcept { return records_.empty() ? anchor_ : records_.back(); }
  bool add(const qc_Record& record);
  void forget(std::size_t index) noexcept;
  void dropFrom(std::size_t count) noexcept;
  void freeNumber(std::int32_t number) noexcept;

  bool read(std::streamoff place, qc_Record& record);
  bool isAnchorLost(std::streamoff end);
  std::streamoff follow(std::streamoff& end);
  bool isInside(const qc_Record& record, std::streamoff end) const noexcept;
  bool isInChain(const qc_Record& record, std::streamoff end);
  bool isFollowing(const qc_Record& record, std::streamoff end);
  bool isNamed(const qc_Record& record, std::streamoff end);
  bool isNamedByNext(const qc_Record& record, std::streamoff end);
  std::streamoff tailEnd();
  template <class Read>
  auto readAside(Read read);
  bool readSized(std::streamoff place, qc_Record& record, std::streamoff end);
  bool isMissing(std::streamoff place, std::streamoff end);
  bool isWhole(const qc_Record& record, std::streamoff end);
  std::streamoff lostObject(std::streamoff end);
  std::streamoff lostLink(std::streamoff end);
  bool isBegun(std::streamoff place);
  std::vector<std::streamoff> begunFrom(std::streamoff place);
  bool isFront(const unsigned char* head, std::size_t count);
  void settle(std::streamoff end);
  template <class Found>
  void scan(std::streamoff from, Found found);
  std::vector<std::streamoff> candidates(std::streamoff from);
  bool isNamedAt(qcUInt64 field, std::streamoff place, std::streamoff end);

  class Ungated;
  void cutLink();
  void giveUp();
  void cleanStale();
  void announce(std::streamoff place, std::int32_t lastId);
  void announceLast(std::int32_t lastId);
  void writeHead(const qc_Record& record);
  void checkClosed() const;
  template <class Write>
  void writeAt(std::streamoff place, Write write);
  template <class Word>
  void overwrite(std::streamoff place, Word word);

  qcArchive& archive_;
  bool anchored_ = false;
  qc_Record anchor_;
  std::vector<qc_Record> records_;  // in order of place
  Numbers marks_, objects_;
  std::set<std::size_t> pointers_;
  std::int32_t firstMark_ = 1, freeMark_ = 1;  // no number between them is free
  qc_RecordAddition* open_ = nullptr;
  struct Replaced {
    std::size_t index, by;
  };
  std::vector<Replaced> replaced_;  // marks whose numbers were taken over by others that are not linked yet
  std::vector<std::size_t> stale_;  // marks without a number whose bytes do not say so yet
  bool inObject_ = false;           // the body of the last record is being written
  bool isSizeLost_ = false;         // the head of the last record, an object, says 0
  std::streamoff unfinished_ = 0;
  std::streamoff openedEnd_ = 0;  // where the data ended when the archive was opened
  std::streamoff broken_ = 0;
};

/// Records on their way into the chain, which become part of it together. Unless they are linked, what was written of
/// them is cut off again. One that is made while another one is open adds to it.
class qc_RecordAddition {
 public:
  /// Takes what comes from where the archive is on. `lastId` is the largest identifier given out so far.
  qc_RecordAddition(qc_RecordChain& chain, std::int32_t lastId);
  ~qc_RecordAddition();
  qc_RecordAddition(const qc_RecordAddition&) = delete;
  qc_RecordAddition& operator=(const qc_RecordAddition&) = delete;

  /// Whether it stands by itself, and is not linked yet.
  bool isOuter() const noexcept { return chain_.open_ == this; }
  /// Writes a head, and before the first one announces it. A mark may take over the number of an older one.
  void begin(unsigned char kind, std::int32_t id, qcUInt64 last = 0);
  /// What follows the head of the last record is written.
  void finish(std::int32_t lastId);
  /// Identifiers up to `lastId` are in use, also by other data that stands together with the records.
  void link(std::int32_t lastId = 0);

 private:
  void abandon() noexcept;

  qc_RecordChain& chain_;
  std::streamoff start_;
  std::size_t before_;  // records in the chain
  std::int32_t lastId_;
  bool linking_ = false;  // whether the link is there is unknown until it is written
  bool linked_ = false;
};
