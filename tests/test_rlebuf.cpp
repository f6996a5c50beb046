// Run-length images against the same operations on decoded pels, pel by pel: masks, noise, images of one run, rows
// around every length at which runs are split, at every instruction-set level; runs and bytes by hand; adopted rows and
// archives that lie.
#include "vnxstd/rlebuf.h"

#include "support/allocations.h"
#include "support/bytes.h"
#include "support/faulty.h"
#include "support/scene.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace scene;

using Pels = qcPelBuffer<unsigned char>;
using RleRun = qcRLEBufferRun;
using Counts = std::vector<unsigned long>;
using Pel = std::function<int(long x, long y)>;

unsigned char anyByte() { return static_cast<unsigned char>(random_()); }

enum Kind { mask, labels, noise, binaryNoise, uniform };

/// A window in a larger image, with offset and transform of its own.
Pels image(Kind kind, long width, long height) {
  Pels pels(width + 3, height + 2);
  qfPelSet(pels, static_cast<unsigned char>(77));
  pels.subWindow(1, 1, width, height);
  pels.offset(below(40) - 20, below(40) - 20);
  pels.clientFromImageXform(qcXform<2>(qcMatrix<2>(2, 0, 0.5, 3), qcVector<2>(1, -1)));
  const long longest[] = {400, 5, 1, 1, 1};
  for (long y = 0; y < height; ++y) {
    unsigned char* const row = pels.pointToRow(pels.offset().y() + y);
    if (y > 0 && kind != noise && below(4) == 0) {  // rows repeat
      std::copy_n(pels.pointToRow(pels.offset().y() + y - 1), width, row);
      continue;
    }
    for (long x = 0; x < width;) {
      const long length = std::min(width - x, 1 + below(longest[kind]));
      const long value = kind == noise ? below(256) : kind == uniform ? 200 : below(kind == labels ? 4 : 2);
      std::fill_n(row + x, length, static_cast<unsigned char>(kind == mask ? 255 * value : value));
      x += length;
    }
  }
  return pels;
}

qcRLEBuffer encoded(const Pels& pels) {
  qcRLEBuffer runs;
  runs.encode(pels);
  return runs;
}

/// Runs a check for images of all kinds and sizes and for their runs, at every level.
void forEachImage(const std::function<void(const Pels& pels, const qcRLEBuffer& runs)>& check) {
  const qcPair<long> sizes[] = {{1, 1},   {2, 1},   {1, 4},   {3, 3},   {64, 2},  {65, 5},   {66, 3},
                                {130, 7}, {255, 2}, {256, 3}, {510, 2}, {600, 6}, {3001, 2}, {40, 300}};
  forEachLevel([&] {
    for (const Kind kind : {mask, labels, noise, binaryNoise, uniform}) {
      for (const auto& size : sizes) {
        SCOPED_TRACE(testing::Message() << "kind " << kind << ", " << size.x() << " x " << size.y());
        const Pels pels = image(kind, size.x(), size.y());
        check(pels, encoded(pels));
      }
    }
  });
}

std::vector<RleRun> runsOf(const qcRLEBuffer& image, std::size_t row) {
  std::vector<RleRun> runs;
  for (const RleRun* run = image.pointToRat()[row]; runs.empty() || runs.back().length() != 0; ++run)
    runs.push_back(*run);
  return runs;
}

/// Expects an image of canonical rows with these pels.
void expectImage(const qcRLEBuffer& image, const qcPelRect& window, const Pel& pel) {
  ASSERT_EQ(image.window(), window);
  const Pels pels = image.image();
  bool isBinary = true;
  forEachPel(window, [&](long x, long y) {
    ASSERT_EQ(int{pels.get(x, y)}, pel(x, y)) << x << ", " << y;
    isBinary &= pels.get(x, y) <= 1;
  });
  qcUInt64 count = 0;
  for (std::size_t y = 0; y < static_cast<std::size_t>(window.height()); ++y) {
    const std::vector<RleRun> runs = runsOf(image, y);
    for (std::size_t i = 0; i + 2 < runs.size(); ++i)
      ASSERT_TRUE(runs[i].value() != runs[i + 1].value() || runs[i].length() == 255);
    ASSERT_EQ(runs.back(), RleRun(0, 0));
    count += runs.size() - 1;
  }
  EXPECT_EQ(image.isBinary(), isBinary);
  EXPECT_EQ(image.numRuns(), count);
}

Pel of(const Pels& pels) {
  return [&pels](long x, long y) -> int { return pels.get(x, y); };
}

TEST(Encode, DecodesToTheSamePelsAlsoOfCopiesAndArchives) {
  forEachImage([](const Pels& pels, const qcRLEBuffer& plain) {
    qcRLEBuffer runs;
    runs.hintNumRuns(static_cast<int>(below(3) * 500));
    runs.encode(pels);
    expectImage(runs, pels.window(), of(pels));
    EXPECT_EQ(runs.clientFromImageXform(), pels.clientFromImageXform());
    const long x = pels.offset().x() + below(pels.width()), y = pels.offset().y() + below(pels.height());
    EXPECT_EQ(runs.getPel(x, y), pels.get(x, y));
    EXPECT_EQ(runs.getPel(pels.window().lr() - qcPair<long>(1, 1)), pels.get(pels.window().lr() - qcPair<long>(1, 1)));

    qcRLEBuffer copy(runs), loaded(1, 1, 1);
    EXPECT_TRUE(copy == runs && copy.isContiguous());
    copy.offset(0, 0);
    for (const auto ordering : kOrderings) {
      const std::string bytes = archived(ordering, false, runs);
      EXPECT_TRUE(load(bytes, loaded) == runs && loaded.isContiguous() && archived(ordering, false, loaded) == bytes);
    }
    runs.makeContiguous();
    EXPECT_TRUE(copy == runs && runs.isContiguous());
    Pels changed = qfPelCopy(pels);
    changed.put(x, y, static_cast<unsigned char>(changed.get(x, y) + 1));
    EXPECT_TRUE(plain == runs && !(encoded(changed) == runs));
  });
}

TEST(Encode, Classifies) {
  forEachImage([](const Pels& pels, const qcRLEBuffer&) {
    const int low = static_cast<int>(below(256)), high = low + static_cast<int>(below(256 - low));
    const int levels = 1 + static_cast<int>(below(255));
    const bool invert = below(2) == 0;
    const auto uc = [](int value) { return static_cast<unsigned char>(value); };
    qcRLEBuffer runs;
    runs.encode(pels, uc(high), invert);
    expectImage(runs, pels.window(), [&](long x, long y) { return (pels.get(x, y) >= high) != invert; });
    runs.encode(pels, uc(low), uc(high), levels, invert);
    expectImage(runs, pels.window(), [&](long x, long y) {
      const int pel = pels.get(x, y);
      const double ramp = low == high ? (pel >= low ? levels : 0.0) : double(levels) * (pel - low) / (high - low);
      const int value = std::clamp(static_cast<int>(std::floor(ramp + 0.5 + 1e-9)), 0, levels);
      return invert ? levels - value : value;
    });
    std::vector<unsigned char> table(256);
    std::generate(table.begin(), table.end(), anyByte);
    runs.encode(pels, table);
    expectImage(runs, pels.window(), [&](long x, long y) { return table[pels.get(x, y)]; });

    std::vector<int> sorted;
    forEachPel(pels.window(), [&](long x, long y) { sorted.push_back(pels.get(x, y)); });
    std::sort(sorted.begin(), sorted.end());
    const int left = static_cast<int>(below(60)), right = static_cast<int>(below(40));
    const auto n = static_cast<long>(sorted.size()), first = n * left / 100, rest = n - first - n * right / 100;
    const auto percentile = [&](int percent) {
      return sorted[static_cast<std::size_t>(first + std::min(rest * percent / 100, rest - 1))];
    };
    qcRLEBuffer expected;
    const int p = static_cast<int>(below(101)), q = p + static_cast<int>(below(101 - p));
    runs.encodePercent(pels, left, right, p, invert);
    expected.encode(pels, uc(percentile(p)), invert);
    EXPECT_TRUE(runs == expected);
    runs.encodePercent(pels, left, right, p, q, levels, invert);
    expected.encode(pels, uc(percentile(p)), uc(percentile(q)), levels, invert);
    EXPECT_TRUE(runs == expected);
  });
}

TEST(Operations, MorphologyTakesTheExtremeOfTheNeighbourhood) {
  forEachImage([](const Pels& pels, const qcRLEBuffer& runs) {
    const qcPelRect window = pels.window();
    const std::tuple<qcRLEBuffer::Shape, long, long> shapes[] = {
        {qcRLEBuffer::horizontal, 1, 0}, {qcRLEBuffer::vertical, 0, 1}, {qcRLEBuffer::square, 1, 1}};
    for (const auto& [shape, dx, dy] : shapes) {
      for (const bool least : {true, false}) {
        const qcRLEBuffer result(least ? runs.gmorphMin(shape) : runs.gmorphMax(shape));
        expectImage(result, window, [&, dx = dx, dy = dy](long x, long y) {
          int extreme = pels.get(x, y);
          forEachPel(window & qcPelRect(x - dx, y - dy, 2 * dx + 1, 2 * dy + 1), [&](long u, long v) {
            extreme = least ? std::min<int>(extreme, pels.get(u, v)) : std::max<int>(extreme, pels.get(u, v));
          });
          return extreme;
        });
      }
    }
  });
}

TEST(Operations, TwoImagesMeetInImageCoordinates) {
  forEachImage([](const Pels& pels, const qcRLEBuffer& runs) {
    Pels otherPels = image(static_cast<Kind>(below(5)), 1 + below(300), 1 + below(8));
    if (below(2) == 0) otherPels = image(labels, pels.width(), pels.height());
    otherPels.offset(below(2) == 0 ? pels.offset() : pels.offset() + qcPair<long>(below(99) - 49, below(9) - 4));
    const qcRLEBuffer others = encoded(otherPels);
    const qcPair<long> offset(below(5) - 2, below(3) - 1);
    std::vector<unsigned char> table(65536);
    std::generate(table.begin(), table.end(), anyByte);
    expectImage(runs.combine(offset, others, table), pels.window(), [&](long x, long y) {
      const int pel = pels.get(x, y);
      const long u = x - offset.x(), v = y - offset.y();
      if (!otherPels.window().contains(u, v)) return pel;
      return int{table[static_cast<std::size_t>(256 * pel + otherPels.get(u, v))]};
    });
    for (const bool invert : {true, false}) {
      const unsigned char inside = below(2) == 0 ? 255 : anyByte(), outside = anyByte();
      expectImage(runs.mask(others, inside, outside, invert), pels.window(), [&](long x, long y) {
        const bool isInside = otherPels.window().contains(x, y) && (otherPels.get(x, y) == 0) == invert;
        return isInside ? (inside == 255 ? pels.get(x, y) : inside) : outside;
      });
    }
    table.resize(256);
    expectImage(runs.map(table), pels.window(), [&](long x, long y) { return table[pels.get(x, y)]; });
    const qcPair<long> corner = pels.offset() + qcPair<long>(below(pels.width()), below(pels.height()));
    const qcPair<long> most = pels.window().lr() - corner;
    const qcPelRect part(corner, {1 + below(most.x()), 1 + below(most.y())});
    expectImage(runs.subWindow(part), part, of(pels));
  });
}

TEST(Operations, PaintingChangesTheRegionAndNothingElse) {
  forEachImage([](const Pels& regionPels, const qcRLEBuffer& region) {
    const qcPair<long> offset(below(7) - 3, below(5) - 2);
    const bool invert = below(2) == 0;
    const auto fresh = [&] {
      Pels pels = image(noise, 20 + below(600), 5 + below(9));
      pels.offset(regionPels.offset() + qcPair<long>(below(60) - 30, below(8) - 4));
      return pels;
    };
    const auto hasPel = [&](long x, long y) { return regionPels.window().contains(x, y); };
    const auto paints = [&](long x, long y) { return hasPel(x, y) && (regionPels.get(x, y) == 0) == invert; };
    const Pels pels = fresh(), source = fresh();
    // What a change leaves of the whole root, of which the window is a part.
    const auto expect = [&pels](const std::function<void(Pels&)>& change, const Pel& pel) {
      const auto twin = [&pels] {
        Pels whole = pels, window;
        whole.setEntire();
        window = qfPelCopy(whole);
        window.window(pels.window(), false);
        return window;
      };
      Pels after = twin(), expected = twin();
      change(after);
      forEachPel(pels.window(), [&](long x, long y) { expected.put(x, y, static_cast<unsigned char>(pel(x, y))); });
      after.setEntire();
      expected.setEntire();
      EXPECT_TRUE(qfPelEqual(after, expected));
    };
    expect([&](Pels& target) { region.setRegion(target, 3, offset, invert); },
           [&](long x, long y) { return paints(x - offset.x(), y - offset.y()) ? 3 : int{pels.get(x, y)}; });
    expect([&](Pels& target) { region.copyRegion(source, target, offset, invert); },
           [&](long x, long y) {
             const bool isCopied = paints(x - offset.x(), y - offset.y()) && source.window().contains(x, y);
             return isCopied ? source.get(x, y) : pels.get(x, y);
           });
    expect([&](Pels& target) { region.image(target); },
           [&](long x, long y) { return hasPel(x, y) ? regionPels.get(x, y) : pels.get(x, y); });
    std::vector<unsigned char> table(65536);
    for (std::size_t i = 0; i < table.size(); ++i)
      table[i] = i % 2 == 0 ? static_cast<unsigned char>(i / 256) : anyByte();
    expect([&](Pels& target) { qfPelCombine_U8(target, region, offset, table); },
           [&](long x, long y) {
             const long u = x - offset.x(), v = y - offset.y();
             const int pel = pels.get(x, y);
             return hasPel(u, v) ? int{table[static_cast<std::size_t>(256 * pel + regionPels.get(u, v))]} : pel;
           });
    Counts counts(256), expected(256);
    region.histo(pels, counts);
    forEachPel(pels.window(), [&](long x, long y) {
      if (hasPel(x, y) && regionPels.get(x, y) != 0) ++expected[pels.get(x, y)];
    });
    EXPECT_EQ(counts, expected);
  });
}

// Whatever an encoding was expected to need, and however wide rows are.
TEST(Operations, TakeMemoryForTheRunsThereAre) {
  Pels pels(60000, 100);
  qfPelSet(pels, static_cast<unsigned char>(1));
  qcRLEBuffer runs;
  runs.hintNumRuns(INT32_MAX);
  runs.encode(pels);
  const PeakAllocation peak;
  EXPECT_TRUE(qcRLEBuffer(runs.gmorphMax(qcRLEBuffer::square)) == runs);
  EXPECT_TRUE(qcRLEBuffer(qcRLERegions(runs).image(0)) == runs);
  EXPECT_LT(peak.bytes(), 40 * runs.numRuns());
}

/// Sums of pels over bins that a function tells, the first of which is `first`.
Counts binned(const Pels& pels, std::size_t bins, const std::function<long(long, long)>& bin, bool isCount = false) {
  Counts sums(bins);
  forEachPel(qcPelRect(pels.width(), pels.height()), [&](long x, long y) {
    const unsigned char pel = pels.get(pels.offset().x() + x, pels.offset().y() + y);
    sums.at(static_cast<std::size_t>(bin(x, y))) += isCount ? pel != 0 : pel;
  });
  return sums;
}

TEST(Measuring, HistogramsAndProjectionsAddUpPels) {
  forEachImage([](const Pels& pels, const qcRLEBuffer& runs) {
    const auto width = static_cast<std::size_t>(pels.width()), height = static_cast<std::size_t>(pels.height());
    Counts counts, runCounts(256), expected;
    runs.histo(counts, runCounts);
    qfPelHistogram(pels, expected);
    EXPECT_EQ(counts, expected);
    runs.histo(counts);
    qfPelHistogram(pels, expected);
    EXPECT_EQ(counts, expected);
    std::vector<qcUInt64> expectedRuns(256);
    for (std::size_t y = 0; y < height; ++y)
      for (const RleRun run : runsOf(runs, y)) expectedRuns[run.value()] += run.length() != 0;
    for (int v = 0; v < 256; ++v) {
      const auto value = static_cast<unsigned char>(v);
      EXPECT_EQ(runCounts[value], expectedRuns[value]);
      EXPECT_EQ(runs.numRuns(value), expectedRuns[value]);
      const double count = value < counts.size() ? 0.5 * static_cast<double>(counts[value]) : 0;
      EXPECT_EQ(runs.avgRunLength(value), count == 0 ? 0 : count / static_cast<double>(expectedRuns[value]));
    }
    Counts few(2);
    runs.histo(few);
    EXPECT_EQ(few.size(), 2U);
    EXPECT_EQ(few[0], expected[0] / 2);

    Counts sums;
    runs.projectHoriz(sums);
    EXPECT_EQ(sums, binned(pels, height, [](long, long y) { return y; }));
    runs.projectVert(sums);
    EXPECT_EQ(sums, binned(pels, width, [](long x, long) { return x; }));
    runs.projectDiag(sums);
    EXPECT_EQ(sums, binned(pels, width + height - 1, [](long x, long y) { return x + y; }));
  });
}

TEST(Measuring, ProjectsAlongAnyDirection) {
  int turn = 0;
  forEachImage([&turn](const Pels& pels, const qcRLEBuffer& runs) {
    const qcVector<2> directions[] = {{1, 0}, {0, -2}, {1, 1e-3}, {-0.71237, 1.9}, {3e100, 1.234e100}, {-1e-3, 5}};
    const qcVector<2> direction = directions[turn++ % 6];
    for (const bool inClient : {false, true}) {
      Counts sums, counts;
      qcInt64 first = 0;
      const auto type = runs.projectAngle(direction, inClient, sums, counts, first);
      EXPECT_TRUE(inClient || (type == qcRLEBuffer::ofColumns) == (direction.y() == 0));
      EXPECT_TRUE(inClient || (type == qcRLEBuffer::ofRows) == (direction.x() == 0));
      const auto bin = [&](long x, long y) {
        qcVector<2> centre(static_cast<double>(pels.offset().x() + x) + 0.5,
                           static_cast<double>(pels.offset().y() + y) + 0.5);
        if (inClient) centre = pels.clientFromImageXform() * centre;
        const double scale = 1 / std::max(std::abs(direction.x()), std::abs(direction.y()));
        const qcVector<2> d = direction * scale;
        return static_cast<long>(std::floor(centre * d / d.len())) - static_cast<long>(first);
      };
      EXPECT_EQ(sums, binned(pels, sums.size(), bin));
      EXPECT_EQ(counts, binned(pels, sums.size(), bin, true));
      std::vector<long> bins;  // of the corners
      for (const long x : {0L, pels.width() - 1})
        for (const long y : {0L, pels.height() - 1}) bins.push_back(bin(x, y));
      const auto [least, most] = std::ranges::minmax(bins);
      EXPECT_TRUE(least == 0 && most == static_cast<long>(sums.size()) - 1);
    }
  });
}

// Far from the origin places are rounded to steps of many pels, which no division finds.
TEST(Measuring, ProjectsWhereRoundingIsCoarse) {
  const double slope = 1e-12, start = 1e6 - 1e-9;
  Counts sums, counts, expected(2);
  qcInt64 first = 0;
  qcRLEBuffer(3000, 2, 5)
      .projectAngle({1, 0}, qcXform<2>(qcMatrix<2>(slope, 1e-30, 0, 1), {start, 0}), sums, counts, first);
  EXPECT_EQ(first, 999999);
  for (int x = 0; x < 3000; ++x) expected[slope * (x + 0.5) + start < 1e6 ? 0 : 1] += 2;
  EXPECT_EQ(counts, expected);
  // The length of a direction does not matter, even where it is no double or a coarse one.
  const qcRLEBuffer runs(10, 7, 5);
  runs.projectAngle({1, 1}, false, expected, counts, first);
  for (const double size : {5e-324, 1e-200, 1.7e308}) {
    runs.projectAngle({size, size}, false, sums, counts, first);
    EXPECT_EQ(sums, expected) << size;
  }
}

/// The numbers of regions by flooding, row by row; 0 where there is none.
qcPelBuffer<long> flooded(const Pels& pels, bool isEight) {
  qcPelBuffer<long> numbers(pels.window());
  qfPelClear(numbers);
  int count = 0;
  forEachPel(pels.window(), [&](long x0, long y0) {
    if (pels.get(x0, y0) == 0 || numbers.get(x0, y0) != 0) return;
    std::vector<qcPair<long>> open{{x0, y0}};
    numbers.put(x0, y0, ++count);
    while (!open.empty()) {
      const qcPair<long> p = open.back();
      open.pop_back();
      forEachPel(pels.window() & qcPelRect(p.x() - 1, p.y() - 1, 3, 3), [&](long x, long y) {
        if (!isEight && x != p.x() && y != p.y()) return;
        if (numbers.get(x, y) != 0 || pels.get(x, y) != pels.get(x0, y0)) return;
        numbers.put(x, y, count);
        open.emplace_back(x, y);
      });
    }
  });
  return numbers;
}

/// Whether a point is inside by the number of vertical edges to its left.
bool isInside(const std::vector<qcPolyline>& borders, const qcVector<2>& p) {
  bool inside = false;
  for (const qcPolyline& border : borders) {
    for (std::size_t i = 0; i < border.vertices().size(); ++i) {
      const qcVector<2>&a = border.vertices()[i], &b = border.vertices()[(i + 1) % border.vertices().size()];
      inside ^= (a.y() < p.y()) != (b.y() < p.y()) && a.x() < p.x();
    }
  }
  return inside;
}

TEST(Regions, AreThoseOfFlooding) {
  forEachImage([](const Pels& pels, const qcRLEBuffer& runs) {
    if (pels.width() > 600) return;
    for (const bool isEight : {false, true}) {
      const qcRLERegions regions(runs, isEight ? qcRLERegions::eight : qcRLERegions::four);
      const auto numbers = flooded(pels, isEight);
      ASSERT_EQ(regions.size(), static_cast<std::size_t>(qfPelMax(numbers)));
      struct Sums {
        double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
        long left = LONG_MAX, top = LONG_MAX, right = LONG_MIN, bottom = LONG_MIN;
      };
      std::vector<Sums> sums(regions.size() + 1);
      forEachPel(pels.window(), [&](long x, long y) {
        Sums& s = sums[static_cast<std::size_t>(numbers.get(x, y))];
        const double u = static_cast<double>(x) + 0.5, v = static_cast<double>(y) + 0.5;
        s.n += 1, s.x += u, s.y += v, s.xx += u * u, s.xy += u * v, s.yy += v * v;
        s.left = std::min(s.left, x), s.right = std::max(s.right, x + 1);
        s.top = std::min(s.top, y), s.bottom = std::max(s.bottom, y + 1);
      });
      for (std::size_t r = 0; r < regions.size(); ++r) {
        const qcRLERegion& region = regions.region(r);
        const Sums& s = sums[r + 1];
        const qcVector<2> mean(s.x / s.n, s.y / s.n);
        ASSERT_EQ(static_cast<double>(region.area), s.n);
        ASSERT_EQ(region.boundingBox, qcPelRect(s.left, s.top, s.right - s.left, s.bottom - s.top));
        ASSERT_LT(region.centroid.distance(mean), 1e-9);
        ASSERT_NEAR(region.xx, s.xx / s.n - mean.x() * mean.x(), 1e-8);
        ASSERT_NEAR(region.xy, s.xy / s.n - mean.x() * mean.y(), 1e-8);
        ASSERT_NEAR(region.yy, s.yy / s.n - mean.y() * mean.y(), 1e-8);
        if (r > 40) continue;
        const auto isIn = [&](long x, long y) { return numbers.get(x, y) == static_cast<long>(r) + 1; };
        expectImage(regions.image(r), region.boundingBox,
                    [&](long x, long y) { return isIn(x, y) ? region.value : 0; });
        const std::vector<qcPolyline> borders = regions.boundaries(r);
        double area = 0;
        for (std::size_t b = 0; b < borders.size(); ++b) {
          area += borders[b].areaMoment0();
          ASSERT_EQ(borders[b].isRightHanded(), b == 0);
          for (std::size_t i = 0; i < borders[b].vertices().size(); ++i) {  // every vertex is a corner
            const auto& v = borders[b].vertices();
            ASSERT_NE(v[i].x() == v[(i + 1) % v.size()].x(), v[(i + 1) % v.size()].x() == v[(i + 2) % v.size()].x());
          }
        }
        ASSERT_EQ(area, s.n);
        ASSERT_EQ(regions.boundary(r), borders[0]);
        for (int i = 0; i < 50; ++i) {
          const long x = s.left + below(s.right - s.left), y = s.top + below(s.bottom - s.top);
          ASSERT_EQ(isInside(borders, {static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5}), isIn(x, y));
        }
      }
    }
  });
}

// Squares that touch at a corner, and a hole that touches the outside at one.
TEST(Regions, CornersConnectEightAndNotFour) {
  unsigned char pels[] = {1, 1, 0, 0,  //
                          1, 0, 1, 0,  //
                          1, 1, 0, 1,  //
                          0, 0, 1, 1};
  const qcRLEBuffer runs = encoded(Pels(new qcPelRoot<unsigned char>(4, 4, pels, 1)));
  const qcRLERegions four(runs, qcRLERegions::four), eight(runs);
  ASSERT_EQ(four.size(), 3U);
  EXPECT_EQ(four.boundaries(0).size(), 1U);
  EXPECT_EQ(four.boundary(1).vertices(), (std::vector<qcVector<2>>{{3, 2}, {2, 2}, {2, 1}, {3, 1}}));
  ASSERT_EQ(eight.size(), 1U);
  EXPECT_EQ(eight.boundaries(0).size(), 3U);
  EXPECT_THROW(eight.region(1), qcPelFunc::BadParams);
  EXPECT_THROW(eight.boundary(1), qcPelFunc::BadParams);
  EXPECT_THROW(qcRLERegions(runs, static_cast<qcRLERegions::Connectivity>(6)), qcPelFunc::BadParams);
  EXPECT_THROW(qcRLERegions{qcRLEBuffer()}, qcRLEBuffer::Degenerate);
}

TEST(Regions, TellHowTheyLie) {
  Pels pels(1000, 1000);
  qfPelClear(pels);
  pels.offset(2000000000, -2000000000);
  const double turn = 0.6;  // an ellipse with half axes 300 and 100
  forEachPel(qcPelRect(1000, 1000), [&](long x, long y) {
    const double u = static_cast<double>(x) - 499.5, v = static_cast<double>(y) - 499.5;
    const double a = (u * std::cos(turn) + v * std::sin(turn)) / 300;
    const double b = (v * std::cos(turn) - u * std::sin(turn)) / 100;
    if (a * a + b * b <= 1) pels.put(2000000000 + x, -2000000000 + y, 9);
  });
  const qcRLERegion region = qcRLERegions(encoded(pels)).region(0);
  EXPECT_NEAR(region.angle().plain(), turn, 1e-4);
  EXPECT_NEAR(region.elongation(), 3, 1e-3);
  EXPECT_NEAR(region.centroid.x(), 2000000500, 1e-6);
  qcRLEBuffer square(7, 7, 1);
  square.offset(2000000000, -2000000000);
  EXPECT_EQ(qcRLERegions(square).region(0).elongation(), 1);
  EXPECT_EQ(qcRLERegions(square).region(0).angle().plain(), 0);  // it lies in no direction
}

template <class Error>
void expectThrows(const std::vector<std::function<void()>>& calls) {
  for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_THROW(calls[i](), Error) << i;
}

TEST(Misuse, IsReportedAndChangesNothing) {
  const Pels pels = image(labels, 30, 4);
  qcRLEBuffer runs = encoded(pels);
  const qcRLEBuffer before(runs);
  const qcPelRect window = pels.window();
  Counts counts, sums;
  qcInt64 first = 0;
  Pels unbound;
  unbound.setUnbound();
  Pels gone = pels, shifted = pels;
  gone.setUnbound();
  shifted.offset(pels.offset() + qcPair<long>(1, 0));
  const qcPair<long> o(0, 0);
  const bool isWide = LONG_MAX > INT32_MAX;
  const std::vector<unsigned char> table(65536), small(65535);
  const auto project = [&](const qcVector<2>& direction, const qcXform<2>& xform) {
    return [&, direction, xform] { runs.projectAngle(direction, xform, sums, counts, first); };
  };
  const qcXform<2> unit, bad(qcMatrix<2>(1, 0, 0, NAN), {}), wide(qcMatrix<2>(1e7, 0, 0, 1), {}), far({}, {1e17, 0});
  expectThrows<qcPel::BadCoord>({[&] { runs.getPel(window.x0() - 1, window.y0()); },
                                 [&] { runs.getPel(window.x0(), window.y1()); },
                                 [&] { runs.getPel(LONG_MIN, LONG_MAX); }, [&] { runs.pointToRow(window.y0() - 1); }});
  expectThrows<qcPel::BadWindow>({[&] { runs.subWindow(qcPelRect(window.x0(), window.y0(), 31, 4)); },
                                  [&] { runs.subWindow(qcPelRect(window.x0() - 1, window.y0(), 1, 1)); },
                                  [&] { runs.offset(INT32_MAX - 29, 0); },
                                  [&] { runs.offset(0, isWide ? LONG_MIN : LONG_MAX); }});
  expectThrows<qcPelFunc::BadParams>(
      {[&] { runs.encode(pels, 9, 8, 1); }, [&] { runs.encode(pels, 8, 9, 256); },
       [&] { runs.encode(pels, std::vector<unsigned char>()); }, [&] { runs.encodePercent(pels, 50, 50, 1); },
       [&] { runs.encodePercent(pels, 0, 0, 101); }, [&] { runs.encodePercent(pels, 0, 0, 60, 50, 3); },
       [&] { runs.gmorphMin(static_cast<qcRLEBuffer::Shape>(3)); }, [&] { runs.combine(o, runs, small); },
       [&] { qfPelCombine_U8(pels, runs, o, small); }, project({0, 0}, unit), project({NAN, 1}, unit),
       project({1, 1}, bad)});
  expectThrows<qcPelFunc::Range>({[&] { runs.map(std::vector<unsigned char>(3)); }, project({1, 0}, wide),
                                  project({1, 0}, far),
                                  [&] { isWide ? qcRLEBuffer(LONG_MAX, 1, 0) : throw qcPelFunc::Range(); }});
  expectThrows<qcPel::UnboundWindow>({[&] { runs.encode(gone); }, [&] { runs.setRegion(unbound, 1); },
                                      [&] { runs.copyRegion(pels, unbound); }, [&] { runs.histo(unbound, counts); },
                                      [&] { qfPelCombine_U8(unbound, runs, o, table); }});
  expectThrows<qcPelFunc::Overlap>({[&] { runs.copyRegion(pels, shifted); }});
  EXPECT_NO_THROW(runs.copyRegion(pels, pels));
  EXPECT_THROW(qcRLEBuffer(-1, 5, 0), qcRectErrors::NegativeSize);
  EXPECT_TRUE(runs == before && counts.empty() && sums.empty());
  // Far away there is nothing to meet.
  EXPECT_TRUE(qcRLEBuffer(runs.combine({LONG_MAX, LONG_MIN}, runs, table)) == before);
  runs.setRegion(pels, 1, {LONG_MIN, LONG_MAX});
  EXPECT_TRUE(qfPelEqual(pels, before.image()));
}

TEST(Misuse, NothingIsToBeHadOfADegenerateBuffer) {
  qcRLEBuffer none;
  const qcRLEBuffer some(3, 2, 1);
  const Pels pels(2, 2);
  Pels empty = pels, target = pels;
  qfPelSet(target, static_cast<unsigned char>(200));  // beyond the table
  empty.subWindow(1, 1, 0, 1);
  Counts counts;
  expectThrows<qcRLEBuffer::Degenerate>(
      {[&] { none.offset(1, 1); }, [&] { none.isBinary(); }, [&] { none.getPel(0, 0); }, [&] { none.image(); },
       [&] { none.image(target); }, [&] { none.setRegion(target, 1); }, [&] { none.histo(counts); },
       [&] { none.projectDiag(counts); }, [&] { none.mask(some, 1, 2); }, [&] { some.mask(none, 1, 2); },
       [&] { none.gmorphMax(qcRLEBuffer::square); }, [&] { none.xforms(); },
       [&] { none.clientFromImageXform(qcXform<2>()); }, [&] { some.subWindow(qcPelRect(1, 1, 0, 1)); },
       [&] { qcRLEBuffer(0, 4, 1); },
       [&] { qfPelCombine_U8(target, none, pels.offset(), std::vector<unsigned char>(65536)); }});
  qcRLEBuffer first(3, 2, 1), second(first);
  EXPECT_THROW(first.encode(pels, std::vector<unsigned char>(200)), qcPelFunc::Range);
  EXPECT_THROW(second.encode(empty), qcRLEBuffer::Degenerate);
  EXPECT_TRUE(first.isDegenerate() && first == none && second == none);
}

TEST(Adoption, TakesRowsThatAddUp) {
  const auto adopt = [](long width, const std::vector<RleRun>& runs, const std::vector<std::ptrdiff_t>& starts) {
    std::vector<qcRLEBufferBlock> blocks(2);
    blocks[1] = qcRLEBufferBlock(runs.size());
    std::copy(runs.begin(), runs.end(), blocks[1].runs.get());
    std::vector<const RleRun*> rows;
    for (const std::ptrdiff_t start : starts) rows.push_back(start < -8 ? nullptr : blocks[1].runs.get() + start);
    qcRLEBuffer image(1, 1, 9);
    image.becomeOwner(width, rows, std::move(blocks));
    return image;
  };
  // Rows of any order, one of them twice; stretches split anywhere.
  const std::vector<RleRun> runs{{1, 2}, {1, 3}, {0, 0}, {7, 7}, {0, 5}, {0, 0}};
  qcRLEBuffer image = adopt(5, runs, {4, 0, 0});
  EXPECT_EQ(image.size(), qcPair<long>(5, 3));
  EXPECT_TRUE(image.isBinary());
  EXPECT_EQ(image.numRuns(), 5U);
  EXPECT_TRUE(qcRLEBuffer(image.subWindow(qcPelRect(0, 1, 5, 2))) == qcRLEBuffer(5, 2, 1));
  expectImage(image.gmorphMax(qcRLEBuffer::square), qcPelRect(5, 3), [](long, long) { return 1; });
  expectImage(image.map({0, 1}), qcPelRect(5, 3), [](long, long y) { return y > 0; });
  Counts counts, runCounts;
  image.histo(counts, runCounts);
  EXPECT_EQ(counts, (Counts{5, 10}));
  EXPECT_EQ(runCounts, (Counts{1, 4}));

  std::vector<qcRLEBufferBlock> blocks;
  std::vector<const RleRun*> rows;
  for (int y = 0; y < 200; ++y) {
    RleRun* const row = blocks.emplace_back(2).runs.get();
    row[0] = RleRun(static_cast<unsigned char>(y), 5);
    row[1] = RleRun(0, 0);
    rows.push_back(row);
  }
  std::shuffle(blocks.begin(), blocks.end(), random_);
  image.becomeOwner(5, rows, std::move(blocks));
  expectImage(image, qcPelRect(5, 200), [](long, long y) { return y; });

  const std::tuple<const char*, long, std::vector<RleRun>, std::vector<std::ptrdiff_t>> bad[] = {
      {"no rows", 5, runs, {}},
      {"no width", 0, {{0, 0}}, {0}},
      {"null", 5, runs, {-9}},
      {"in front of the block", 5, runs, {-1}},
      {"behind the block", 5, runs, {6}},
      {"too short", 6, runs, {0}},
      {"too long", 4, runs, {0}},
      {"no end", 5, {{1, 5}}, {0}},
      {"an end with a value", 5, {{1, 5}, {1, 0}}, {0}},
      {"too long for 32 bits", LONG_MAX, runs, {0}},
  };
  for (const auto& [what, width, of, starts] : bad)
    EXPECT_THROW(adopt(width, of, starts), qcPelFunc::BadParams) << what;
}

TEST(Archive, TheWorkedExample) {
  const std::string bytes = documentedBytes("archive-runs.md");
  qcRLEBuffer loaded(1, 1, 1);
  EXPECT_EQ(archived(kBig, false, load(bytes, loaded)), bytes);
  EXPECT_TRUE(loaded.hintNumRuns() == 100 && loaded.createTime() == 0.5);
  expectImage(loaded, qcPelRect(10, 20, 300, 2), [](long x, long y) { return y == 21 && x >= 13 && x < 17; });
  EXPECT_TRUE(load(archived(kLittle, false, qcRLEBuffer()), loaded).isDegenerate());
}

TEST(Archive, ReadsOlderVersionsAndWritesNone) {
  const std::string head = "0200 F1664BDF", fields = "00000007 00 00000008 3FF0000000000000 00000003 00000002";
  const std::string runs = "00000003 0102 0001 0000 0503 0000";
  const std::string linear = "00 00 40000000 00000000 BFF00000 00000000";  // versions, translation (2, -1)
  const std::string matrix =
      "00 3FF0000000000000 0000000000000000 0000000000000000 3FF0000000000000 3FF0000000000000 00";
  qcRLEBuffer image;
  load(fromHex(head + "00 00" + fields + runs), image);
  const auto pel = [](long x, long y) { return y == 0 ? (x < 2 ? 1 : 0) : 5; };
  expectImage(image, qcPelRect(3, 2), pel);
  EXPECT_EQ(image.clientFromImageXform(), qcXform<2>());
  load(fromHex(head + "01 00" + fields + "00000004 FFFFFFFE" + linear + matrix + "01" + runs), image);
  expectImage(image, qcPelRect(4, -2, 3, 2), [&](long x, long y) { return pel(x - 4, y + 2); });
  EXPECT_EQ(image.clientFromImageXform().trans(), qcVector<2>(2, -1));

  EXPECT_TRUE(errorOf([&] { load(fromHex(head + "03 00"), image); }).starts_with(L"qcArchive::UnknownVersion"));
  struct Old : qcRLEBuffer {
    void store(qcArchive& archive) { serialize_(archive, 1); }
  } old;
  qcMemoryArchive archive(qcArchive::bigEndian, false);
  EXPECT_THROW(old.store(archive), qcArchive::UnknownVersion);
}

TEST(Archive, ArrivesThroughPipes) {
  const Pels pels = image(noise, 700, 300);  // more than one piece
  std::string bytes = archived(kLittle, false, encoded(pels));
  qcRLEBuffer loaded;
  loadFromPipe(bytes, loaded);
  expectImage(loaded, pels.window(), of(pels));
  bytes.pop_back();
  EXPECT_THROW(loadFromPipe(bytes, loaded), qcArchive::Eof);
  EXPECT_TRUE(loaded == encoded(pels));
}

// What changes an image is seen by archives that have stored it: they store it anew.
TEST(Archive, StoresChangedImagesAnew) {
  const std::function<void(qcRLEBuffer&)> changes[] = {
      [](qcRLEBuffer& i) { i.makeContiguous(); },  // which is no change
      [](qcRLEBuffer& i) { i.offset(1, 2); },
      [](qcRLEBuffer& i) { i.hintNumRuns(5); },
      [](qcRLEBuffer& i) { i.encode(Pels(new qcPelRoot<unsigned char>(4, 4))); },
      [](qcRLEBuffer& i) { i = i.gmorphMin(qcRLEBuffer::square); },
      [](qcRLEBuffer& i) { i = qcRLEBuffer(1, 1, 1); },
      [](qcRLEBuffer& i) { i.clientFromImageXform(qcXform<2>(qcMatrix<2>(2, 0, 0, 2), {})); },
      [](qcRLEBuffer& i) { qcRLEBuffer(5, 5, 5).transfer(i); },
  };
  for (const auto& change : changes) {
    qcRLEBuffer image(1000, 3, 1);
    qcMemoryArchive archive(qcArchive::littleEndian, false);
    storePointer(archive, image);
    change(image);
    const std::size_t before = archive.bytes().size();
    storePointer(archive, image);
    EXPECT_EQ(archive.bytes().size() - before > 18, &change != changes) << &change - changes;  // those of a reference
  }
}

}  // namespace
