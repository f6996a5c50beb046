#include "vnxstd/vdb/vdbr_com.h"

#include <bit>
#include <limits>

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/text.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/vdb/vdbarch.h"

namespace {

const qc_ErrorRegistration<qcVDBRecordBase::Errors, qcVDBRecordBase::NoResult> registered;

constexpr const char* kSource = "std/vdb/vdbr_com";
constexpr int kGradesVersionLine = 47;
constexpr int kHeaderVersionLine = 110;
constexpr std::size_t kLongestComment = 32767;  // UTF-16 units

bool isByte(std::int32_t value) { return value >= -128 && value <= 127; }

template <class Enum>
void serializeByte(qcArchive& archive, Enum& value) {
  auto byte = static_cast<signed char>(value);
  archive || byte;
  if (archive.isLoading()) value = static_cast<Enum>(byte);
}

void serializeMetric(qcArchive& archive, float& metric) {
  auto bits = std::bit_cast<std::uint32_t>(metric);
  archive || bits;
  if (archive.isLoading()) metric = std::bit_cast<float>(bits);
}

}  // namespace

bool qcVDBHeader::repInvariant() const {
  try {
    if (qf_Utf16FromWide(comment_).size() > kLongestComment) return false;
  } catch (const qcBadUnicodeChar&) {
    return false;
  }
  return isByte(savedGrade_) && isByte(savedType_) && isByte(currentGrade_) && isByte(currentType_) &&
         recordNum_ >= 0 && recordNum_ <= qcVDBArchive::kLastNumber;
}

qcArchive& operator||(qcArchive& archive, qcVDBHeader& header) {
  unsigned char version = 0;
  archive || version;
  const qcArchiveCompound compound(archive);
  qcArchive::checkVersion(archive, version, 0, kSource, kHeaderVersionLine);
  qcVDBHeader read = header;
  serializeByte(archive, read.currentGrade_);
  serializeByte(archive, read.currentType_);
  serializeByte(archive, read.savedGrade_);
  serializeByte(archive, read.savedType_);
  serializeMetric(archive, read.distanceMetric_);
  archive || read.comment_;
  if (archive.isLoading()) header = std::move(read);
  return archive;
}

// Over the header that the archive is at; what lies behind the metric stays as it is. A header that is not there in
// full is no room to write in: another record may begin there.
void qcVDBHeader::writeGrades(qcArchive& archive) const {
  archive.mode(qcArchive::loading);
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, kSource, kGradesVersionLine);
  const qcArchive::Position grades = archive.tell();
  qcVDBHeader replaced;
  archive.seek(-1, 1);
  archive || replaced;
  archive.seek(grades);
  archive.mode(qcArchive::storing);
  qcVDBHeader written = *this;
  serializeByte(archive, written.currentGrade_);
  serializeByte(archive, written.currentType_);
  serializeByte(archive, written.savedGrade_);
  serializeByte(archive, written.savedType_);
  serializeMetric(archive, written.distanceMetric_);
  archive.mode(qcArchive::loading);
}
