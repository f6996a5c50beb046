// Keeps results in a tool database and reads them back: a record is a class of the application's own.
#include <vnxstd/archive.h>
#include <vnxstd/math.h>
#include <vnxstd/pelbuf.h>
#include <vnxstd/shapes.h>
#include <vnxstd/vdb.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <vector>

class Result : public qcVDBRecordBase {
 public:
  static qcPersistent* make() { return new Result; }

  qcPelBuffer<unsigned char> image;
  std::vector<qcPtrHandle<qcShape>> shapes;
  qcXform<2> millimetresFromPixels;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &Result::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(version, 0, "keep_results", 1);
    qcVDBRecordBase::dispatchSerialize(archive);
    archive || image || shapes || millimetresFromPixels;
  }
};

// By this name archives make a Result again. A program without it can list the record, but not load it.
static const qc_Instantiator registered(typeid(Result), &Result::make);

int main() try {
  {
    qcVDBArchive database(L"results.vdb", true, false);  // a new one
    for (int part = 1; part <= 3; ++part) {
      Result result;
      result.image = qcPelBuffer<unsigned char>(64, 48);
      qfPelSet(result.image, 40);
      result.shapes = {new qcCircle({32, 24}, 10 + part), new qcRect({4, 4}, {56, 40})};
      result.millimetresFromPixels = qcXform<2>(qcMatrix<2>(0.05, 0, 0, 0.05), qcVector<2>(0, 0));
      result.header().currentGrade(part == 2 ? qcVDB::bad : qcVDB::good);
      result.header().comment(L"part " + std::to_wstring(part));
      database.storeNewRecord(&result);
    }
    database.sync();  // throws when the disk is full; the destructor could not
  }
  qcVDBArchive database(L"results.vdb", false, true);
  if (database.archive().damaged() != qcArchive::Position(0))  // only the records before that place are found
    std::cerr << "results.vdb is damaged: vnx db salvage results.vdb -o NEW saves what can be read\n";
  for (long number = database.firstRecord(); number != 0; number = database.nextRecord()) {
    const std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
    const auto& result = dynamic_cast<const Result&>(*record);
    std::printf("%ld: %s, %s: %ld x %ld pels, %zu shapes, the first one %.3f mm around\n", number,
                qf_Narrow(result.header().comment()).c_str(),
                result.header().currentGrade() == qcVDB::good ? "good" : "bad", result.image.width(),
                result.image.height(), result.shapes.size(),
                result.shapes[0]->perimeter() * result.millimetresFromPixels.scale());
  }
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  if (error.loadContext()) std::cerr << error.loadContext()->text() << '\n';
  return 1;
}
