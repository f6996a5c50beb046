#include "info.h"

#include <array>
#include <fstream>
#include <iomanip>
#include <map>
#include <memory>
#include <ostream>

#include <vnxstd/archive/file.h>
#include <vnxstd/archive/text.h>
#include <vnxstd/dib/dib.h>
#include <vnxstd/except/typename.h>
#include <vnxstd/math/xfbase.h>

#include "files.h"
#include "format.h"
#include "measurement.h"

namespace {

void row(std::ostream& out, const char* name, const std::string& value) {
  out << "  " << std::left << std::setw(14) << name << value << '\n';
}
std::string sizeText(long width, long height) { return formatted("%ld x %ld px", width, height); }

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

void describeObject(qcPersistent& object, std::ostream& out) {
  row(out, "object", qcDevEnv::canonicalTypeName(typeid(object).name()));
  if (auto* error = dynamic_cast<qcException*>(&object)) row(out, "  message", qf_Narrow(error->message(false)));
  if (auto* measurement = dynamic_cast<vnxMeasurement*>(&object)) {
    row(out, "  image", sizeText(measurement->image.width(), measurement->image.height()));
    row(out, "  fit", measurement->shapeText());
    row(out, "  points", formatted("%zu, %ld used", measurement->points.size(), measurement->inliers()));
    row(out, "  rms", measurement->lengthText(measurement->rms));
    if (measurement->isCalibrated()) row(out, "  pixel", measurement->lengthText(measurement->pixel()));
  }
  if (auto* shape = dynamic_cast<qcShape*>(&object); shape && shape->isFinite() && !shape->isEmpty()) {
    const qcRect box = shape->boundingBox();
    row(out, "  box",
        formatted("(%g, %g) size (%g, %g)", box.origin().x(), box.origin().y(), box.size().x(), box.size().y()));
    row(out, "  perimeter", formatted("%.6g", shape->perimeter()));
  }
  if (auto* xform = dynamic_cast<qc2XformBase*>(&object)) row(out, "  linear", xform->isLinear() ? "yes" : "no");
}

void describeArchive(const std::string& path, bool seekable, std::ostream& out) {
  constexpr unsigned char kObjectRecord[] = {0x4F, 0xE5, 0x70};
  qcFileArchive archive(qf_Widen(path), qcArchive::loading, qcArchive::littleEndian, seekable, true);
  row(out, "kind", "archive");
  row(out, "version", formatted("%ld", archive.version()));
  row(out, "byte order", archive.ordering() == qcArchive::littleEndian ? "little-endian" : "big-endian");
  row(out, "seekable", seekable ? "yes" : "no");
  row(out, "bytes", formatted("%lld", archive.remaining() + 2));
  std::ifstream bytes(path, std::ios::binary);
  // Objects that stand by themselves carry their type; anything else only its writer can name.
  std::vector<qcPtrHandle<qcRepBase>> shared;
  std::map<const qcPersistent*, std::unique_ptr<qcPersistent>> owned;  // once each: two pointers may name one object
  while (archive.remaining() > 0) {
    const std::streamoff at = archive.tell();
    std::array<char, 3> tag{};
    bytes.seekg(at).read(tag.data(), tag.size());
    if (!bytes || !std::equal(tag.begin(), tag.end(), kObjectRecord,
                              [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; })) {
      row(out, "data",
          formatted("values that only their writer can name, from byte %lld on", static_cast<long long>(at)));
      return;
    }
    qcPersistent* object = nullptr;
    qcPersistent::serializePointer(archive, nullptr, object);
    if (!object) {
      row(out, "object", "none (a null pointer)");
      continue;
    }
    if (auto* counted = dynamic_cast<qcRepBase*>(object))
      shared.emplace_back(counted);
    else
      owned.try_emplace(object, object);
    describeObject(*object, out);
  }
}

}  // namespace

void describeFile(const std::string& path, std::ostream& out) {
  requireReadable(path);
  char head[2] = {0, 0};
  const bool hasHead = static_cast<bool>(std::ifstream(path, std::ios::binary).read(head, 2));
  const bool isBitmap = hasHead && head[0] == 'B' && head[1] == 'M';
  const bool isArchive = hasHead && (head[0] == 2 || head[0] == 3) && (head[1] == 0 || head[1] == 1);
  if (!isBitmap && !isArchive) throw FileError(path, "neither a bitmap nor an archive");
  out << path << '\n';
  onFile(path, [&](const std::wstring& name) {
    if (isBitmap) return describeBitmap(name, out);
    describeArchive(path, head[0] == 3, out);
  });
}
