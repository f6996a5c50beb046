#include "vnxstd/except/exception.h"

#include <locale>
#include <sstream>

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/text.h"
#include "vnxstd/except/failure.h"
#include "vnxstd/except/typename.h"

namespace {

// People search logs and old reports for the places named in errors, so these do not follow the source.
constexpr const char* kExceptSource = "std/except/except";
constexpr int kExceptionVersionLine = 61;
constexpr int kExceptionWithStringVersionLine = 98;

constexpr const wchar_t* kNoInformation = L"no further information provided";

const qc_Instantiator exceptionRegistered(typeid(qcException), nullptr);
const qc_ErrorRegistration<qcExceptionWithString, qcUnknownError, qcInvariantFailure, qcBadPointer,
                           qcSysTimeBadArgument, qcUnsupportedHW, qcBadUnicodeChar>
    topLevelRegistered;

}  // namespace

std::wstring qcException::message(bool withTypeName) const {
  std::wostringstream out;
  out.imbue(std::locale::classic());  // numbers without the grouping of the user's language
  if (withTypeName) out << qf_WidenLossy(qcDevEnv::canonicalTypeName(typeid(*this).name())) << L": ";
  message_(out);
  return out.str();
}

void qcException::message(std::wostream& out) const { out << message(true); }

void qcException::message_(std::wostream& out) const { out << kNoInformation; }

void qcException::dispatchSerialize(qcArchive& archive) { serializeLevel(archive, this, 0, &qcException::serialize_); }

void qcException::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kExceptSource, kExceptionVersionLine);
  qcPersistent::dispatchSerialize(archive);
}

void qcExceptionWithString::message_(std::wostream& out) const {
  out << (info_.empty() ? std::wstring(kNoInformation) : info_);
}

void qcExceptionWithString::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qcExceptionWithString::serialize_);
}

void qcExceptionWithString::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kExceptSource, kExceptionWithStringVersionLine);
  qcException::dispatchSerialize(archive);
  archive || info_;
}

void qf_CheckErrorVersion(unsigned char version, const std::type_info& type) {
  if (version != 0) throw qcArchive::UnknownVersion(qcDevEnv::canonicalTypeName(type.name()).c_str(), 0);
}

void qf_ThrowBadPointer() { throw qcBadPointer(); }

qcUnknownError::qcUnknownError(long code) {
  const auto bits = static_cast<std::uint32_t>(code);
  if (bits != 0) info_ = L"Internal error code: " + qfHex32(bits, 8);
}
