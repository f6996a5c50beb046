// Archives from arbitrary bytes: an error, or objects that can be stored and loaded again.
//
// The first two bytes are those of the header, whose unused bits choose what the rest is loaded as: bits 1 to 3 of the
// first the kind of value, the upper bits of the second the class of an object by value. What starts like any archive
// is loaded as an object of every class where it goes on with one, and as handles and images otherwise.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vnxstd/archive/memory.h"
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
void load(qcArchive& archive) {
  (static_cast<void>(archive || *std::make_unique<T>()), ...);
}

// What was loaded can be stored, and what was stored can be loaded. Stored inline, objects that refer to each other can
// nest deeper than they did.
template <class T>
void again(T& value, bool seekable) {
  qcMemoryArchive out(qcArchive::bigEndian, seekable);
  out.limits({.nesting = 100000});
  out || value;
  const auto bytes = out.bytes();
  qcMemoryArchive in(bytes.data(), static_cast<long>(bytes.size()), seekable);
  in.limits({.nesting = 100000});
  T back{};
  in || back;
  if (in.remaining() != 0) __builtin_trap();
}

template <class T>
void loadAll(qcArchive& archive) {
  std::vector<T> values;  // all of them live until the end
  while (archive.remaining() > 0) {
    T value{};
    archive || value;
    again(value, archive.isSeekable());
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

constexpr unsigned kByValue = 3;

void loadKind(qcArchive& archive, unsigned kind, std::size_t which) {
  switch (kind) {
    case 0:
      return load<std::string, std::wstring, std::u32string, std::vector<double>, std::vector<bool>,
                  std::vector<std::vector<short>>, std::vector<std::pair<std::wstring, long>>, std::vector<std::string>,
                  std::vector<unsigned long>>(archive);
    case 1:
      return loadAll<AnyHandle>(archive);
    case 2:
      return loadAll<std::unique_ptr<qcPersistent>>(archive);
    case kByValue:
      return loadByValue(archive, which);
    case 4:
      return loadRaw(archive);
    case 5:
      return load<std::vector<qcPtrHandle<qcShape>>, std::vector<qcPtrHandle_const<qc2XformBase>>,
                  std::vector<std::unique_ptr<qcException>>, std::vector<qcPtrHandle<qc_PelRoot>>>(archive);
    case 6:
      return load<qcPelBuffer<unsigned char>, qcPelBuffer<qc3PlanePel>, qcPelBuffer<float>, qc2XformCache>(archive);
    default: {
      if (!archive.isSeekable()) return loadAll<AnyHandle>(archive);
      const qcPtrHandle<qc2XformBase> more(new qc2XformLinear);
      archive.append();
      archive << more;
      archive.mode(qcArchive::loading);
      archive.seek(2, 0);
      loadAll<AnyHandle>(archive);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  std::string bytes(data, data + size);
  bytes[0] = static_cast<char>(2 | (data[0] & 1));
  bytes[1] = static_cast<char>(data[1] & 1);
  const auto tryLoad = [&](unsigned kind, std::size_t which) {
    try {
      qcMemoryArchive archive(bytes.data(), static_cast<long>(size), (data[0] & 1) != 0);
      loadKind(archive, kind, which);
    } catch (const qcException&) {
    } catch (const std::bad_alloc&) {
    }
  };
  if (bytes[0] != static_cast<char>(data[0]) || bytes[1] != static_cast<char>(data[1])) {
    tryLoad((data[0] >> 1) & 7U, data[1] >> 1);
    return 0;
  }
  if (bytes.compare(2, 2, "\xF1\x66") == 0) {  // the marker of an object
    for (std::size_t which = 0; which < makers().size(); ++which) tryLoad(kByValue, which);
  } else {
    for (const unsigned kind : {1U, 6U}) tryLoad(kind, 0);
  }
  return 0;
}
