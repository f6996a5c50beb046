// Chains of records whose links or head are gone.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vnxstd/archive/archive.h>

#include "std/archive/record.h"

/// Writes links again in a file that holds a seekable archive, while nobody has it open. All throw BadFile when the
/// medium fails.
class ChainMender {
 public:
  ChainMender(std::string path, std::ostream& report) : path_(std::move(path)), report_(report) {}

  /// Where the chain ends although a whole record behind its last one names that, the link to it is gone, and is
  /// written again, which is reported; and so on from there. What the anchor announces was never linked, and stays out.
  /// An anchor that leads nowhere although there are records is worth none, and is overwritten with zeros. Returns
  /// whether a link was written; others may be found then.
  bool mendLinks();
  /// Writes the head of a chain without records.
  void writeAnchor();

 private:
  struct Link {
    qcInt64 at;  // where the record begins that leads to
    qc_Record to;
  };

  void overwrite(qcInt64 at, const std::string& bytes);
  void link(qcInt64 at, qcInt64 to, bool swap);
  void dropAnchor(qcArchive& archive, const qc_Record& anchor);
  bool follows(qcArchive& archive, const qc_Record& next, const qc_Record& last);
  std::optional<qc_Record> lostRecord(qcArchive& archive, std::istream& file, const qc_Record& last, bool isFirst);
  qcInt64 foundBehind(const qc_Record& last, bool swap);
  bool keepWhole(const std::vector<Link>& links);
  bool isWhole(qcArchive& archive, const qc_Record& record);

  std::string path_;
  std::ostream& report_;
};
