#include "info.h"

#include <iomanip>
#include <ostream>
#include <set>

#include <vnxstd/archive/text.h>
#include <vnxstd/dib/dib.h>
#include <vnxstd/except/typename.h>
#include <vnxstd/math/xfbase.h>
#include <vnxstd/shapes/line.h>
#include <vnxstd/vdb/vdbarch.h>

#include "files.h"
#include "format.h"
#include "json.h"
#include "measurement.h"
#include "objects.h"

namespace {

void row(std::ostream& out, const char* name, const std::string& value) {
  out << "  " << std::left << std::setw(14) << name << lineText(value) << '\n';
}
std::string sizeText(long width, long height) { return formatted("%ld x %ld px", width, height); }
std::string boxText(const qcRect& box) {
  return formatted("(%g, %g) size (%g, %g)", box.origin().x(), box.origin().y(), box.size().x(), box.size().y());
}

void describeBitmap(const std::wstring& name, std::ostream& out) {
  qcDIB bitmap;
  bitmap.init(name);
  row(out, "kind", "bitmap");
  row(out, "size", sizeText(bitmap.width(), bitmap.height()));
  row(out, "depth", formatted("%d bits per pixel", bitmap.bitCount()));
  if (!bitmap.colourTable().empty()) row(out, "colours", formatted("%zu", bitmap.colourTable().size()));
  row(out, "rows",
      formatted("%s%s", bitmap.isTopDown() ? "top-down" : "bottom-up",
                bitmap.compression() == 3 ? ", bit fields" : ""));
  if (bitmap.xResolution() > 0)
    row(out, "resolution", formatted("%ld x %ld px/m", bitmap.xResolution(), bitmap.yResolution()));
  row(out, "offset", formatted("(%ld, %ld)", bitmap.xOffset(), bitmap.yOffset()));
}

void describeContents(qcPersistent& object, std::ostream& out) {
  if (auto* error = dynamic_cast<qcException*>(&object)) row(out, "  message", qf_NarrowLossy(error->message(false)));
  if (auto* measurement = dynamic_cast<vnxMeasurement*>(&object)) {
    row(out, "  image", sizeText(measurement->image.width(), measurement->image.height()));
    row(out, "  region", boxText(measurement->region.outline().boundingBox()));
    row(out, "  fit", measurement->shapeText());
    row(out, "  points", formatted("%zu, %ld used", measurement->points.size(), measurement->inliers()));
    row(out, "  rms", measurement->lengthText(measurement->rms));
    if (measurement->isCalibrated()) row(out, "  pixel", measurement->lengthText(measurement->pixel()));
  }
  if (auto* shape = dynamic_cast<qcShape*>(&object); shape && shape->isFinite() && !shape->isEmpty()) {
    row(out, "  box", boxText(shape->boundingBox()));
    row(out, "  perimeter", formatted("%.6g", shape->perimeter()));
  }
  if (auto* line = dynamic_cast<qcFLine*>(&object))
    row(out, "  line", formatted("angle %.4f deg, distance %g", line->angle().plain(), line->distance()));
  if (auto* xform = dynamic_cast<qc2XformBase*>(&object)) row(out, "  linear", xform->isLinear() ? "yes" : "no");
}

}  // namespace

void describeObject(qcPersistent& object, std::ostream& out) {
  row(out, "object", qcDevEnv::canonicalTypeName(typeid(object).name()));
  try {
    describeContents(object, out);
  } catch (const qcException& error) {  // a sound object may have no finite box
    row(out, "  unmeasured", qf_NarrowLossy(error.message(false)));
  }
}

namespace {

// The records need classes of other programs: `vnx db` shows them. False for other archives.
bool describeDatabase(const std::wstring& name, std::ostream& out) {
  const std::string identification = qcVDBArchive(name, false, true).identification();
  if (!identification.empty()) row(out, "database", identification + "; vnx db list shows its records");
  return !identification.empty();
}

void describeIndex(const qcArchive& archive, std::ostream& out) {
  long marks = 0;
  for (long mark = archive.firstMarkNum(); mark != 0; mark = archive.nextMarkNum(mark)) ++marks;
  if (marks != 0) row(out, "marks", formatted("%ld, %ld to %ld", marks, archive.firstMarkNum(), archive.lastMarkNum()));
  if (const auto at = static_cast<std::streamoff>(archive.unfinished()); at != 0)
    row(out, "unfinished",
        formatted("a record, from byte %lld on, that its writer did not live to finish", static_cast<long long>(at)));
}

void describeArchive(const std::string& path, std::ostream& out) {
  ObjectReader reader(path);
  row(out, "kind", "archive");
  row(out, "version", formatted("%ld", reader.archive().version()));
  row(out, "byte order", reader.archive().ordering() == qcArchive::littleEndian ? "little-endian" : "big-endian");
  row(out, "seekable", reader.isSeekable() ? "yes" : "no");
  if (reader.isSeekable()) describeIndex(reader.archive(), out);
  row(out, "bytes", formatted("%lld", reader.archive().remaining() + reader.archive().tell()));
  if (!reader.isSeekable() || !describeDatabase(qf_Widen(path), out)) {
    std::set<const qcPersistent*> described;
    while (const auto next = reader.next()) {
      qcPersistent* const object = *next;
      if (!object)
        row(out, "object", "none (a null pointer)");
      else if (described.insert(object).second)
        describeObject(*object, out);
      else
        row(out, "object", qcDevEnv::canonicalTypeName(typeid(*object).name()) + ", described above");
    }
  }
  if (const int count = reader.unknown(); count > 0)
    row(out, "unknown", formatted("%d of classes that are not known here", count));
  if (const auto at = reader.unnamed())
    row(out, "data",
        formatted("values that only their writer can name, from byte %lld on", static_cast<long long>(*at)));
  if (const std::string damage = damageOf(reader.archive()); !damage.empty()) throw FileError(path, damage);
}

}  // namespace

void describeFile(const std::string& path, std::ostream& out) {
  const FileKind kind = kindOf(path);
  out << path << '\n';
  onFile(path, [&](const std::wstring& name) {
    if (kind == FileKind::bitmap) return describeBitmap(name, out);
    describeArchive(path, out);
  });
}
