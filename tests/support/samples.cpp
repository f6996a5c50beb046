#include "support/samples.h"

#include <sstream>

#include "support/archivable.h"
#include "support/nodes.h"
#include "vnxstd/archive.h"
#include "vnxstd/dib.h"
#include "vnxstd/math.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/rlebuf/rlebuf.h"
#include "vnxstd/shapes.h"
#include "vnxstd/vdb.h"

/// A record of a database. What its two handles refer to may be one shape.
struct GoldenRecord : Archivable<GoldenRecord, qcVDBRecordBase> {
  void fields(qcArchive& archive) { archive || found || expected; }
  qcPtrHandle<qcShape> found, expected;
};

namespace {

using ShapeHandle = qcPtrHandle<qcShape>;

ArchiveSample shape(const std::string& name, qcShape* object) { return value(name, ShapeHandle(object)); }
ArchiveSample xform(const std::string& name, qc2XformBase* object) {
  return value(name, qcPtrHandle<qc2XformBase>(object));
}

template <class T>
ArchiveSample image(const std::string& name, std::initializer_list<T> pels) {
  qcPelBuffer<T> buffer(qcPelRect(-3, 7, 3, 2), 4);
  buffer.clientFromImageXform(qcXform<2>(qcMatrix<2>(2, 0, 0, 3), qcVector<2>(-1, 0.5)));
  long i = 0;
  for (const T& pel : pels) {
    buffer.put(-3 + i % 3, 7 + i / 3, pel);
    ++i;
  }
  return value("image_" + name, buffer);
}

// Every error that is registered, in order of name, each as a pointer.
ArchiveSample errors() {
  using Errors = std::vector<std::shared_ptr<qcPersistent>>;
  const auto storing = [](const std::shared_ptr<Errors>& all) -> Store {
    return [all](qcArchive& to) {
      for (const auto& error : *all) storePointer(to, *error);
    };
  };
  const auto every = std::make_shared<Errors>();
  qf_VisitRegistered(
      [](const qc_RegistryEntry& entry, void* context) {
        if (!entry.make) return;
        std::shared_ptr<qcPersistent> made(entry.make());
        if (dynamic_cast<qcException*>(made.get())) static_cast<Errors*>(context)->push_back(std::move(made));
      },
      every.get());
  return {"errors", storing(every), [=, size = every->size()](qcArchive& from) -> Store {
            const auto all = std::make_shared<Errors>();
            while (all->size() < size) {
              qcPersistent* const loaded = loadPointer(from);
              const auto known = std::find_if(all->begin(), all->end(), [&](auto& o) { return o.get() == loaded; });
              all->push_back(known != all->end() ? *known : std::shared_ptr<qcPersistent>(loaded));
            }
            return storing(all);
          }};
}

// A run-length image, as a pointer. Encoding it again would take another time, hence rows that were built by hand.
ArchiveSample runs() {
  qcRLEBufferBlock block(9);
  const qcRLEBufferRun all[] = {{0, 255}, {0, 45}, {0, 0}, {0, 3}, {1, 4}, {200, 1}, {0, 255}, {0, 37}, {0, 0}};
  std::copy(std::begin(all), std::end(all), block.runs.get());
  const std::vector<const qcRLEBufferRun*> rows = {block.runs.get(), block.runs.get() + 3};
  std::vector<qcRLEBufferBlock> blocks;
  blocks.push_back(std::move(block));
  auto image = std::make_unique<qcRLEBuffer>();
  image->hintNumRuns(100);
  image->becomeOwner(300, rows, std::move(blocks));
  image->offset(-3, 7);
  image->clientFromImageXform(qcXform<2>(qcMatrix<2>(2, 0, 0, 3), qcVector<2>(-1, 0.5)));
  return held("qcRLEBuffer", std::make_shared<std::unique_ptr<qcRLEBuffer>>(std::move(image)));
}

qcPtrHandle_const<qc2XformBase> linear(double a, double x) {
  return new qc2XformLinear(qcMatrix<2>(a, 1, -1, 2), qcVector<2>(x, 4));
}

template <class... T>
std::vector<ArchiveSample> listOf(T... samples) {
  return {std::move(samples)...};
}

}  // namespace

std::vector<ArchiveSample> archiveSamples() {
  qcRandomUniform uniform(77);
  for (int i = 0; i < 2000; ++i) uniform.next(0, 1);
  const auto twice = linear(3, 1);
  auto* composed = new qc2XformComposed(twice, linear(5, 2), false, false);
  composed->postCompose(twice, false);
  const qc2XformPoly poly(2, {1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1}, qcVector<2>(7, 8), qcVector<2>(0.5, 0.25));
  const qc2XformDeform deform({{1, 0}, {-1, 0}, {0, 1}, {0, -1}, {2, 3}}, {{0, 1}, {1, 0}, {5, 1}, {1, -5}, {7, 7}},
                              0.5);
  qc2XformCache cache(linear(3, 1), linear(7, 1));
  const qcEllipse oldEllipse(qcVector<2>(1, 2), qcVector<2>(4, 3), qcRadian(0.5));
  const qcEllipse2 ellipse(qc2XformLinear(qcMatrix<2>(0, 3, 4, 0), qcVector<2>(1, 2)));
  // Half a disc, a square with a hole and an island in it, and a collection that holds one shape twice.
  const qcEllipseArc2 half(qcEllipse2({0, 0}, {}, {2, 2}, true, {}), qcRadian(0), qcRadian(qcRadian::turn / 2));
  auto* contour = new qcContourTree(true);
  contour->addChild(half);
  contour->addChild(qcLineSeg({-2, 0}, {2, 0}));
  const qcPtrHandle<qcShape> contourShape(contour);
  qcRegionTree hole(*contour, true);
  hole.addChild(qcRegionTree(qcCircle({0, 1}, 0.5)));
  auto* region = new qcRegionTree(qcRect({-3, -3}, {6, 6}));
  region->addChild(hole);
  // A mapped shape of a mapped shape.
  const qcMappedShape::Held seen(
      new qcMappedShape(contourShape, qc2XformPerspective(qcMatrix<3>(2, 0, 1, 0, 3, 0, 1, 0, 9)), false));
  qcVDBHeader header;
  header.currentGrade(static_cast<qcVDB::Grade>(200));
  header.savedType(static_cast<qcVDB::ResultType>(5));
  header.distanceMetric(1.5F);
  header.comment(L"\u00E4");
  qcShape::qcSampleParams params(0.5, 2, 40, true, false);
  params.uniformMode(true);
  qcShape::qcSampleResult samples;
  qcLineSeg(qcVector<2>(0, 0), qcVector<2>(9, 0)).sample(qcShape::qcSampleParams(0, 4, 40, true), samples);
  return listOf(
      value("text_narrow", std::string("Gr\xC3\xB6\xC3\x9F"
                                       "e")),
      value("text_wide", std::wstring(L"\u03C0 and \U00010348")),
      value("text_32", std::u32string(U"\x3C0 and \U00010348")),
      value("vector_of_doubles", std::vector<double>{0, -0.0, 1, 1e308, -5e-324}),
      value("vector_of_bools", std::vector<bool>{true, false, true}), value("qcPair", qcPair<long>(-2, 3)),
      value("qcVector2", qcVector<2>(1.5, -2)), value("qcVector3", qcVector<3>(1, 2, 3)),
      value("qcMatrix2", qcMatrix<2>(1, 2, 3, 4)), value("qcMatrix3", qcMatrix<3>(2, 0, 1, 0, 3, 0, 1, 0, 4)),
      value("qcXform2", qcXform<2>(qcMatrix<2>(1, 2, 3, 4), qcVector<2>(5, 6))),
      value("qcXform3", qcXform<3>(qcMatrix<3>(2, 0, 1, 0, 3, 0, 1, 0, 4), qcVector<3>(5, 6, 7))),
      value("qcRadian", qcRadian(0.25)), value("qcDegree", qcDegree(-30)), value("qcAngle8", qcAngle8(200)),
      value("qcAngle16", qcAngle16(40000)), value("qcRange", qcRange(-1, 3)),
      value("qcRange_full", qcRange::FullRange()), value("qcRange_empty", qcRange()),
      value("qcAngleRange", qcAngleRange(qcRadian(0.5), qcRadian(1.5), false)),
      value("qcStatistics", qcStatistics(std::vector<double>{1, 2, 4})), value("qcStatistics_none", qcStatistics()),
      value("qcVDBHeader", header), value("qcRandomUniform", uniform), value("qcRandomGaussian", qcRandomGaussian(-5)),
      xform("qc2XformLinear", new qc2XformLinear(qcMatrix<2>(1, 2, 3, 4), qcVector<2>(5, 6))),
      xform("qc2XformComposed", composed),
      xform("qc2XformPerspective", new qc2XformPerspective(qcMatrix<3>(2, 0, 1, 0, 3, 0, 1, 0, 4))),
      xform("qc2XformPoly", new qc2XformPoly(poly)), xform("qc2XformInverse", new qc2XformInverse(poly)),
      xform("qc2XformDeform", new qc2XformDeform(deform)), xform("qc2XformInverse_deform", new qc2XformInverse(deform)),
      value("qc2XformCache", cache), value("handle_null", qcPtrHandle<qcShape>()),
      shape("qcLine", new qcLine({0.6, 0.8}, {1, 2})), shape("qcFLine", new qcFLine(qcDegree(30), 12.5)),
      shape("qcLineSeg", new qcLineSeg({1, 2}, {3, 4})), shape("qcCircle", new qcCircle({1, 2}, 3)),
      shape("qcEllipse", new qcEllipse(oldEllipse)), shape("qcEllipse2", new qcEllipse2(ellipse)),
      shape("qcEllipseArc", new qcEllipseArc(oldEllipse, qcRadian(1), qcRadian(-2))),
      shape("qcEllipseArc2", new qcEllipseArc2(ellipse, qcRadian(1), qcRadian(2.5))),
      shape("qcRect", new qcRect({1, 2}, {3, 4})), shape("qcGenRect", new qcGenRect({1, 2}, {3, 4}, {-5, 6})),
      shape("qcAffineRectangle", new qcAffineRectangle({qcMatrix<2>(3, -5, 4, 6), {1, 2}})),
      shape("qcPolyline", new qcPolyline({{0, 0}, {4, 0}, {4, 3}}, true)), value("qcContourTree", contourShape),
      shape("qcRegionTree", region),
      shape("qcGeneralShapeTree", new qcGeneralShapeTree({contourShape, new qcCircle({1, 2}, 3), contourShape}, false)),
      shape("qcMappedShape", new qcMappedShape(seen, qc2XformLinear(qcMatrix<2>(1, 2, 3, 4), {5, 6}), false)),
      value("qcPerimPos", qcPerimPos(2, 0.5)), value("qcSampleParams", params), value("qcSampleResult", samples),
      value("qcPelRect", qcPelRect(-1, 2, 30, 40)), value("image_unbound", qcPelBuffer<unsigned char>()),
      image<unsigned char>("u8", {0, 1, 127, 128, 254, 255}), image<signed char>("s8", {0, 1, 127, -128, -2, -1}),
      image<unsigned short>("u16", {0, 1, 256, 65535, 4660, 9}), image<short>("s16", {0, 1, -256, 32767, -32768, 9}),
      image<unsigned long>("u32", {0, 1, 65536, 4294967295UL, 305419896, 9}),
      image<long>("s32", {0, 1, -65536, 2147483647, -2147483647L - 1, 9}),
      image<float>("f32", {0, 1, -0.5F, 3e38F, 1e-45F, 9}), image<double>("f64", {0, 1, -0.5, 1e308, 5e-324, 9}),
      image<qcPair<long>>("pair_s32", {{0, 1}, {-2, 3}, {4, 5}, {6, 7}, {8, 9}, {10, 11}}),
      image<qcPair<float>>("pair_f32", {{0, 1}, {-2, 3}, {4, 5}, {6, 7}, {8, 9}, {10, 0.5F}}),
      image<qcPackedRGB16Pel>("rgb16", {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {8, 4, 8}, {1, 2, 3}, {90, 80, 70}}),
      image<qcPackedRGB32Pel>(
          "rgb32", {{255, 0, 0, 1}, {0, 255, 0, 2}, {0, 0, 255, 3}, {8, 4, 8, 4}, {1, 2, 3, 5}, {90, 80, 70, 255}}),
      image<qc3PlanePel>("planes", {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}, {13, 14, 15}, {16, 17, 18}}), runs(),
      errors());
}

namespace {

std::string numbered(std::string name, auto number) { return name += std::to_string(number); }

ArchiveSample graph(std::size_t size) {
  const auto handle = [](const NodeHandle& root) {
    return std::shared_ptr<NodeHandle>(new NodeHandle(root), [](NodeHandle* held) { dissolve(*held), delete held; });
  };
  std::mt19937 random(static_cast<unsigned>(size));
  return {numbered("graph_", size), [root = handle(randomGraph(random, size))](qcArchive& to) { to << *root; },
          [handle](qcArchive& from) -> Store {
            const auto loaded = handle({});
            from || *loaded;
            return [loaded](qcArchive& to) { to || *loaded; };
          }};
}

/// The object, which is refused when it is of another class.
template <class T>
std::unique_ptr<T> as(qcPersistent* object) {
  std::unique_ptr<qcPersistent> owned(object);
  std::unique_ptr<T> wanted(dynamic_cast<T*>(object));
  if (!wanted) throw qcArchive::BadContent("golden", 1);
  static_cast<void>(owned.release());
  return wanted;
}

// What a program has left in a seekable archive: marks, objects and pointers, others that were removed or led
// elsewhere, an object by value, and sizes of both widths.
std::string indexBytes(qcArchive::Ordering ordering, const std::wstring& text, const std::vector<ShapeHandle>& shapes,
                       const qcRandomGaussian& byValue) {
  qcMemoryArchive to(ordering, true);
  to.writeNewMark(10);
  to << text;
  const long stored = to.storeObject(shapes[0].rep());
  to << shapes[1] << shapes[0] << shapes[1] << ShapeHandle();
  for (const bool wide : {false, true}) {
    to.wideSizes(wide);
    to.writeNewMark();
    to << byValue << std::make_pair(shapes[2], shapes[0]);
    const long removed = to.storeObject(ShapeHandle(new qcLine({0.6, 0.8}, {1, 2})).rep());
    to.seek(to.findObject(removed));
    to.removeObject();
    to.append();
    to.forgetObjects();
  }
  const auto pointer = to.tell();
  to << shapes[3];
  to.seek(pointer);
  to.pointerObjectID(stored);
  to.seek(to.firstPointerPos());
  to.seek(to.nextPointerPos());
  to.removePointer();
  for (const long number : {1, 2}) {
    to.seek(to.findMark(number));
    number == 1 ? to.removeMark() : to.renumberMark(7);
  }
  return bytesOf(to);
}

Case seekable() {
  const std::wstring text = L"\x3C0";
  const std::vector<ShapeHandle> shapes = {new qcCircle({1, 2}, 3), new qcPolyline({{0, 0}, {4, 0}, {4, 3}}, true),
                                           new qcRect({1, 2}, {3, 4}), new qcLineSeg({1, 2}, {3, 4})};
  return {"seekable",
          [=](qcArchive::Ordering ordering) { return indexBytes(ordering, text, shapes, qcRandomGaussian(-5)); },
          [](const std::string& bytes) {
            BytesArchive from(bytes, true);
            std::wstring found;
            std::vector<ShapeHandle> loaded(4);
            qcRandomGaussian byValue;
            long number = 0;
            from->seek(from->findMark(from->lastMarkNum()));
            from->readMark(number);
            *from || found;
            from->seek(from->findObject(from->firstObjectID()));
            loaded[0] = as<qcShape>(from->loadObject()).release();
            *from || loaded[1];
            from->seek(from->findMark(from->firstMarkNum()));
            from->skipMark();
            *from || byValue || loaded[2];
            std::vector<ShapeHandle> pointers;
            for (auto at = from->firstPointerPos(); at != qcArchive::Position(0); at = from->nextPointerPos()) {
              from->seek(at);
              *from || pointers.emplace_back();
              from->seek(at);
            }
            // The last pointer refers to the first object; what it brought along lies behind it as an object.
            long last = 0;
            for (long id = from->firstObjectID(); id != 0; id = from->nextObjectID(id)) last = id;
            from->seek(from->findObject(last));
            loaded[3] = as<qcShape>(from->loadObject()).release();
            // Null, and a pointer that was removed, are none of them.
            const bool sound = number == 10 && from->firstMarkNum() == 7 && pointers.size() == 7 &&
                               pointers[1] == pointers[0] &&
                               stored(kBig, false, pointers[6]) == stored(kBig, false, loaded[0]);
            if (!sound) throw qcArchive::BadContent("golden", 2);
            return indexBytes(from->ordering(), found, loaded, byValue);
          }};
}

// What a program has left in a database: of six records one removed, one replaced, one renumbered and one graded anew.
std::string databaseBytes(qcArchive::Ordering ordering, const std::vector<std::unique_ptr<GoldenRecord>>& records) {
  auto* archive = new qcMemoryArchive(ordering, true);
  qcVDBArchive database(archive);
  GoldenRecord removed;
  removed.expected = new qcLine({0.6, 0.8}, {1, 2});
  database.storeNewRecord(&removed);
  database.removeRecord();
  database.storeNewRecord(&removed);
  for (const auto& record : records) {
    const bool replaces = record == records.front();
    record->header().recordNum(record == records.back() ? 1000 : 0);
    replaces ? database.replaceRecord(record.get()) : void(database.storeNewRecord(record.get()));
  }
  database.renumberRecord(40);
  qcVDBHeader header = database.loadHeader();
  header.currentGrade(qcVDB::review);
  header.distanceMetric(0.25F);
  database.replaceGrade(header);
  // Every day has its own identification.
  std::string bytes = bytesOf(*archive);
  const std::string text = database.identification(), day = "2026-11-21";
  return bytes.replace(bytes.find(text) + text.size() - day.size(), day.size(), day);
}

Case database() {
  return {"database",
          [](qcArchive::Ordering ordering) {
            std::vector<std::unique_ptr<GoldenRecord>> records;
            for (int i = 0; i < 3; ++i) {
              auto& record = *records.emplace_back(std::make_unique<GoldenRecord>());
              record.found = record.expected = new qcCircle({1, 2}, i);
              if (i == 1) record.expected = new qcPolyline({{0, 0}, {4, 0}, {4, 3}}, true);
              record.header().savedType(static_cast<qcVDB::ResultType>(i));
              record.header().savedGrade(qcVDB::bad);
              record.header().comment(std::wstring(static_cast<std::size_t>(i), L'\x3C0'));
            }
            return databaseBytes(ordering, records);
          },
          [](const std::string& bytes) {
            qcVDBArchive from(new qcMemoryArchive(bytes.data(), static_cast<long>(bytes.size()), true));
            std::vector<std::unique_ptr<GoldenRecord>> records;
            for (long number = from.firstRecord(); number != 0; number = from.nextRecord()) {
              const bool known = from.recordTypeName() == "GoldenRecord";
              if (known) records.push_back(as<GoldenRecord>(from.loadRecord()));
            }
            const bool sound = records.size() == 3 && records[0]->found == records[0]->expected &&
                               records[1]->found != records[1]->expected && from.lastRecord() == 40 &&
                               records[2]->header().currentGrade() == qcVDB::review &&
                               from.identification().starts_with("Vantix Tool Database 1.0 gen 2026-11-21");
            if (!sound) throw qcArchive::BadContent("golden", 3);
            records[2]->header().currentGrade(qcVDB::good);
            records[2]->header().distanceMetric(0);
            return databaseBytes(bytes.at(1) == 0 ? kBig : kLittle, records);
          }};
}

Sample bitmap(unsigned bits, unsigned header) {
  constexpr unsigned kWidth = 33, kHeight = 9;
  const unsigned colours = bits <= 8 ? 1U << bits : 0, rowBytes = (kWidth * bits + 31) / 32 * 4;
  std::string bytes = "BM";
  for (const unsigned word : {0U, 0U, 14 + header + 4 * colours, header, kWidth, kHeight, 1 | bits << 16, 0U, 0U, 2835U,
                              1417U, colours, 0U}) {
    bytes += stored(kLittle, false, word);
  }
  bytes.resize(14 + header);
  std::mt19937 random(bits);
  while (bytes.size() < 14 + header + 4 * colours + kHeight * rowBytes) bytes.push_back(static_cast<char>(random()));
  return {numbered("bitmap_", bits), bytes, true, false, [](std::string_view from) -> Sample::Again {
            const auto dib = std::make_shared<qcDIB>();
            dib->init(reinterpret_cast<const unsigned char*>(from.data()), from.size(), true);
            return [dib] {
              std::ostringstream to;
              dib->write(to);
              return to.str();
            };
          }};
}

}  // namespace

Sample archivedSample(const ArchiveSample& sample, qcArchive::Ordering ordering, bool seekable) {
  const bool image = sample.name.starts_with("image");
  const bool flat =
      image || sample.name.starts_with("text") || sample.name.starts_with("vector") || sample.name == "qcRLEBuffer";
  return {sample.name + (ordering == kBig ? " big" : " little") + (seekable ? " seekable" : ""),
          bytesOf(sample.store, ordering, seekable), flat, image,
          [load = sample.load, ordering, seekable](std::string_view bytes) -> Sample::Again {
            qcMemoryArchive from(bytes.data(), static_cast<long>(bytes.size()), seekable);
            return [=, store = load(from)] {
              qcMemoryArchive to(ordering, seekable);
              to.limits({.nesting = 10000});  // references that lead far back nest when they are stored
              store(to);
              return bytesOf(to);
            };
          }};
}

Case plain(const ArchiveSample& sample) {
  return {sample.name, [sample](qcArchive::Ordering ordering) { return bytesOf(sample.store, ordering); },
          [sample](const std::string& bytes) {
            BytesArchive from(bytes);
            return bytesOf(sample.load(*from), from->ordering());
          }};
}

std::vector<Case> cases() {
  std::vector<Case> all;
  for (const ArchiveSample& sample : archiveSamples()) all.push_back(plain(sample));
  all.push_back(seekable());
  all.push_back(database());
  return all;
}

std::vector<Sample> samples() {
  std::vector<ArchiveSample> values = archiveSamples();
  for (const std::size_t size : {1U, 6U, 12U, 40U}) values.push_back(graph(size));
  qcPelBuffer<unsigned char> image(40, 30);
  qfPelSet(image, static_cast<unsigned char>(7));
  image.window(3, 4, 20, 10, false);
  values.push_back(value("image_window", image));
  values.push_back(value("vector_long", std::vector<double>(300, 0.5)));
  values.push_back(value("text_long", std::wstring(2000, L'x')));
  std::vector<Sample> all;
  for (std::size_t i = 0; i < values.size(); ++i) {  // in two ways each, by turns
    all.push_back(archivedSample(values[i], kOrderings[i % 2], false));
    all.push_back(archivedSample(values[i], kOrderings[1 - i % 2], true));
  }
  for (const Case& c : {seekable(), database()})
    all.push_back({c.name, c.make(kLittle), false, false,
                   [c](std::string_view bytes) { return [again = c.rewrite(std::string(bytes))] { return again; }; }});
  for (const unsigned bits : {1U, 4U, 8U, 16U, 24U, 32U})
    for (const unsigned header : {40U, 124U}) all.push_back(bitmap(bits, header));
  return all;
}
