#include "vnxstd/math/random.h"

#include <cmath>

#include "vnxstd/archive/archive.h"

namespace {

// x -> (factor * x + increment) mod modulus, small enough that no step leaves 32 bits.
struct Congruence {
  std::int32_t modulus, factor, increment;

  constexpr std::int32_t next(std::int32_t x) const { return (factor * x + increment) % modulus; }

  // What `steps` calls of next give: the map to that power, by repeated squaring.
  constexpr std::int32_t advance(std::int32_t x, std::uint32_t steps) const {
    const auto m = static_cast<std::uint64_t>(modulus);
    auto a = static_cast<std::uint64_t>(factor), c = static_cast<std::uint64_t>(increment);
    auto result = static_cast<std::uint64_t>(x);
    for (; steps != 0; steps >>= 1) {
      if (steps & 1) result = (a * result + c) % m;
      c = (a * c + c) % m;
      a = a * a % m;
    }
    return static_cast<std::int32_t>(result);
  }
};

constexpr Congruence kFirst{259200, 7141, 54773};
constexpr Congruence kSecond{134456, 8121, 28411};
constexpr Congruence kThird{243000, 4561, 51349};
constexpr double kR1 = 3.858024691358025e-06;  // 1 / modulus of the first
constexpr double kR2 = 7.437377283274826e-06;  // 1 / modulus of the second

double number(const qsRandomUniform& state) { return (state.ix1 + state.ix2 * kR2) * kR1; }

// The third congruence, which chooses the table's entry, has the full period, so the longest stretch of draws that
// leaves an entry untouched is known: any so many draws overwrite the whole table.
constexpr std::uint32_t kDrawsThatFillTable = 935;

// The state after `draws` numbers: jumps to where the table's oldest entry could stem from, and draws from there.
void restore(qsRandomUniform& state, std::int32_t seed, std::uint32_t draws) {
  qsRandomUniformInit(state, seed);
  if (draws > kDrawsThatFillTable) {
    const std::uint32_t skipped = draws - kDrawsThatFillTable;
    state.ix1 = kFirst.advance(state.ix1, skipped);
    state.ix2 = kSecond.advance(state.ix2, skipped);
    state.ix3 = kThird.advance(state.ix3, skipped);
    state.count = skipped;
  }
  while (state.count != draws) qsRandomUniformNext(state, 0, 1);
}

}  // namespace

void qsRandomUniformInit(qsRandomUniform& state, std::int32_t seed) {
  state.seed = seed;
  state.count = 0;
  // The difference wraps at 32 bits and its absolute value is unsigned, so that every seed is defined.
  std::uint32_t distance = static_cast<std::uint32_t>(kFirst.increment) - static_cast<std::uint32_t>(seed);
  if (distance >> 31) distance = 0u - distance;
  state.ix1 = static_cast<std::int32_t>(distance % static_cast<std::uint32_t>(kFirst.modulus));
  state.ix1 = kFirst.next(state.ix1);
  state.ix2 = state.ix1 % kSecond.modulus;
  state.ix1 = kFirst.next(state.ix1);
  state.ix3 = state.ix1 % kThird.modulus;
  for (double& entry : state.table) {
    state.ix1 = kFirst.next(state.ix1);
    state.ix2 = kSecond.next(state.ix2);
    entry = number(state);
  }
}

double qsRandomUniformNext(qsRandomUniform& state, double low, double high) {
  ++state.count;
  state.ix1 = kFirst.next(state.ix1);
  state.ix2 = kSecond.next(state.ix2);
  state.ix3 = kThird.next(state.ix3);
  double& entry = state.table[qsRandomUniform::kTableSize * state.ix3 / kThird.modulus];
  const double r = entry;
  entry = number(state);
  return low + (high - low) * r;
}

double qcRandomGaussian::next(double deviation, double mean) {
  double sum = 0;
  for (int i = 0; i < 100; ++i) sum += uniform_.next(0, 1);
  return (2 * sum - 100) * std::sqrt(0.03) * deviation + mean;
}

qcArchive& operator||(qcArchive& archive, qcRandomUniform& random) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/math/random", 121);
  auto seed = static_cast<std::uint32_t>(random.state_.seed);
  std::uint32_t count = random.state_.count;
  archive || seed || count;
  if (archive.isLoading()) restore(random.state_, static_cast<std::int32_t>(seed), count);
  return archive;
}

qcArchive& operator||(qcArchive& archive, qcRandomGaussian& random) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/math/random", 208);
  return archive || random.uniform_;
}
