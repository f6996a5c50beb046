// What damage does to archives, databases and bitmaps: every sample cut at every byte, and changed at random. Whatever
// the bytes are, reading them gives a documented error or objects that can be stored, within bounds of time and memory,
// and leaves nothing behind. VNXSTD_MUTATIONS in the environment is the number of random changes.

#include <ctime>

#include "support/allocations.h"
#include "support/samples.h"
#include "support/test.h"
#include "vnxstd/dib/dib.h"
#include "vnxstd/vdb/vdbr_com.h"

namespace {

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// The largest figures of all loads.
struct Extremes {
  double seconds = 0;                       // processor time
  double flat = 0, graphs = 0, padded = 0;  // bytes of heap beyond what is free, for each byte of input
  std::size_t loads = 0, accepted = 0;
  ~Extremes() {
    std::printf(
        "%zu loads, %zu without an error; at most %.4f s\nheap: at most 64 KiB + %.2f x flat data, 64 KiB + %.2f x "
        "graphs, 192 KiB + %.2f x images with any padding\n",
        loads, accepted, seconds, flat, graphs, padded);
  }
};

/// Loads the bytes and stores again what came of it, for `accept` to see; checks what every load keeps to. Errors of
/// bytes that were `cut` are those of archives, databases and bitmaps.
template <class Accept>
void attempt(const Sample& sample, const std::string& bytes, bool cut, Extremes& extremes, const Accept& accept) {
  const std::vector<char> exact(bytes.begin(), bytes.end());  // for the sanitizers to see what is read behind them
  const std::size_t before = liveBytes;
  std::size_t peak = 0;
  const double start = processorSeconds();
  const PeakAllocation measured;
  try {
    const Sample::Again again = sample.load({exact.data(), exact.size()});
    peak = measured.bytes();
    accept(again());
    ++extremes.accepted;
  } catch (const qcException& error) {
    peak = std::max(peak, peak ? peak : measured.bytes());
    const bool bitmap = dynamic_cast<const qcDIB::Errors*>(&error) != nullptr;
    const bool documented = bitmap || dynamic_cast<const qcArchive::Errors*>(&error) != nullptr ||
                            dynamic_cast<const qcVDBRecordBase::NoResult*>(&error) != nullptr;
    const qcLoadContext* const place = error.loadContext();
    const bool inside = place && place->position >= 0 && place->position <= static_cast<qcInt64>(bytes.size());
    EXPECT_TRUE(documented || !cut) << testing::PrintToString(error.message(true));
    const bool early = dynamic_cast<const qcArchive::Eof*>(&error) != nullptr;
    EXPECT_TRUE(place ? inside : bitmap || !early) << (place ? place->text() : "no place");
  }
  const double seconds = processorSeconds() - start, size = static_cast<double>(std::max<std::size_t>(bytes.size(), 1));
  // Rows that are said to be aligned to 64 KiB take that much padding.
  const bool padded = sample.image && !cut;
  const std::size_t factor = padded ? 256 : sample.flat ? 4 : 64, base = padded ? 3 << 16 : 1 << 16;
  double& most = padded ? extremes.padded : sample.flat ? extremes.flat : extremes.graphs;
  most = std::max(most, (static_cast<double>(peak) - static_cast<double>(base)) / size);
  extremes.seconds = std::max(extremes.seconds, seconds);
  ++extremes.loads;
  EXPECT_LT(seconds, 1.0);
  EXPECT_LE(peak, factor * bytes.size() + base);
  EXPECT_EQ(liveBytes, before) << "something was lost";
}

std::string readWhole(const Sample& sample) {
  std::string whole;
  for (int i = 0; i < 2; ++i) whole = sample.load(sample.bytes)();  // the first one fills what is made once
  return whole;
}

TEST(Damage, WhatIsCutIsRefused) {
  Extremes extremes;
  for (const Sample& sample : samples()) {
    const std::string whole = readWhole(sample);
    EXPECT_TRUE(sample.name.starts_with("bitmap") || whole == sample.bytes) << sample.name;
    for (std::size_t size = 0; size < sample.bytes.size() && !HasFailure(); ++size) {
      SCOPED_TRACE(testing::Message() << sample.name << " cut at " << size);
      attempt(sample, sample.bytes.substr(0, size), true, extremes,
              [](const std::string&) { ADD_FAILURE() << "accepted"; });
    }
  }
  EXPECT_GT(extremes.loads, 60000U);
}

TEST(Damage, RandomChangesGiveErrorsOrSoundObjects) {
  const char* const wanted = std::getenv("VNXSTD_MUTATIONS");
  const long mutations = wanted ? std::atol(wanted) : kInstrumented ? 100000 : 1000000;
  const std::vector<Sample> all = samples();
  for (const Sample& sample : all) readWhole(sample);
  Extremes extremes;
  for (long round = 0; round < mutations && !HasFailure(); ++round) {
    std::mt19937 random(static_cast<unsigned>(round));  // each round can be had alone
    const auto pick = [&random](std::size_t below) { return static_cast<std::size_t>(random() % below); };
    const Sample& sample = all[pick(all.size())];
    std::string bytes = sample.bytes;
    for (std::size_t edits = 1 + pick(4); edits > 0; --edits) {
      const std::size_t at = pick(bytes.size()), length = std::min(1 + pick(30), bytes.size() - at), kind = pick(6);
      // Most of all within the first bytes, where counts and sizes are.
      if (kind < 2) bytes[pick(std::min<std::size_t>(bytes.size(), 80))] = static_cast<char>(random());
      if (kind == 2) bytes[at] = static_cast<char>(bytes[at] ^ (1 << pick(8)));
      if (kind == 3) bytes[at] = "\x00\x01\x7F\x80\xFF"[pick(5)];
      if (kind == 4) bytes.insert(pick(bytes.size()), bytes.substr(at, length));
      if (kind == 5) bytes.replace(at, length, length, "\x00\x7F\xFF"[pick(3)]);
    }
    SCOPED_TRACE(testing::Message() << sample.name << ", round " << round);
    attempt(sample, bytes, false, extremes, [](const std::string&) {});
  }
}

// Padding, and what a constructor leaves out, must not reach an archive.
TEST(Storing, WritesNothingThatTheMemoryHeldBefore) {
  const auto all = [](int filler) {
    filling = filler;
    std::vector<std::string> bytes;
    for (const Sample& sample : samples()) bytes.push_back(sample.bytes);
    for (const Sample& sample : samples()) bytes.push_back(sample.load(sample.bytes)());
    filling = -1;
    return bytes;
  };
  EXPECT_EQ(all(0x00), all(0xFF));
}

}  // namespace
