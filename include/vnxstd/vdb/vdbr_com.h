// Records of a tool database, and their headers.
#pragma once

#include <cstdint>
#include <string>

#include "vnxstd/archive/persistent.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/vdb/vdb.h"

class qcArchive;
class qcVDBArchive;

/// What a database keeps in front of a record: how the result was graded, when it was saved and by now, its type, how
/// far it lies from what was expected, and a comment. A value.
class VNXSTD_EXPORT qcVDBHeader {
 public:
  /// The grade and type that the result had when it was first saved.
  qcVDB::Grade savedGrade() const noexcept { return savedGrade_; }
  void savedGrade(qcVDB::Grade grade) noexcept { savedGrade_ = grade; }
  qcVDB::ResultType savedType() const noexcept { return savedType_; }
  void savedType(qcVDB::ResultType type) noexcept { savedType_ = type; }

  /// Archives keep one signed byte of grades and types.
  qcVDB::Grade currentGrade() const noexcept { return currentGrade_; }
  void currentGrade(qcVDB::Grade grade) noexcept { currentGrade_ = grade; }
  qcVDB::ResultType currentType() const noexcept { return currentType_; }
  void currentType(qcVDB::ResultType type) noexcept { currentType_ = type; }

  float distanceMetric() const noexcept { return distanceMetric_; }
  void distanceMetric(float metric) noexcept { distanceMetric_ = metric; }
  const std::wstring& comment() const noexcept { return comment_; }
  void comment(const std::wstring& comment) { comment_ = comment; }

  /// The number of the record; 0 when it is not stored yet, and gets the next one. Not archived: the database knows it.
  long recordNum() const noexcept { return recordNum_; }
  void recordNum(long number) noexcept { recordNum_ = number; }
  void zeroRecordNum() noexcept { recordNum_ = 0; }

  /// Whether a database takes it: grades and types that fit into a signed byte, a number of a record or 0, and a
  /// comment of at most 32767 UTF-16 units that is well formed.
  bool repInvariant() const;

  friend bool operator==(const qcVDBHeader&, const qcVDBHeader&) = default;

 private:
  friend class qcVDBArchive;
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcVDBHeader& header);
  void writeGrades(qcArchive& archive) const;

  qcVDB::Grade savedGrade_ = qcVDB::good;
  qcVDB::ResultType savedType_ = qcVDB::none;
  qcVDB::Grade currentGrade_ = qcVDB::good;
  qcVDB::ResultType currentType_ = qcVDB::none;
  float distanceMetric_ = 0;
  std::wstring comment_;
  long recordNum_ = 0;
};

/// Stores or loads a header; the low bytes of grades and types are stored, and signed bytes are read back. A load that
/// throws leaves the header as it was, and one that succeeds its record number.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcVDBHeader& header);

/// The base of records: a virtual base, so that a record can have other persistent bases. It adds nothing to what a
/// record stores of itself; the database stores the header in front of it. Through a connection, or in another archive,
/// a record goes without its header, which is sent by itself: archive || record.header().
class VNXSTD_EXPORT qcVDBRecordBase : public virtual qcPersistent {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// A record without an object.
  class VNXSTD_EXPORT NoResult : public qc_ErrorLeaf<NoResult, Errors, 0x10000B00> {};

  qcVDBHeader& header() noexcept { return header_; }
  const qcVDBHeader& header() const noexcept { return header_; }

  /// The database that the record was loaded from; null for others. The record does not keep it alive.
  qcVDBArchive* database() const noexcept { return database_; }

  /// Whether there is another tool that could have made this result.
  virtual bool alternateToolExists() const { return false; }

 protected:
  qcVDBRecordBase() = default;
  qcVDBRecordBase(const qcVDBRecordBase&) = default;
  qcVDBRecordBase& operator=(const qcVDBRecordBase&) = default;

 private:
  friend class qcVDBArchive;
  qcVDBHeader header_;
  qcVDBArchive* database_ = nullptr;
};
