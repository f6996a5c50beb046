// The canonical names of types.
#pragma once

#include <string>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Utilities of the development environment.
class VNXSTD_EXPORT qcDevEnv {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT UserCancelled : public qc_ErrorLeaf<UserCancelled, Errors, 0x10001000> {};

  /// The plain qualified name of a type from the text that std::type_info::name() gives on this platform: C++ spelling,
  /// no "class " or "struct ", no space except between words, ">>" for closing templates
  /// ("qcArchive::Eof", "qcPelRoot<unsigned char>", "qcPelRoot<qcPair<long>>"). A null pointer gives an empty text.
  static std::string canonicalTypeName(const char* platformName);
};
