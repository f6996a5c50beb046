// The tool: how near its measurements come to drawn truth, what it saves, and its exit statuses.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numbers>
#include <sstream>

#include "tools/vnx/blobs.h"
#include "tools/vnx/gauge.h"
#include "tools/vnx/overlay.h"
#include "tools/vnx/part.h"
#include "vnxstd/archive/file.h"
#include "vnxstd/archive/text.h"
#include "vnxstd/dib/dib.h"
#include "vnxstd/math/random.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/line.h"

namespace {

// An image whose grey level is a smooth function of the signed distance from a feature.
template <class Distance>
qcPelBuffer<unsigned char> drawn(Distance distance, double noise, std::int32_t seed) {
  qcRandomGaussian random(seed);
  qcPelBuffer<unsigned char> image(qcPelRect(-20, 30, 120, 100));
  for (long y = 30; y < 130; ++y)
    for (long x = -20; x < 100; ++x) {
      const double d = distance(qcVector<2>(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5));
      const double grey = 120 + 70 * std::erf(d / 1.3) + random.next(noise, 0);
      image.put(x, y, static_cast<unsigned char>(std::lround(std::min(255.0, std::max(0.0, grey)))));
    }
  return image;
}

const qcRect kRegion(qcVector<2>(-15, 35), qcVector<2>(110, 90));

TEST(Gauge, LinesAtEveryAngle) {
  qcRandomUniform random(5);
  for (int i = 0; i < 36; ++i) {
    const qcDegree angle(10.0 * i + random.next(-4, 4));
    const qc2Rigid frame(angle, qcVector<2>(40 + random.next(-5, 5), 80 + random.next(-5, 5)));
    const auto image = drawn([&](const qcVector<2>& p) { return frame.invMapPoint(p).y(); }, 3, i + 1);
    const auto result = gauge(image, {kRegion, Feature::line, Polarity::any});
    ASSERT_TRUE(result) << i;
    const auto& line = dynamic_cast<const qcFLine&>(*result.measurement->shape);
    for (const double along : {-25.0, 0.0, 25.0})
      EXPECT_LT(std::abs(line.distanceFrom(frame * qcVector<2>(along, 0))), 0.1) << i;
    EXPECT_GT(result.measurement->inliers(), 30);
    // The frame lies on the line: its x axis maps onto it.
    for (const double along : {-10.0, 10.0})
      EXPECT_NEAR(line.distanceFrom(result.measurement->frame->mapPoint(qcVector<2>(along, 0))), 0, 1e-9);
  }
}

TEST(Gauge, CirclesWithAnOccludedSector) {
  qcRandomUniform random(6);
  for (int i = 0; i < 20; ++i) {
    const qcVector<2> centre(40 + random.next(-6, 6), 80 + random.next(-6, 6));
    const double radius = random.next(12, 30), gap = random.next(0, 2 * std::numbers::pi);
    const auto image = drawn(
        [&](const qcVector<2>& p) {
          const qcVector<2> v = p - centre;
          // A straight flank cuts away part of the disc.
          const double flank = v * qcVector<2>(std::cos(gap), std::sin(gap)) - 0.6 * radius;
          return std::max(v.len() - radius, flank);
        },
        2, i + 1);
    const auto result = gauge(image, {kRegion, Feature::circle, Polarity::darkToLight});
    ASSERT_TRUE(result) << i;
    const auto& circle = dynamic_cast<const qcCircle&>(*result.measurement->shape);
    EXPECT_LT(circle.center().distance(centre), 0.2) << i;
    EXPECT_LT(std::abs(circle.radius() - radius), 0.2) << i;
    EXPECT_LT(result.measurement->inliers(), 60);
    EXPECT_FALSE(gauge(image, {kRegion, Feature::circle, Polarity::lightToDark}));
  }
}

TEST(Gauge, ImagesFarFromTheOrigin) {
  for (const Feature feature : {Feature::line, Feature::circle}) {
    const auto image = drawn(
        [=](const qcVector<2>& p) {
          return feature == Feature::line ? p.x() + p.y() / 3 - 60 : p.distance({41.3, 79.6}) - 11;
        },
        2, 4);
    const auto near = gauge(image, {kRegion, feature, Polarity::any});
    for (const long far : {100000L, 1L << 22, 1L << 30}) {
      qcPelBuffer<unsigned char> away = image;
      away.offset(far, -far);
      const qcVector<2> by = qcVector<2>(away.offset()) - qcVector<2>(image.offset());
      const auto result = gauge(away, {qcRect(kRegion.origin() + by, kRegion.size()), feature, Polarity::any});
      ASSERT_TRUE(near && result) << far;
      EXPECT_EQ(result.measurement->inliers(), near.measurement->inliers());
      for (const qcVector<2>& p : {qcVector<2>(30, 60), qcVector<2>(55, 80)})
        EXPECT_NEAR(result.measurement->shape->nearestPoint(p + by).distance(p + by),
                    near.measurement->shape->nearestPoint(p).distance(p), 1e-5)
            << far;
    }
  }
}

TEST(Gauge, OverlaysOfLongImagesAreNotEnlarged) {
  vnxMeasurement measurement;
  measurement.image = qcPelBuffer<unsigned char>(100, 3000);
  measurement.shape = new qcFLine;
  EXPECT_EQ(drawOverlay(measurement, {}).width(), 100);
}

TEST(Gauge, NoiseAloneIsNoFeature) {
  for (std::int32_t seed = 1; seed < 6; ++seed) {
    const auto image = drawn([](const qcVector<2>&) { return 0.0; }, 4, seed);
    EXPECT_FALSE(gauge(image, {kRegion, Feature::line, Polarity::any}));
    EXPECT_FALSE(gauge(image, {kRegion, Feature::circle, Polarity::any}));
  }
  const auto image = drawn([](const qcVector<2>& p) { return p.x(); }, 0, 1);
  for (const qcRect& region :
       {qcRect(qcVector<2>(1e9, 0), qcVector<2>(50, 50)), qcRect(qcVector<2>(0, 0), qcVector<2>(1, 1))})
    EXPECT_FALSE(gauge(image, {region, Feature::line, Polarity::any}));
}

TEST(Gauge, StraightEdgesNearTheMiddleAreNoCircles) {
  for (double offset = -8; offset < 8; offset += 0.7) {
    const auto image = drawn([=](const qcVector<2>& p) { return p.x() - 40 - offset - 0.01 * p.y(); }, 1, 3);
    EXPECT_FALSE(gauge(image, {kRegion, Feature::circle, Polarity::any})) << offset;
  }
}

// Grey levels of two kinds: the best threshold lies between them, and parts them as any brute search would.
TEST(Blobs, ThresholdParts) {
  qcRandomGaussian random(3);
  for (int i = 0; i < 20; ++i) {
    const double dark = 30 + 4 * i, bright = dark + 60 + i;
    qcPelBuffer<unsigned char> image(60, 50);
    for (long y = 0; y < 50; ++y)
      for (long x = 0; x < 60; ++x)
        image.put(x, y, static_cast<unsigned char>(std::lround(random.next(5, x < 10 + 2 * i ? dark : bright))));
    const unsigned char threshold = otsuThreshold(image);
    EXPECT_GT(threshold, dark + 15) << i;
    EXPECT_LT(threshold, bright - 14) << i;
  }
}

// Mirrored levels: to part those below 99 from the rest is as good as to part those above 101, to part 99 from 101 is
// worst.
TEST(Blobs, ThresholdIsNotBetweenTwoThatAreAlike) {
  qcPelBuffer<unsigned char> image(1020, 1);
  for (long x = 0; x < 1020; ++x) image.put(x, 0, x < 10 ? 0 : x < 510 ? 99 : x < 1010 ? 101 : 200);
  EXPECT_EQ(otsuThreshold(image), 50);
}

class Tool : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("vnx_tool_" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string file(const char* name) const { return (folder_ / name).string(); }
  // The exit status; what was printed goes to `output`.
  int run(const std::string& arguments, const std::string& to = "out") {
    const std::string command =
        "cd '" + folder_.string() + "' && '" VNXSTD_TOOL "' " + arguments + " >" + to + " 2>err";
    const int status = std::system(command.c_str());
    output = text("out");
    errors = text("err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string text(const char* name) const {
    std::ostringstream all;
    all << std::ifstream(file(name)).rdbuf();
    return all.str();
  }

  std::filesystem::path folder_;
  std::string output, errors;
};

TEST_F(Tool, DemoHoldsItsTolerance) {
  EXPECT_EQ(run("demo"), 0) << output << errors;
  for (const char* name : {"part.bmp", "left.arc", "left-overlay.bmp", "hole.arc", "hole-overlay.bmp"})
    EXPECT_TRUE(std::filesystem::exists(file(name))) << name;
}

TEST_F(Tool, SavesWhatItMeasured) {
  const Part part;
  qcDIB bitmap;
  bitmap.init(drawPart(part, 640, 480));
  bitmap.write(qf_Widen(file("part.bmp")));
  const std::string call =
      "gauge part.bmp --roi 300,120,200,200 --find circle --polarity dark-light --scans 48 --save c.arc --overlay "
      "c.bmp";
  ASSERT_EQ(run(call), 0) << errors;
  EXPECT_NE(output.find("circle: centre"), std::string::npos);
  const auto saved = loadMeasurement(file("c.arc"));
  const auto& circle = dynamic_cast<const qcCircle&>(*saved->shape);
  EXPECT_LT(circle.center().distance(part.inImage(part.hole)), 0.05);
  EXPECT_LT(saved->points.size(), 49U);
  EXPECT_EQ(saved->image.width(), 640);
  const qcPelBuffer<unsigned char> original = bitmap.pelBuffer();
  for (long y = 0; y < 480; y += 7)
    for (long x = 0; x < 640; x += 5) ASSERT_EQ(saved->image.get(x, y), original.get(x, y));
  ASSERT_EQ(run("info c.arc"), 0) << errors;
  EXPECT_NE(output.find("vnxMeasurement"), std::string::npos);
  EXPECT_NE(output.find("circle: centre"), std::string::npos);
  ASSERT_EQ(run("info c.bmp"), 0);
  EXPECT_NE(output.find("32 bits"), std::string::npos);
}

TEST_F(Tool, ListsAndDrawsBlobs) {
  qcPelBuffer<unsigned char> image(qcPelRect(5, -3, 60, 40));
  for (long y = -3; y < 37; ++y)
    for (long x = 5; x < 65; ++x) {
      const bool isBar = x >= 10 && x < 30 && y >= 0 && y < 10, isDot = x == 50 && y == 20;
      image.put(x, y, isBar || isDot ? 200 : 40);
    }
  qcDIB bitmap;
  bitmap.init(image);
  bitmap.write(qf_Widen(file("blobs.bmp")));
  ASSERT_EQ(run("blobs blobs.bmp --overlay o.bmp"), 0) << errors;
  std::istringstream lines(output);
  std::string line;
  std::vector<std::vector<double>> rows;
  while (std::getline(lines, line)) {
    std::istringstream numbers(line);
    rows.emplace_back(std::istream_iterator<double>(numbers), std::istream_iterator<double>());
  }
  ASSERT_EQ(rows.size(), 5U);
  EXPECT_EQ(rows[3], (std::vector<double>{1, 200, 20, 5, 10, 0, 20, 10, 0, 2}));
  EXPECT_EQ(rows[4], (std::vector<double>{2, 1, 50.5, 20.5, 50, 20, 1, 1, 0, 1}));
  qcDIB overlay;
  overlay.init(qf_Widen(file("o.bmp")));
  EXPECT_EQ(overlay.width(), 240);
  qcPelBuffer<qcPackedRGB32Pel> drawn;
  overlay.pelBuffer(drawn);
  const auto isYellow = [&](long x, long y) { return drawn.get(x, y).r() > drawn.get(x, y).b() + 40; };
  EXPECT_TRUE(isYellow(4 * 5, 4 * 8) && isYellow(4 * 25, 4 * 5));
  EXPECT_FALSE(isYellow(4 * 10, 4 * 5) || isYellow(4 * 30, 4 * 8));
  ASSERT_EQ(run("blobs blobs.bmp --min-area 2 --threshold 200"), 0);
  EXPECT_NE(output.find("regions: 1\n"), std::string::npos);
  ASSERT_EQ(run("blobs blobs.bmp --dark"), 0);
  EXPECT_NE(output.find(" 2199 "), std::string::npos);
}

TEST_F(Tool, ExitStatuses) {
  qcDIB bitmap;
  bitmap.init(drawn([](const qcVector<2>& p) { return p.x() - 40; }, 1, 1));
  bitmap.write(qf_Widen(file("edge.bmp")));
  std::ofstream(file("cut.bmp"), std::ios::binary).write(text("edge.bmp").data(), 900);
  std::ofstream(file("cut.arc"), std::ios::binary).write("\x02\x01\x4F\xE5\x70\x54\x01\x01", 8);
  std::ofstream(file("text")) << "nothing of ours";
  qcDIB::BadFormat error(L"twice");
  qcPersistent* pointer = &error;
  qcFileArchive twice(qf_Widen(file("twice.arc")), qcArchive::storing);
  for (int i = 0; i < 2; ++i) qcPersistent::serializePointer(twice, &error, pointer);
  twice.close();
  bitmap.xOffset(std::numeric_limits<std::int32_t>::max());
  bitmap.write(qf_Widen(file("far.bmp")));
  const struct {
    const char* arguments;
    int status;
  } cases[] = {{"gauge edge.bmp --roi -15,35,110,90 --find line", 0},
               {"gauge edge.bmp --roi -15,35,30,90 --find line", 1},
               {"gauge edge.bmp --roi -15,35,110,90 --find circle", 1},
               {"gauge edge.bmp --roi -15,35,110 --find line", 2},
               {"gauge edge.bmp --roi -15,35,0,90 --find line", 2},
               {"gauge edge.bmp --roi -15,35,nan,90 --find line", 2},
               {"gauge edge.bmp --roi -15,1e308,110,1e308 --find line", 2},
               {"gauge edge.bmp --roi -15,35,110,90 --find square", 2},
               {"gauge --roi -15,35,110,90 edge.bmp --find line", 0},
               {"gauge edge.bmp --roi '-15, 35,110, 90' --find line", 0},
               {"gauge edge.bmp --roi -15,35,110,90,1 --find line", 2},
               {"gauge edge.bmp --roi -15,35,110,90 --find line --scans 4", 2},
               {"gauge edge.bmp --roi -15,35,110,90 --find line --polarity up", 2},
               {"gauge edge.bmp --roi -15,35,110,90 --find line --save edge.bmp", 2},
               {"gauge edge.bmp --roi -15,35,110,90 --find line --overlay ./edge.bmp", 2},
               {"gauge edge.bmp --roi -15,35,110,90 --find line --save new --overlay ./new", 2},
               {"gauge edge.bmp --roi 1000,35,110,90 --find line", 1},
               {"--version", 0},
               {"gauge edge.bmp --find line", 2},
               {"", 2},
               {"measure", 2},
               {"--help", 0},
               {"gauge missing.bmp --roi 0,0,9,9 --find line", 3},
               {"gauge cut.bmp --roi 0,0,9,9 --find line", 3},
               {"gauge text --roi 0,0,9,9 --find line", 3},
               {"gauge edge.bmp --roi -15,35,110,90 --find line --save /nowhere/x.arc", 3},
               {"blobs edge.bmp", 0},
               {"blobs edge.bmp --threshold 255", 1},
               {"blobs edge.bmp --threshold 256", 2},
               {"blobs edge.bmp --threshold -1", 2},
               {"blobs edge.bmp --threshold 1x", 2},
               {"blobs edge.bmp --min-area 0", 2},
               {"blobs edge.bmp --overlay ./edge.bmp", 2},
               {"blobs", 2},
               {"blobs cut.bmp", 3},
               {"blobs edge.bmp --overlay /nowhere/x.bmp", 3},
               {"info missing", 3},
               {"info text", 3},
               {"info cut.arc", 3},
               {"info .", 3},
               {"gauge far.bmp --roi -15,35,110,90 --find line", 3},
               {"info far.bmp", 0},
               {"info twice.arc", 0},
               {"info edge.bmp", 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(run(c.arguments), c.status) << c.arguments << '\n' << output << errors;
    EXPECT_EQ(errors.empty(), c.status == 0) << c.arguments;
    EXPECT_TRUE(errors.empty() || errors.starts_with("vnx")) << errors;
  }
  EXPECT_EQ(text("edge.bmp").substr(0, 2), "BM");
  if (!std::filesystem::exists("/dev/full")) return;
  for (const char* call : {"info edge.bmp", "--help", "gauge edge.bmp --roi -15,35,110,90 --find line", "demo"}) {
    EXPECT_EQ(run(call, "/dev/full"), 3) << call;
    EXPECT_NE(errors.find("standard output"), std::string::npos) << call;
  }
}

}  // namespace
