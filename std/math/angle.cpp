#include "vnxstd/math/angle.h"

#include "vnxstd/archive/archive.h"

namespace {

template <class Number, class Angle>
qcArchive& serializeUnits(qcArchive& archive, Angle& angle) {
  Number units = angle.plain();
  archive || units;
  if (archive.isLoading()) angle = Angle(units);
  return archive;
}

}  // namespace

qcArchive& operator||(qcArchive& archive, qcRadian& angle) { return serializeUnits<double>(archive, angle); }
qcArchive& operator||(qcArchive& archive, qcDegree& angle) { return serializeUnits<double>(archive, angle); }
qcArchive& operator||(qcArchive& archive, qcAngle8& angle) { return serializeUnits<std::uint8_t>(archive, angle); }
qcArchive& operator||(qcArchive& archive, qcAngle16& angle) { return serializeUnits<std::uint16_t>(archive, angle); }
