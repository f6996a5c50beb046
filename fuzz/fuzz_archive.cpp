// Values in archives from arbitrary bytes: an error, or values that are stored and loaded again alike.
//
// What is chosen in an input (fuzz.h) is what it is loaded as; the seeds are there with every choice.

#include <algorithm>
#include <set>
#include <vector>

#include "fuzz/fuzz.h"
#include "vnxstd/math/xfcache.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/shapes/shape.h"

namespace {

using Makers = std::vector<qc_Instantiator::Maker>;

// Of all classes but the errors, which differ in nothing but their number; some of them stand for all.
const Makers& makers() {
  static const Makers found = [] {
    Makers makers;
    qf_VisitRegistered(
        [](const qc_RegistryEntry& entry, void* context) {
          if (!entry.make) return;
          const std::unique_ptr<qcPersistent> object(entry.make());
          const bool isError = dynamic_cast<const qcException*>(object.get()) != nullptr;
          if (!isError || entry.name.ends_with("::UnknownType") || entry.name.ends_with("::BadFormat") ||
              entry.name.ends_with("::BadCoord") || entry.name.ends_with("::RuntimeError")) {
            static_cast<Makers*>(context)->push_back(entry.make);
          }
        },
        &makers);
    return makers;
  }();
  return found;
}

// A handle onto an object of any class that has a count.
class AnyHandle {
 public:
  friend qcArchive& operator||(qcArchive& archive, AnyHandle& handle) {
    const auto cast = [](qcPersistent* object, const qcRepBase*& count) -> void* {
      count = dynamic_cast<const qcRepBase*>(object);
      return count ? object : nullptr;
    };
    void* object = qf_SerializeTypedPointer(archive, dynamic_cast<qcPersistent*>(handle.counted_.rep()), cast);
    if (archive.isLoading()) {
      auto* counted = dynamic_cast<qcRepBase*>(static_cast<qcPersistent*>(object));
      handle.counted_ = qcPtrHandle<qcRepBase>(counted, qc_AdoptCount());
    }
    return archive;
  }

 private:
  qcPtrHandle<qcRepBase> counted_;
};

template <class... T>
void loadEach(const Input& input) {
  (input.read(
       [value = T()](qcArchive& archive) mutable { demandSame((archive || value, value), archive.isSeekable()); }),
   ...);
}

template <class T>
void loadAll(qcArchive& archive) {
  std::vector<T> values;  // all of them live until the end
  while (archive.remaining() > 0) {
    T value{};
    archive || value;
    demandSame(value, archive.isSeekable());
    values.push_back(std::move(value));
  }
}

void loadRaw(qcArchive& archive) {
  std::vector<qcPtrHandle<qcRepBase>> counted;
  std::set<std::unique_ptr<qcPersistent>> others;
  while (archive.remaining() > 0) {
    qcPersistent* object = nullptr;
    qcPersistent::serializePointer(archive, nullptr, object);
    if (auto* rep = dynamic_cast<qcRepBase*>(object)) {
      counted.emplace_back(rep);
    } else if (object && std::none_of(others.begin(), others.end(), [&](auto& o) { return o.get() == object; })) {
      others.emplace(object);
    }
    qcPtrHandle<qcShape> shape;
    if (archive.remaining() % 2 != 0) archive || shape;
  }
}

void loadByValue(qcArchive& archive, std::size_t which) {
  const std::unique_ptr<qcPersistent> object(makers()[which % makers().size()]());
  archive >> *object;
  archive >> *object;
}

/// Of the old format, whose objects have neither marker nor version.
class Old : public qcPersistent {
 public:
  bool loadLegacy(qcArchive& archive) override {
    archive || number_;
    archive.reserve8(), archive.reserve16(), archive.reserve32(), archive.reserve64();
    return archive.version() == 0;
  }

 private:
  int number_ = 0;
};

void (*const kWays[])(const Input&) = {
    [](const Input& input) { input.read(loadAll<AnyHandle>); },
    [](const Input& input) { input.read(loadAll<std::unique_ptr<qcPersistent>>); },
    [](const Input& input) { input.read([&input](qcArchive& archive) { loadByValue(archive, input.bytes.size()); }); },
    [](const Input& input) { input.read(loadRaw); },
    loadEach<std::vector<qcPtrHandle<qcShape>>, std::vector<qcPtrHandle_const<qc2XformBase>>,
             std::vector<std::unique_ptr<qcException>>, std::vector<qcPtrHandle<qc_PelRoot>>>,
    loadEach<Old>,
    loadEach<std::string, std::wstring, std::u32string, std::vector<double>, std::vector<bool>,
             std::vector<std::vector<short>>, std::vector<std::pair<std::wstring, long>>,
             std::vector<std::pair<unsigned long, float>>,
             std::pair<std::pair<char, short>, std::pair<unsigned short, long long>>>,
    loadEach<qcPelBuffer<unsigned char>, qcPelBuffer<qc3PlanePel>, qcPelBuffer<float>, qc2XformCache>};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  return kWays[input.choice](input), 0;
}
