// Every allocation fails in its turn, alone and with all behind it: operations throw std::bad_alloc, lose nothing and
// leave what they work on as it was.

#include "support/allocations.h"
#include "support/samples.h"
#include "support/test.h"
#include "vnxstd/cfit.h"
#include "vnxstd/comm.h"
#include "vnxstd/dib.h"
#include "vnxstd/math.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/rlebuf.h"
#include "vnxstd/shapes.h"
#include "vnxstd/vdb/vdbarch.h"

namespace {

using Points = std::vector<qcVector<2>>;
using Image = qcPelBuffer<unsigned char>;

/// Makes a target each time, lets `act` work on it, and compares what `look` sees before and after each failure.
template <class Make, class Act, class Look>
void expectSafe(const std::string& name, const Make& make, const Act& act, const Look& look) {
  SCOPED_TRACE(name);
  act(*make());  // makes what is made once
  for (const bool one : {false, true}) {
    for (long allowed = 0; !testing::Test::HasFailure(); ++allowed) {
      const std::size_t live = liveBytes;
      bool failed = false, same = true;
      {
        auto target = make();
        const auto before = look(*target);
        oneAllocationFails = one;
        allocationHasFailed = false;
        allocationsLeft = allowed;
        try {
          act(*target);
        } catch (const std::bad_alloc&) {
          failed = true;
        }
        allocationsLeft = -1;
        if (failed) same = look(*target) == before;
      }
      EXPECT_TRUE(same) << "changed by failure " << allowed << (one ? ", one" : ", all");
      EXPECT_EQ(liveBytes, live) << "lost by failure " << allowed << (one ? ", one" : ", all");
      if (!allocationHasFailed) break;
    }
  }
}

template <class T>
using Edits = std::vector<std::function<void(T&)>>;

/// Each edit of copies of an object that can be archived.
template <class T>
void expectSafeEdits(const T& start, const Edits<T>& edits) {
  for (std::size_t i = 0; i < edits.size(); ++i)
    expectSafe(
        "edit " + std::to_string(i), [&] { return std::make_unique<T>(start); }, edits[i],
        [](const T& target) { return stored(kBig, false, target); });
}

TEST(Memory, StoresAndLoads) {
  for (const ArchiveSample& sample : archiveSamples())
    expectSafe(
        "store " + sample.name, [&] { return &sample; },
        [](const ArchiveSample& s) { bytesOf(s.store, kLittle, true); },
        [](const ArchiveSample& s) { return bytesOf(s.store, kLittle); });
  for (const Sample& sample : samples()) {
    // Graphs need memory to be taken apart; the long ones take long, and have nothing that others have not.
    if (sample.name.starts_with("graph") || sample.bytes.size() > 6000) continue;
    expectSafe(
        "load " + sample.name, [&] { return &sample; }, [](const Sample& s) { s.load(s.bytes); },
        [](const Sample&) { return 0; });
  }
}

TEST(Memory, Computations) {
  expectSafe(
      "connect", [] { return std::make_unique<int>(); }, [](int&) { qcCommunicator::loopback(); },
      [](int) { return 0; });
  const Points points = {{0, 0}, {4, 1}, {8, 0}, {5, 4}, {8, 8}, {4, 6}, {0, 8}, {2, 4}};
  const qcRegionTree hole(qcCircle({6, 2}, 1), true);
  const qcXform<2> shear({2, 1, 0, 1}, {3, 4});
  Image pels(50, 40);
  qfPelSet(pels, static_cast<unsigned char>(7));
  qcRLEBuffer runs;
  runs.encode(pels);
  qcDIB bitmap, small;
  bitmap.init(pels);
  small.init(qcPelBuffer<qcPackedRGB32Pel>(20, 30));
  expectSafeEdits<qcPolyline>(
      qcPolyline({{0, 0}, {4, 0}, {4, 4}}, false),
      {[&](auto& line) { line.vertices(points); }, [&](auto& line) { line.addVertices(points); },
       [&](auto& line) { line.insertVertices(1, points); }, [&](auto& line) { line.addVertex(points[0]); },
       [&](auto& line) { line.insertVertex(0, points[0]); }, [&](auto& line) { line.reserve(100); },
       [&](auto&) { qfFitEllipse(points); }, [&](auto&) { qcLSPointToPointFitter(points, points).fit(6); },
       [&](auto&) { qc2XformPerspective(points, points).inverseBase(); },
       [&](auto&) { qc2XformPoly(points, points, 2).clone(); },
       [&](auto&) { qc2XformDeform(points, points, 0.5).inverseBase()->clone(); },
       [&](auto& line) { qcPolyline(points, true).clip(line.convexHull(), true); },
       [&](auto&) { qcPreparedPolygon prepared(qcPolyline(points, true)); }});
  expectSafeEdits<qcRegionTree>(
      qcRegionTree(qcRect({-3, -3}, {12, 12})),
      {[&](auto& tree) { tree.addChild(hole); }, [&](auto& tree) { tree.insertChild(0, hole); },
       [&](auto& tree) { tree.clip(qcPolyline(points, true), true); }, [&](auto& tree) { tree.decompose(); },
       [&](auto& tree) { tree.mapShape(shear); }, [&](auto& tree) { qfRasterize(tree, Image(9, 9), 1); }});
  expectSafeEdits<Image>(pels,
                         {[](auto& image) { qfPelNoShare(image); }, [](auto& image) { image = qfPelTranspose(image); },
                          [](auto& image) { image = qfPelSpatialAvg(image, 3, 5, 2); },
                          [&](auto& image) { image.clientFromImageXform(shear); },
                          [](auto&) { qcBasicPelRootPool(65536U).tryGet<unsigned char>(100, 100); }});
  expectSafeEdits<qcRLEBuffer>(
      runs, {[](auto& image) { image = image.gmorphMin(qcRLEBuffer::square); },
             [](auto& image) { image = qcRLEBuffer(7, 5, 3); }, [](auto& image) { image.image(); },
             [](auto& image) { image = image.mask(image, 1, 2); }, [](auto& image) { qcRLERegions regions(image); }});
  for (const auto& edit : Edits<qcDIB>{[&](auto& dib) { dib.init(pels); }, [&](auto& dib) { dib = bitmap; }})
    expectSafe(
        "bitmap", [&] { return std::make_unique<qcDIB>(small); }, edit,
        [](const qcDIB& dib) { return std::pair(dib.pixels(), dib.rowBytes()); });
}

/// A database in memory, whose last record is the current one.
struct Database {
  Database() { database.lastRecord(); }
  std::string bytes = cases().back().make(kLittle);
  qcMemoryArchive* archive = new qcMemoryArchive(bytes.data(), static_cast<long>(bytes.size()), true);
  qcVDBArchive database{archive};
};

TEST(Memory, Databases) {
  const std::unique_ptr<qcVDBRecordBase> record(Database().database.loadRecord());
  record->header().recordNum(0);
  for (const auto& change : Edits<qcVDBArchive>{
           [&](auto& database) { database.storeNewRecord(record.get()); },
           [&](auto& database) { database.replaceRecord(record.get()); },
           [&](auto& database) { database.replaceGrade(record.get()); },
           [&](auto& database) { database.removeRecord(); }, [&](auto& database) { database.renumberRecord(70); },
           [&](auto& database) { const std::unique_ptr<qcVDBRecordBase> loaded(database.loadRecord()); }}) {
    expectSafe(
        "database", [] { return std::make_unique<Database>(); }, [&](Database& target) { change(target.database); },
        [](const Database& target) { return cases().back().rewrite(bytesOf(*target.archive)); });
  }
}

}  // namespace
