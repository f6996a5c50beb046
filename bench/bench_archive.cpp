// Archives in memory against memcpy, cereal and Boost.Serialization; the storage pool against Boost.Pool and malloc.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "compare.h"
#include "vnxstd/archive/memory.h"
#include "vnxstd/archive/pool.h"

#if __has_include(<cereal/cereal.hpp>)
#define VNXSTD_BENCH_CEREAL
#include <cereal/archives/portable_binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/polymorphic.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#include <cereal/version.hpp>
#endif
#ifdef VNXSTD_BENCH_BOOST
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/base_object.hpp>
#include <boost/serialization/export.hpp>
#include <boost/serialization/shared_ptr.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
#include <boost/version.hpp>
#endif
#if __has_include(<boost/pool/singleton_pool.hpp>)
#include <boost/pool/singleton_pool.hpp>
#include <boost/version.hpp>
#define VNXSTD_BENCH_BOOST_POOL
#endif

// The same small class three times over: a base, two derived ones with a text and a few numbers.

class BenchBase : public qcPersistent, public qcRepBase {
 public:
  std::string text;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &BenchBase::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(version, 0, "bench", 1);
    qcPersistent::dispatchSerialize(archive);
    archive || text;
  }
};

template <int N>
class BenchMark : public BenchBase {
 public:
  static qcPersistent* make() { return new BenchMark; }
  double x = 0, y = 0;
  std::int32_t weight = 0;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &BenchMark::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(version, 0, "bench", 2);
    BenchBase::dispatchSerialize(archive);
    archive || x || y || weight;
  }
};
static const qc_Instantiator registered1(typeid(BenchMark<1>), &BenchMark<1>::make);
static const qc_Instantiator registered2(typeid(BenchMark<2>), &BenchMark<2>::make);

namespace peer {

struct Base {
  virtual ~Base() = default;
  std::string text;
  template <class Archive>
  void serialize(Archive& archive, unsigned) {
    archive& text;
  }
};
template <int N>
struct Mark : Base {
  double x = 0, y = 0;
  std::int32_t weight = 0;
  template <class Archive>
  void serialize(Archive& archive, unsigned version) {
    if constexpr (requires { archive.template register_type<Mark>(); }) {
#ifdef VNXSTD_BENCH_BOOST
      archive& boost::serialization::base_object<Base>(*this);
#endif
    } else {
#ifdef VNXSTD_BENCH_CEREAL
      archive(cereal::base_class<Base>(this));
#endif
    }
    static_cast<void>(version);
    archive& x& y& weight;
  }
};
using Mark1 = Mark<1>;
using Mark2 = Mark<2>;

}  // namespace peer

#ifdef VNXSTD_BENCH_CEREAL
CEREAL_CLASS_VERSION(peer::Base, 0)
CEREAL_CLASS_VERSION(peer::Mark1, 0)
CEREAL_CLASS_VERSION(peer::Mark2, 0)
CEREAL_REGISTER_TYPE(peer::Mark1)
CEREAL_REGISTER_TYPE(peer::Mark2)
#endif
#ifdef VNXSTD_BENCH_BOOST
BOOST_CLASS_EXPORT(peer::Mark1)
BOOST_CLASS_EXPORT(peer::Mark2)
#endif

namespace {

using Peers = std::vector<std::shared_ptr<peer::Base>>;
using Ours = std::vector<qcPtrHandle<BenchBase>>;

constexpr int kObjects = 100000;

// Every other object is of the other class.
template <class First, class Second, class Objects>
Objects someObjects() {
  const auto fill = [](auto* mark, int i) {
    mark->text = "feature number " + std::to_string(i);
    mark->x = i * 0.25;
    mark->y = -i;
    mark->weight = i % 17;
    return mark;
  };
  Objects objects;
  for (int i = 0; i < kObjects; ++i) {
    if (i % 2 == 0) {
      objects.emplace_back(fill(new First, i));
    } else {
      objects.emplace_back(fill(new Second, i));
    }
  }
  return objects;
}

// Blocks of numbers, stored over and over into one archive whose memory is touched already.
template <class T>
void blocks(compare::Session& session, const std::string& name, std::size_t count) {
  std::vector<T> values(count), target(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<T>(i * 40503);
  const std::size_t bytes = count * sizeof(T);
  std::vector<char> plain(bytes, 1);
  const auto copy = [&] {
    std::memcpy(plain.data(), values.data(), bytes);
    compare::keep(plain);
  };
  for (const auto ordering : {qcArchive::littleEndian, qcArchive::bigEndian}) {
    const std::string title = name + (ordering == qcArchive::littleEndian ? ", native order, " : ", swapped, ");
    qcMemoryArchive archive(ordering, true);
    archive.block(values.data(), count);
    session.run(
        title + "write", 1.1,
        [&] {
          archive.seek(2, 0);
          archive.block(values.data(), count);
        },
        copy);
    archive.mode(qcArchive::loading);
    session.run(
        title + "read", 1.1,
        [&] {
          archive.seek(2, 0);
          archive.block(target.data(), count);
          compare::keep(target);
        },
        copy);
  }
}

void objects(compare::Session& session) {
  const Ours ours = someObjects<BenchMark<1>, BenchMark<2>, Ours>();
  const Peers peers = someObjects<peer::Mark1, peer::Mark2, Peers>();
  const auto store = [&ours](qcArchive::Ordering ordering) {
    qcMemoryArchive archive(ordering, false);
    archive << ours;
    return archive.toVector();
  };
  const std::vector<char> bytes = store(qcArchive::littleEndian);
  std::printf("bytes:     %zu ours", bytes.size());
  const auto ourWrite = [&ours] {
    qcMemoryArchive archive(qcArchive::littleEndian, false);
    archive << ours;
    compare::keep(archive);
  };
  const auto ourRead = [&bytes] {
    Ours loaded;
    qcMemoryArchive archive(bytes.data(), static_cast<long>(bytes.size()), false);
    archive || loaded;
    compare::keep(loaded);
  };
  const auto versus = [&](const std::string& name, auto write, auto read) {
    std::ostringstream out;
    write(out);
    const std::string theirs = out.str();
    std::printf(", %zu %s\n", theirs.size(), name.c_str());
    session.run("100,000 objects, write, " + name, 0.6, ourWrite, [&] {
      std::ostringstream stream;
      write(stream);
      compare::keep(stream);
    });
    session.run("100,000 objects, read, " + name, 0.6, ourRead, [&] {
      std::istringstream stream(theirs);
      read(stream);
    });
  };
#ifdef VNXSTD_BENCH_CEREAL
  versus(
      "cereal",
      [&](std::ostream& stream) {
        cereal::PortableBinaryOutputArchive archive(stream);
        archive(peers);
      },
      [](std::istream& stream) {
        Peers loaded;
        cereal::PortableBinaryInputArchive archive(stream);
        archive(loaded);
        compare::keep(loaded);
      });
#endif
#ifdef VNXSTD_BENCH_BOOST
  versus(
      "Boost",
      [&](std::ostream& stream) {
        boost::archive::binary_oarchive archive(stream, boost::archive::no_header);
        archive << peers;
      },
      [](std::istream& stream) {
        Peers loaded;
        boost::archive::binary_iarchive archive(stream, boost::archive::no_header);
        archive >> loaded;
        compare::keep(loaded);
      });
#endif
}

// Takes all blocks, then gives them back in an order; one call is `kBlocks` of each.
constexpr std::size_t kBlocks = 1000;
constexpr std::size_t kBlockSize = 64;

struct Order {
  const char* name;
  std::vector<std::size_t> places;
};

std::vector<Order> orders() {
  Order lifo{"last in, first out", std::vector<std::size_t>(kBlocks)}, fifo{"first in, first out", lifo.places},
      random{"random order", lifo.places};
  std::iota(fifo.places.begin(), fifo.places.end(), std::size_t{0});
  lifo.places = random.places = fifo.places;
  std::reverse(lifo.places.begin(), lifo.places.end());
  std::shuffle(random.places.begin(), random.places.end(), std::mt19937(1));
  return {lifo, fifo, random};
}

// `threads` names the state of the process: locks of the C library are cheaper while it has a single thread.
void pools(compare::Session& session, const std::string& threads) {
  const auto cycle = [](const Order& order, auto alloc, auto free) {
    return [&order, alloc, free] {
      static std::vector<void*> blocks(kBlocks);
      for (void*& block : blocks) {
        block = alloc();
        *static_cast<std::size_t*>(block) = 1;
      }
      for (const std::size_t place : order.places) free(blocks[place]);
    };
  };
  qcStoragePool pool(kBlockSize, 1000);
  for (const Order& order : orders()) {
    const auto ours = cycle(
        order, [&pool] { return pool.alloc(); }, [&pool](void* block) { pool.free(block); });
    session.run("pool, malloc, " + threads + order.name, 1.0, ours,
                cycle(
                    order, [] { return std::malloc(kBlockSize); }, [](void* block) { std::free(block); }));
#ifdef VNXSTD_BENCH_BOOST_POOL
    struct Tag {};
    using Pool = boost::singleton_pool<Tag, kBlockSize>;
    session.run("pool, Boost, " + threads + order.name, 0.6, ours,
                cycle(
                    order, [] { return Pool::malloc(); }, [](void* block) { Pool::free(block); }));
#endif
  }
}

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#ifdef VNXSTD_BENCH_CEREAL
  session.peer("cereal", "1.3.2");
#else
  session.absent("cereal");
#endif
#ifdef BOOST_LIB_VERSION
  session.peer("Boost", BOOST_LIB_VERSION);
#else
  session.absent("Boost");
#endif
  blocks<double>(session, "1,000,000 doubles", 1000000);
  blocks<std::uint8_t>(session, "4 MiB of 8-bit pels", 4194304);
  blocks<std::uint16_t>(session, "4 MiB of 16-bit pels", 2097152);
  blocks<std::uint32_t>(session, "4 MiB of 32-bit pels", 1048576);
  objects(session);
  pools(session, "alone, ");
  std::latch finished(1);
  std::jthread other([&finished] { finished.wait(); });
  pools(session, "threads, ");
  finished.count_down();
  return session.finish();
}
