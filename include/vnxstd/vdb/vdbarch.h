// A tool database: a file of numbered records, each one persistent object behind a header.
#pragma once

#include <memory>
#include <string>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"
#include "vnxstd/vdb/vdbr_com.h"

/// A database in a seekable archive; docs/database-format.md gives its layout. It is positioned at one of its records,
/// the current one, or at none, as after opening it and after the record was removed.
///
/// A record is in the database once it is stored in full: a program that is killed meanwhile leaves all others. The
/// number of a record is found in a time that is logarithmic in the number of records. What an archive throws comes
/// through: BadFile and the errors of a bad header when opening, BadBuffer when a read-only database is changed. Where
/// the file is damaged, archive().damaged() says so: the records before that place are found, and storing throws
/// BadContent until archive().salvage() and relink(), or `vnx db salvage`, have linked those behind it again. Records
/// that another program stores are found after opening the database again.
///
/// For one thread at a time; the default database can be asked for and set by any.
class VNXSTD_EXPORT qcVDBArchive {
 public:
  /// The largest number of a record.
  static constexpr long kLastNumber = 2147483645;

  /// Opens the database in a file, or makes a new one in its place. What is made can be written; `readOnly` counts for
  /// one that is opened.
  qcVDBArchive(const std::wstring& path, bool create, bool readOnly);
  /// On an archive, which it owns from here on, also when this throws. Throws qcBadPointer for null, and
  /// qcArchive::NotSeekable.
  explicit qcVDBArchive(qcArchive* archive);
  ~qcVDBArchive();
  qcVDBArchive(const qcVDBArchive&) = delete;
  qcVDBArchive& operator=(const qcVDBArchive&) = delete;

  /// On the same archive.
  friend bool operator==(const qcVDBArchive& a, const qcVDBArchive& b) noexcept { return a.archive_ == b.archive_; }

  bool isReadOnly() const noexcept { return archive_->isReadOnly(); }
  qcArchive& archive() noexcept { return *archive_; }

  /// What the file calls itself, "Vantix Tool Database 1.0 gen 2026-11-21" with the day on which it was made; empty in
  /// a file that does not say.
  std::string identification();

  // Each of these makes another record the current one, in order of number, and returns its number: 0, and no current
  // record, when there is none. Without a current record the next one is the first, and there is none before.
  long firstRecord();
  long lastRecord();
  long nextRecord();
  long prevRecord();
  /// Throws qcArchive::NotFound, and leaves no current record, when there is no such record.
  long gotoRecord(long number);

  bool isFirstRecord() const { return isPositioned() && current_ == archive_->firstMarkNum(); }
  bool isLastRecord() const { return isPositioned() && current_ == largest(); }
  bool empty() const { return largest() == 0; }
  bool isPositioned() const noexcept { return current_ >= 1 && current_ <= kLastNumber; }
  /// The number of the current record; 0 for none.
  long currentRecord() const noexcept { return current_; }

  /// Stores a record under the number in its header, or under the next free one when that is 0, makes it the current
  /// one and returns its number. Throws qcBadPointer for null, qcArchive::Duplicate for a number that is taken,
  /// BadContent for a header that repInvariant refuses and when there is no number left, and what storing an object
  /// throws; the database is then as it was. After opening, the next free number is the first one that no record has;
  /// to keep records in the order of time where some were removed, ask for the number behind lastRecord().
  long storeNewRecord(const qcVDBRecordBase* record);

  // These work on the current record; without one, and when it is no longer there, they throw qcArchive::NotFound and
  // leave no current record.

  qcVDBHeader loadHeader();
  /// A new object, which the caller owns, with its header. Throws qcVDBRecordBase::NoResult for a record without an
  /// object, qcArchive::BadType when the object is no record, and what loading an object throws.
  qcVDBRecordBase* loadRecord();
  /// The name of the class of its object. Throws qcVDBRecordBase::NoResult for a record without one.
  std::string recordTypeName();

  /// Stores another record under the number of the current one. There is the old one or the new one at any moment: it
  /// syncs. The room of the old one is not used again. Throws like storeNewRecord.
  void replaceRecord(const qcVDBRecordBase* record);
  /// Writes grades, types and distance metric over those of the current record; comment and object stay. Throws
  /// qcArchive::BadContent for a header that repInvariant refuses.
  void replaceGrade(const qcVDBHeader& header);
  void replaceGrade(const qcVDBRecordBase* record);
  /// There is no current record afterwards.
  void removeRecord();
  /// The record is the current one under its new number; syncs. Throws qcArchive::Duplicate for a number that is
  /// taken and BadContent for one that no record can have.
  void renumberRecord(long number);

  /// Hands what was stored to the medium, for good where the medium can promise that.
  void sync() { archive_->sync(); }

  /// The default database of the process, or null; not owned. Safe from several threads.
  static qcVDBArchive* globalArchive() noexcept;
  static void globalArchive(qcVDBArchive* database) noexcept;
  /// Whether the default database is to be used, true at first; for those who ask. Safe from several threads.
  static bool isGlobalEnabled() noexcept;
  static void isGlobalEnabled(bool enabled) noexcept;

 private:
  void positionArchive();
  void identify();
  // Marks of larger numbers, which applications may have stored, are no records.
  long largest() const { return archive_->prevMarkNum(kLastNumber + 1); }
  long moveTo(long number) noexcept { return current_ = number > kLastNumber ? 0 : number; }
  long store(const qcVDBRecordBase* record, long replaced);

  std::unique_ptr<qcArchive> archive_;
  long current_ = 0;
  long nextNumber_ = 1;
};
