// What a database file calls itself.
#pragma once

#include <string>

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/persistent.h"

/// A text, stored as the first object of a database; no record refers to it.
class qc_VDBIdentification : public qcPersistent {
 public:
  static qcPersistent* make() { return new qc_VDBIdentification; }
  std::string text;

 protected:
  void dispatchSerialize(qcArchive& archive) override {
    serializeLevel(archive, this, 0, &qc_VDBIdentification::serialize_);
  }
  void serialize_(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(archive, version, 0, "std/vdb/vdbarch", 60);
    qcPersistent::dispatchSerialize(archive);
    archive || text;
  }
};
