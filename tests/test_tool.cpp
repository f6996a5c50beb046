// The tool: how near its measurements come to drawn truth, what it saves, and its exit statuses.

#include <png.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "support/archivable.h"
#include "support/bytes.h"
#include "support/folder.h"
#include "support/test.h"
#include "support/xml.h"
#include "tools/vnx/blobs.h"
#include "tools/vnx/extract.h"
#include "tools/vnx/gauge.h"
#include "tools/vnx/inspect.h"
#include "tools/vnx/objects.h"
#include "tools/vnx/overlay.h"
#include "tools/vnx/part.h"
#include "tools/vnx/pngfile.h"
#include "tools/vnx/recordhead.h"
#include "tools/vnx/render.h"
#include "tools/vnx/salvage.h"
#include "tools/vnx/svg.h"
#include "vnxstd/archive.h"
#include "vnxstd/dib/dib.h"
#include "vnxstd/math.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/shapes.h"
#include "vnxstd/vdb/vdbarch.h"

namespace {

using V = qcVector<2>;
using Points = std::vector<V>;
using Grey = qcPelBuffer<unsigned char>;

Grey imageOf(const qcPelRect& window, const auto& grey) {
  Grey image(window);
  for (long y = window.y0(); y < window.y1(); ++y)
    for (long x = window.x0(); x < window.x1(); ++x) image.put(x, y, static_cast<unsigned char>(grey(x, y)));
  return image;
}

// An image whose grey level is a smooth function of the signed distance from a feature.
Grey drawn(const auto& distance, double noise, std::int32_t seed) {
  qcRandomGaussian random(seed);
  return imageOf(qcPelRect(-20, 30, 120, 100), [&](long x, long y) {
    const double d = distance(V(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5));
    return std::lround(std::clamp(120 + 70 * std::erf(d / 1.3) + random.next(noise, 0), 0.0, 255.0));
  });
}

// One edge, straight or round.
Grey drawnEdge(Feature feature, double radius) {
  const auto distance = [&](const V& p) {
    return feature == Feature::line ? p.x() + p.y() / 3 - 60 : p.distance({41.3, 79.6}) - radius;
  };
  return drawn(distance, 2, 4);
}

const qcRect kRegion(V(-15, 35), V(110, 90));

TEST(Gauge, LinesAtEveryAngle) {
  qcRandomUniform random(5);
  for (int i = 0; i < 36; ++i) {
    const qcDegree angle(10.0 * i + random.next(-4, 4));
    const qc2Rigid frame(angle, V(40 + random.next(-5, 5), 80 + random.next(-5, 5)));
    const auto image = drawn([&](const V& p) { return frame.invMapPoint(p).y(); }, 3, i + 1);
    const auto result = gauge(image, {kRegion, Feature::line, Polarity::any});
    ASSERT_TRUE(result) << i;
    const auto& line = dynamic_cast<const qcFLine&>(*result.measurement->shape);
    for (const double along : {-25.0, 0.0, 25.0}) EXPECT_LT(std::abs(line.distanceFrom(frame * V(along, 0))), 0.1) << i;
    EXPECT_GT(result.measurement->inliers(), 30);
    // The frame lies on the line: its x axis maps onto it.
    for (const double along : {-10.0, 10.0})
      EXPECT_NEAR(line.distanceFrom(result.measurement->frame->mapPoint(V(along, 0))), 0, 1e-9);
  }
}

TEST(Gauge, CirclesWithAnOccludedSector) {
  qcRandomUniform random(6);
  for (int i = 0; i < 20; ++i) {
    const V centre(40 + random.next(-6, 6), 80 + random.next(-6, 6));
    const double radius = random.next(12, 30), gap = random.next(0, 2 * std::numbers::pi);
    const auto image = drawn(
        [&](const V& p) {
          const V v = p - centre;
          // A straight flank cuts away part of the disc.
          const double flank = v * V(std::cos(gap), std::sin(gap)) - 0.6 * radius;
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
    const auto image = drawnEdge(feature, 11);
    const auto near = gauge(image, {kRegion, feature, Polarity::any});
    for (const long far : {100000L, 1L << 22, 1L << 30}) {
      Grey away = image;
      away.offset(far, -far);
      const V by = V(away.offset()) - V(image.offset());
      const auto result = gauge(away, {qcRect(kRegion.origin() + by, kRegion.size()), feature, Polarity::any});
      ASSERT_TRUE(near && result) << far;
      EXPECT_EQ(result.measurement->inliers(), near.measurement->inliers());
      for (const V& p : {V(30, 60), V(55, 80)})
        EXPECT_NEAR(result.measurement->shape->nearestPoint(p + by).distance(p + by),
                    near.measurement->shape->nearestPoint(p).distance(p), 1e-5)
            << far;
    }
  }
}

TEST(Gauge, OverlaysOfLongImagesAreNotEnlarged) {
  vnxMeasurement measurement;
  measurement.image = Grey(100, 3000);
  measurement.shape = new qcFLine;
  EXPECT_EQ(drawOverlay(measurement, {}).width(), 100);
}

// A ring or a rectangle, upright or turned: the ellipse is found, also where a flank cuts some of it away.
TEST(Gauge, EllipsesInRegionsOfEveryKind) {
  qcRandomUniform random(8);
  for (int i = 0; i < 24; ++i) {
    const qcEllipse2 truth({40 + random.next(-5, 5), 80 + random.next(-5, 5)}, qcRadian(random.next(-3, 3)),
                           {random.next(22, 32), random.next(13, 20)}, true, qcRadian(0));
    const V cut = truth.point(qcRadian(random.next(-3, 3))) - truth.center();
    const auto image = drawn(
        [&](const V& p) {
          const double d = truth.nearestPoint(p).distance(p);
          const double flank = (p - truth.center()) * cut.unit() - 0.85 * cut.len();
          return std::max(truth.within(p) ? -d : d, i % 2 == 0 ? flank : -1e9);
        },
        2, i + 1);
    const auto wider = [&](double by) {
      return qcEllipse2(truth.center(), truth.angle(), truth.radii() + V(by, by), true, qcRadian(0));
    };
    const Region regions[] = {kRegion, qcAffineRectangle({42, 79}, 95, 80, truth.angle(), qcRadian(0.1)),
                              Region(wider(-9), wider(9))};
    const auto result = gauge(image, {regions[i % 3], Feature::ellipse, Polarity::darkToLight, 80});
    ASSERT_TRUE(result) << i << result.whyNot;
    const auto& found = dynamic_cast<const qcEllipse2&>(*result.measurement->shape);
    EXPECT_LT(found.center().distance(truth.center()), 0.25) << i;
    EXPECT_LT((found.radii() - truth.radii()).len(), 0.35) << i;
    for (const ScanLine& scan : result.scans)
      EXPECT_TRUE(regions[i % 3].contains(scan.from + (scan.to - scan.from) * 1e-6) &&
                  regions[i % 3].contains(scan.to + (scan.from - scan.to) * 1e-6));
  }
}

// Of two parallel edges a turned, skewed rectangle sees the one that it lies on, and its scans stay inside.
TEST(Gauge, AffineRegionsSeeOnlyWhatIsInside) {
  for (int degrees = 0; degrees < 360; degrees += 20) {
    const qc2Rigid frame(qcDegree(degrees), {40, 80});
    const auto image = drawn([&](const V& p) { return 5 - std::abs(frame.invMapPoint(p).y() - 6); }, 1, degrees + 1);
    const qcAffineRectangle region(frame * V(0, 1), 60, 11, qcRadian(qcDegree(degrees)), qcRadian(0.3));
    const auto result = gauge(image, {region, Feature::line, Polarity::any});
    ASSERT_TRUE(result) << degrees << result.whyNot;
    const auto& line = dynamic_cast<const qcFLine&>(*result.measurement->shape);
    for (const double along : {-25.0, 25.0}) EXPECT_NEAR(line.distanceFrom(frame * V(along, 1)), 0, 0.15);
    const auto part = result.measurement->lineInRegion();
    ASSERT_TRUE(part);
    EXPECT_NEAR(part->perimeter(), 60, 0.5);
  }
}

// Results in the world are the results in the image, mapped, where the calibration is a similarity.
TEST(Gauge, SimilaritiesMapWhatIsMeasured) {
  qcRandomUniform random(9);
  for (const Feature feature : {Feature::line, Feature::circle, Feature::ellipse}) {
    const auto image = drawnEdge(feature, 21);
    const auto plain = gauge(image, {kRegion, feature, Polarity::any});
    for (int i = 0; i < 6; ++i) {
      const double scale = std::pow(10, random.next(-4, 3));
      const qcXform<2> xform({random.next(-90, 90), random.next(-90, 90)}, qcRadian(0.3), qcRadian(0.3), scale, scale);
      auto calibrated = image;
      calibrated.clientFromImageXform(xform);
      const auto result = gauge(calibrated, {kRegion, feature, Polarity::any, 60, "mm"});
      ASSERT_TRUE(plain && result) << result.whyNot;
      EXPECT_EQ(result.measurement->inliers(), plain.measurement->inliers());
      const double same = (feature == Feature::line ? 1e-4 : 0.03) * scale;  // scans of round features start elsewhere
      EXPECT_NEAR(result.measurement->rms, plain.measurement->rms * scale, same);
      for (const V& p : {V(30, 60), V(55, 80)})
        EXPECT_NEAR(result.measurement->shape->nearestPoint(xform * p).distance(xform * p),
                    plain.measurement->shape->nearestPoint(p).distance(p) * scale, same);
      const auto drawn = result.measurement->shapeInImage(), alone = plain.measurement->shapeInImage();
      ASSERT_EQ(drawn.size(), 1U);
      for (const V& p : drawn[0]) EXPECT_LT(plain.measurement->shape->nearestPoint(p).distance(p), 0.05);
    }
  }
}

TEST(Gauge, NoiseAloneIsNoFeature) {
  for (std::int32_t seed = 1; seed < 6; ++seed) {
    const auto image = drawn([](const V&) { return 0.0; }, 4, seed);
    for (const Feature feature : {Feature::line, Feature::circle, Feature::ellipse})
      EXPECT_FALSE(gauge(image, {kRegion, feature, Polarity::any}));
  }
  const auto image = drawn([](const V& p) { return p.x(); }, 0, 1);
  for (const qcRect& region : {qcRect(V(1e9, 0), V(50, 50)), qcRect(V(0, 0), V(1, 1))})
    EXPECT_FALSE(gauge(image, {region, Feature::line, Polarity::any}));
}

TEST(Gauge, StraightEdgesNearTheMiddleAreNotRound) {
  for (double offset = -8; offset < 8; offset += 0.7) {
    const auto image = drawn([=](const V& p) { return p.x() - 40 - offset - 0.01 * p.y(); }, 1, 3);
    for (const Feature feature : {Feature::circle, Feature::ellipse})
      EXPECT_FALSE(gauge(image, {kRegion, feature, Polarity::any})) << offset;
  }
}

// Mirrored levels: to part those below 99 from the rest is as good as to part those above 101, to part 99 from 101 is
// worst.
TEST(Blobs, ThresholdIsNotBetweenTwoThatAreAlike) {
  const auto image = imageOf(qcPelRect(1020, 1), [](long x, long) {
    return x < 10 ? 0 : x < 510 ? 99 : x < 1010 ? 101 : 200;
  });
  EXPECT_EQ(otsuThreshold(image), 50);
}

class Tool : public InFolder {
 protected:
  using InFolder::write;
  qcDIB write(const char* name, const Grey& image) const {
    qcDIB bitmap;
    bitmap.init(image);
    bitmap.write(path(name));
    return bitmap;
  }
  // The exit status; what was printed goes to `output`.
  int run(const std::string& arguments, const std::string& to = "out") {
    const std::string command =
        "cd '" + folder_.string() + "' && " + limit + " '" VNXSTD_TOOL "' " + arguments + " >" + to + " 2>err";
    const int status = std::system(command.c_str());
    output = text("out");
    errors = text("err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  /// Runs the calls of a file, on each line: the exit status, the arguments and, behind a #, something that is said.
  void expectCalls(const std::string& name) {
    std::ifstream calls(VNXSTD_SOURCE_DIR "/tests/golden/" + name);
    int count = 0;
    for (std::string line; std::getline(calls, line); ++count) {
      const std::size_t end = line.find(" # ");
      EXPECT_EQ(run(line.substr(1, end - 1)), line[0] - '0') << line << '\n' << output << errors;
      EXPECT_EQ(errors.empty(), line[0] == '0') << line << errors;
      EXPECT_TRUE(errors.empty() || errors.starts_with("vnx")) << errors;
      EXPECT_EQ((output + errors).find_first_of("\x1B\r"), std::string::npos) << line;
      const std::string said = end == std::string::npos ? "" : line.substr(end + 3);
      EXPECT_NE((output + errors).find(said), std::string::npos) << line << '\n' << output << errors;
    }
    EXPECT_GT(count, 30);
  }
  std::string output, errors, limit;
};

TEST_F(Tool, DemoHoldsItsTolerance) {
  EXPECT_EQ(run("demo"), 0) << output << errors;
  for (const char* name : {"part.bmp", "left.arc", "left-overlay.bmp", "hole.arc", "hole-overlay.bmp", "board.csv",
                           "plate-oval.arc", "plate-oval-overlay.svg"})
    EXPECT_TRUE(std::filesystem::exists(file(name))) << name;
}

TEST_F(Tool, SavesWhatItMeasured) {
  const Part part;
  const qcDIB bitmap = write("part.bmp", drawPart(part, 640, 480));
  const std::string call =
      "gauge part.bmp --roi 300,120,200,200 --find circle --polarity dark-light --scans 48 --save c.arc --overlay "
      "c.bmp";
  ASSERT_EQ(run(call), 0) << errors;
  EXPECT_NE(output.find("circle: centre"), std::string::npos);
  const auto saved = loadMeasurement(file("c.arc"));
  const auto& circle = dynamic_cast<const qcCircle&>(*saved->shape);
  EXPECT_LT(circle.center().distance(part.inImage(part.hole)), 0.05);
  EXPECT_LT(saved->points.size(), 49U);
  EXPECT_TRUE(qfPelEqual(saved->image, bitmap.pelBuffer()));
}

TEST_F(Tool, ReadsMeasurementsOfItsFirstVersion) {
  const auto old = loadMeasurement(VNXSTD_SOURCE_DIR "/tests/golden/measurement.v0.arc");
  EXPECT_EQ(old->shapeText(), "line: angle 264.4074 deg, distance 9.5746 px");
  EXPECT_EQ(old->region.outline().boundingBox(), qcRect({0, 0}, {20, 20}));
  saveMeasurement(file("new.arc"), *old);
  const auto again = loadMeasurement(file("new.arc"));
  EXPECT_EQ(again->points, old->points);
  EXPECT_EQ(again->rms, old->rms);
}

std::string gridCsv(const char* separator, const char* end, int count) {
  std::ostringstream text;
  for (int i = 0; i < count; ++i)
    text << 10 + 20 * (i % 4) << separator << 40 + 20 * (i / 4) << separator << " " << 5.0 * (i % 4) << separator
         << 5.0 * (i / 4) + 0.01 * (i % 3) << end;
  return text.str();
}

TEST_F(Tool, CalibrationsAreReadOrRefusedWithTheReason) {
  write("edge.bmp", drawn([](const V& p) { return p.x() - 40; }, 1, 1));
  const std::string grid = gridCsv(",", "\n", 16), three = gridCsv(",", "\n", 3);
  const std::string cut = "0,0,1,1\n9,0,2,1\n0,9,1,2\n";
  const struct {
    std::string text, transform;
    int status;
    const char* says;  // of the output, or of the message
  } cases[] = {{grid, "linear", 0, "mm a pixel"},
               {grid, "perspective", 0, "calibration: perspective from 16 points, rms"},
               {grid, "polynomial:2", 0, "rms when left out"},
               {grid, "deformation", 0, "rms 0.00000 mm"},
               {"\xEF\xBB\xBFimage x;image y;x;y\r\n# dots\r\n\r\n" + gridCsv(";", "\r\n", 16), "linear", 0, "scale"},
               {gridCsv("\t", "\n", 16) + "+1\t-2e0\t-2.25\t-10.5", "linear", 0, "from 17 points"},
               {grid + "1,2,3\n", "linear", 3, "line 17: four finite numbers"},
               {grid + "\n1,2,3,4,5", "linear", 3, "line 18: "},
               {"x,y\n1,2,3,nan\n", "linear", 3, "line 2: "},
               {"1,5;2;3;4\n", "linear", 3, "line 1: "},
               {"x,y\nu,v\n", "linear", 3, "line 2: "},
               {std::string("1,2,\0003,4\n", 9), "linear", 3, "line 1: "},
               {"", "linear", 3, "0 different image points"},
               {three, "linear", 3, "on one line"},
               {cut + "5,5,9,9\n5,5,8,8\n", "deformation", 3, "determine no deformation"},
               {cut + cut, "perspective", 3, "3 different image points, of which a perspective transform needs 4"},
               {cut + "4.5,4.5,5,5\n", "perspective", 3, "determine no perspective"},
               {grid, "polynomial:5", 3, "needs 21"},
               {"0,0,0,0\n9,0,1e30,0\n0,9,0,1e30\n9,9,1e30,1e30\n", "perspective", 0, "calibration: perspective"},
               {"0,0,0,0\n9,0,1,1\n0,9,2,2\n9,9,4,4\n", "linear", 3, "world points lie on one line"},
               {"0,0,0,0\n9,0,1e150,0\n0,9,0,1e150\n", "linear", 3, "too far apart for a linear"},
               {"0,0,0,0\n20,0,10,0\n40,0,1,0\n0,20,0,1\n20,20,10,1\n40,20,1,1\n0,40,0,2\n20,40,10,2\n40,40,1,2\n",
                "polynomial:2", 3, "folds the image over near the point of line"},
               {grid, "polynomial:0", 2, "order from 1 to 9"},
               {grid, "polynomial:2.5", 2, "--transform"},
               {grid, "deformation:-1", 2, "--transform"},
               {grid, "linear:2", 2, "--transform"},
               {grid, "spline", 2, "--transform"}};
  for (const auto& c : cases) {
    std::ofstream(file("points.csv"), std::ios::binary) << c.text;
    EXPECT_EQ(run("gauge edge.bmp --roi -15,35,110,90 --find line --calib points.csv --transform " + c.transform),
              c.status)
        << c.text << output << errors;
    EXPECT_NE((c.status == 0 ? output : errors).find(c.says), std::string::npos) << c.says << '\n' << output << errors;
  }
  limit = "mkfifo pipe; cat points.csv >pipe & timeout 60";
  EXPECT_EQ(run("gauge edge.bmp --roi -15,35,110,90 --find line --calib pipe"), 0) << errors;
}

// What the file says in the end: the image as it was, every point in its place and kind, and a text that any reader of
// XML takes, whatever the names.
TEST_F(Tool, DrawsOverlaysAsSvg) {
  const auto image = drawn([](const V& p) { return p.distance({41.3, 79.6}) - 21 + (p.x() > 57 ? 3 : 0); }, 2, 4);
  write("a&b<\"c>.bmp", image);
  std::ofstream(file("points.csv")) << gridCsv(",", "\n", 16);
  const std::string call = "gauge 'a&b<\"c>.bmp' --roi -15,35,110,90 --find circle --calib points.csv --overlay o.SVG ";
  for (const char* unit : {"mm", "'<&>'", "$'\\xff\\x01'"}) {
    ASSERT_EQ(run(call + "--unit " + unit + " --save o.arc"), 0) << errors;
    const auto found = xml::elements(text("o.SVG"));
    const auto saved = loadMeasurement(file("o.arc"));
    ASSERT_FALSE(found.empty()) << text("o.SVG");
    const long left = static_cast<long>(saved->points.size()) - saved->inliers();
    EXPECT_GT(left, 2);
    EXPECT_EQ(found.at("circle.dot"), 2 * saved->inliers());  // over the image and in the chart
    EXPECT_EQ(found.at("path.rejected"), 2 * left + 1);       // and in the legend
    EXPECT_EQ(found.at("image"), 1);
  }
  EXPECT_NE(text("o.SVG").find(" width=\"120\" height=\"100\""), std::string::npos);
  EXPECT_NE(text("o.SVG").find(base64(pngOf(image))), std::string::npos);
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  const std::string png = pngOf(image);
  ASSERT_NE(png_image_begin_read_from_memory(&header, png.data(), png.size()), 0);
  header.format = PNG_FORMAT_GRAY;
  std::vector<unsigned char> pels(PNG_IMAGE_SIZE(header));
  ASSERT_NE(png_image_finish_read(&header, nullptr, pels.data(), 0, nullptr), 0);
  for (std::size_t i = 0; i < pels.size(); ++i)
    ASSERT_EQ(pels[i], image.get(static_cast<long>(i % 120) - 20, static_cast<long>(i / 120) + 30));
}

// The coordinates of the points that a path draws, and of the ends of its arcs with the flags of these.
struct Drawn {
  Points points;
  std::vector<int> sweeps;
  explicit Drawn(const std::string& markup) {
    std::string path = markup.substr(std::min(markup.find(" d=\"") + 4, markup.size()));
    path.resize(std::min(path.find('"'), path.size()));
    for (char& c : path)
      if (c == 'Z') c = ' ';
    std::istringstream in(path);
    double x = 0, y = 0, skip = 0;
    for (char command = 0; in >> command;) {
      int sweep = 0;
      if (command == 'A') in >> skip >> skip >> skip >> skip >> sweep;
      if (command == 'A') sweeps.push_back(sweep);
      in >> x >> y;
      points.emplace_back(x, y);
    }
  }
};

// What is drawn lies on the shape, and the shape lies on what is drawn.
TEST(Render, ShapesLieWhereTheyAre) {
  qcRandomUniform random(4);
  const auto any = [&] { return V(random.next(-50, 50), random.next(-50, 50)); };
  const qcRect page({-300, -300}, {600, 600});
  for (int i = 0; i < 60; ++i) {
    const qcXform<2> onPage(any(), qcRadian(0), qcRadian(0), 2.5, 2.5);
    const qcEllipse2 ellipse(any(), qcRadian(random.next(-3, 3)), {random.next(5, 40), random.next(5, 40)}, i % 2 == 0,
                             qcRadian(random.next(-3, 3)));
    const double span = i % 5 == 0 ? 2 * std::numbers::pi : random.next(0.3, 6.2);
    const qcEllipseArc2 arc(ellipse, qcRadian(random.next(-3, 3)), qcRadian(i % 3 == 0 ? -span : span));
    const qcAffineRectangle rectangle(any(), random.next(5, 40), random.next(5, 40), qcRadian(random.next(-3, 3)),
                                      qcRadian(random.next(-1, 1)));
    const qcLine line(qcRadian(random.next(-3, 3)), any());
    const std::vector<const qcShape*> shapes{&arc, &rectangle, &line};
    for (const qcShape* shape : shapes) {
      const auto mapped = shape->mapShape(onPage);
      const Drawn drawn(shapeMarkup(*shape, onPage, page, "red", "tip"));
      ASSERT_GE(drawn.points.size(), 2U);
      for (const V& p : drawn.points) EXPECT_LT(mapped->nearestPoint(p).distance(p), 0.02);
    }
    // Each half of the arc curves to the side on which its middle lies.
    const auto onArc = [&](double part) {
      return onPage * ellipse.point(qcRadian(arc.phiStart().plain() + part * arc.phiSpan().plain()));
    };
    const Drawn halves(shapeMarkup(arc, onPage, page, "red", ""));
    ASSERT_EQ(halves.sweeps.size(), 2U);
    for (std::size_t k = 0; k < 2; ++k) {
      const double at = 0.5 * static_cast<double>(k);
      EXPECT_LT(halves.points[k].distance(onArc(at)), 0.02);
      const double side = (onArc(at + 0.5) - onArc(at)).cross(onArc(at + 0.25) - onArc(at));
      EXPECT_EQ(halves.sweeps[k], side < 0 ? 1 : 0);
    }
    const Drawn corners(shapeMarkup(rectangle, onPage, page, "red", ""));
    EXPECT_EQ(corners.points.size(), 4U);
    const Drawn sight(shapeMarkup(line, onPage, page, "red", ""));
    EXPECT_GT(sight.points[0].distance(sight.points[1]), 600);
  }
}

template <class... T>
void store(qcArchive& archive, T*... objects) {
  static_cast<void>((archive << ... << qcPtrHandle<T>(objects)));
}

TEST_F(Tool, RendersWhatArchivesHold) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  {
    qcFileArchive archive(path("shapes.arc"), qcArchive::storing);
    auto* image = new qcPelRoot<float>(4, 3);
    const float pels[] = {-5, 0, 5, 10, std::nanf(""), INFINITY, -INFINITY, -5, 10, 2.5F, -5, -5};
    for (long i = 0; i < 12; ++i) image->pels()[i / 4 * image->rowUpdate() + i % 4] = pels[i];
    qcRLEBuffer runs(3, 2, 9);
    runs.offset(5, 7);
    storePointer(archive, runs);
    store(archive, image, new qcPelRoot<qc3PlanePel>(7, 5), new qcPelRoot<qcPair<long>>(7, 5),
          new qcPelRoot<unsigned char>(0, 0));
    store(archive, new qcCircle({1, 2}, 3), new qcCircle({1e300, 2}, 3), new qcCircle({nan, 2}, 3),
          new qcCircle({inf, 2}, 3), new qcCircle({1, 2}, 0), new qcEllipse({1, 2}, {3, 4}, qcRadian(1)),
          new qcPolyline(false), new qcFLine(qcDegree(30), 2));
    store<qc2XformBase>(archive, new qc2XformLinear);
    auto* region = new qcRegionTree(qcRect({-9, -9}, {30, 20}));
    region->addChild(qcRegionTree(qcCircle({1, 2}, 4), true));
    const qcLine line;
    auto* collection = new qcGeneralShapeTree;
    collection->addChild(line);
    collection->addChild(qcEllipse({1, 2}, {3, 4}, qcRadian(1)));
    const qc2XformPerspective slant(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0.01, 0, 1));
    store(archive, region, collection, new qcMappedShape(qcMappedShape::Held(new qcCircle({1, 2}, 3)), slant, false),
          new qcMappedShape(qcMappedShape::Held(line.clone()), slant, false),
          new qcMappedShape(qcMappedShape::Held(new qcLineSeg({-200, 0}, {0, 0})), slant, false));
    qcPtrHandle<qcShape> bomb(new qcGeneralShapeTree);
    dynamic_cast<qcGeneralShapeTree&>(*bomb).addChild(qcCircle({1, 2}, 3));
    for (int level = 0; level < 3; ++level)
      bomb = new qcGeneralShapeTree(std::vector<qcShapeTree::Child>(80, qcShapeTree::Child(bomb)), false);
    archive || bomb;
    long number = 17;
    archive || number;
  }
  EXPECT_EQ(run("info shapes.arc"), 0) << errors;
  ASSERT_EQ(run("render shapes.arc -o s.svg"), 0) << errors;
  for (const char* line :
       {"not drawn: 1 of qcPelRoot<qcPair<long>>\n", "not drawn: 1 of qcPolyline (empty)\n",
        "not drawn: 3 of qcCircle (out of reach)\n",
        "not drawn: 1 of qcPelRoot<unsigned char> (no pixels, or too many)\n", "not drawn: 1 of qc2XformLinear\n",
        "not drawn: 1 of values that only their writer can name\n", "drawn: 2 of qcCircle\n",
        "drawn: 1 of qcPelRoot<qc3PlanePel>\n", "drawn: 1 of qcFLine\n",
        "not drawn: 1 of qcGeneralShapeTree (too much to draw)", "\ndrawn: 1 of qcGeneralShapeTree\n",
        "drawn: 1 of qcRegionTree\n", "\ndrawn: 1 of qcMappedShape\n", "not drawn: 1 of qcMappedShape ("})
    EXPECT_NE(output.find(line), std::string::npos) << line << output;
  Svg svg(9, 9, "\uFFFE\uFFFF\x9B");
  const std::size_t empty = svg.finished().size();
  svg.dot({1, nan}, 3, "red");
  EXPECT_EQ(svg.finished().size(), empty);
  EXPECT_NE(svg.finished().find("<title>??\uFFFD<"), std::string::npos);
  const auto found = xml::elements(text("s.svg"));
  ASSERT_FALSE(found.empty());
  EXPECT_EQ(found.at("image"), 3);
  EXPECT_EQ(found.at("ellipse"), 4);  // a casing and the stroke, of one alone and one in a collection
  const std::string drawing = text("s.svg"), region = drawing.substr(0, drawing.rfind("\"><title>qcRegionTree"));
  const std::string borders = region.substr(region.rfind('"') + 1);
  EXPECT_EQ(std::count(borders.begin(), borders.end(), 'M'), 2) << borders;  // that of the hole is one
  Grey grey(4, 3);
  const unsigned char expected[] = {0, 85, 170, 255, 0, 255, 0, 0, 255, 128, 0, 0};
  for (long i = 0; i < 12; ++i) grey.put(i % 4, i / 4, expected[i]);
  EXPECT_NE(text("s.svg").find(base64(pngOf(grey))), std::string::npos);

  // Archives cut anywhere are drawn as far as they go, or refused; nothing else happens.
  const std::string whole = text("shapes.arc");
  for (std::size_t size = 0; size < whole.size(); size += 1 + whole.size() / 40) {
    std::ofstream(file("cut.arc"), std::ios::binary) << whole.substr(0, size);
    const int status = run("render cut.arc -o c.svg");
    EXPECT_TRUE(status == 0 || status == 1 || status == 3) << size << errors;
  }
  EXPECT_NE(output.find("\ndrawn: 2 of qcCircle\n"), std::string::npos) << output << errors;
}

// What inspect tells of a file, and whether it all fits together.
struct Told {
  std::vector<Entry> entries;
  Fault fault = Fault::none;
  explicit Told(const std::string& path) {
    try {
      const auto archive = openArchive(path);
      fault = inspect(*archive, path, [this](const Entry& entry) { entries.push_back(entry); });
    } catch (const qcException& error) {
      entries.push_back(faultEntry("/", error, 0));
      fault = faultOf(error);
    }
  }
  // Bytes that are in no entry are names of classes, markers and entries of objects, next to where these begin.
  void check(qcInt64 size) const {
    qcInt64 at = 2;
    bool framed = false;
    for (const Entry& entry : entries) {
      const bool isObject = entry.kind == "object", isFault = entry.kind == "fault";
      ASSERT_LE(entry.at, size) << entry.path;
      if (isFault || entry.kind == "header") continue;
      ASSERT_GE(entry.at, at == 2 && entry.at > 2 ? 44 : at) << entry.path;
      if (entry.at != at) {
        ASSERT_TRUE(isObject || framed || at == 2) << entry.path << entry.kind << at;
      }
      framed = isObject || entry.kind == "pointer" || entry.kind == "record";
      at = entry.at + (isObject ? 4 : entry.size);
      ASSERT_LE(at, size) << entry.path;
    }
    if (fault == Fault::none) {
      ASSERT_TRUE(at == size || size == 44) << at;
    }
  }
};

TEST_F(Tool, TellsArchivesByteForByte) {
  for (const bool seekable : {false, true}) {
    const std::string path = file("told.arc");
    {
      qcFileArchive archive(qf_Widen(path), qcArchive::storing, qcArchive::bigEndian, seekable);
      const qcPtrHandle<qcCircle> circle(new qcCircle({1, 2}, 3));
      auto* tree = new qcGeneralShapeTree;
      tree->addChild(*circle);
      tree->addChild(qcEllipse({1, 2}, {3, 4}, qcRadian(1)));
      store(archive, tree);
      archive << circle << circle;
      store(archive, new qcPelRoot<float>(4, 3));
      qcDIB::BadFormat text(L"\u00FC\"\x01");
      storePointer(archive, text);
      if (seekable) archive.writeNewMark(7);
      if (seekable) archive << static_cast<const qcPersistent&>(*circle);
      archive << 17L << std::string("end");
    }
    const std::string whole = text("told.arc");
    const Told all(path);
    all.check(static_cast<qcInt64>(whole.size()));
    EXPECT_EQ(all.fault, Fault::none);
    EXPECT_EQ(all.entries.back().kind, "opaque");
    EXPECT_EQ(all.entries.back().size, 10);
    ASSERT_EQ(run("dump told.arc --json --hex"), 0) << errors;
    const auto shown = nlohmann::json::parse(output);
    ASSERT_EQ(shown["entries"].size(), all.entries.size());
    std::set<std::string> paths;
    for (std::size_t i = 0; i < all.entries.size(); ++i) {
      const auto& entry = shown["entries"][i];
      EXPECT_EQ(entry["path"], all.entries[i].path);
      const qcInt64 at = entry["at"];
      if (entry.contains("hex")) {
        const std::size_t size = entry["size"];
        EXPECT_EQ(fromHex(entry["hex"].get<std::string>()),
                  whole.substr(static_cast<std::size_t>(at), std::min(size, std::size_t{256})));
      }
      const bool again = entry["kind"] == "object";  // it has its pointer's path
      EXPECT_TRUE(paths.insert(all.entries[i].path).second || again) << entry;
      if (entry["kind"] == "text") {
        EXPECT_EQ(entry["value"], "\u00FC\"\x01");
      }
    }
    ASSERT_EQ(run("dump told.arc --path " + all.entries[5].path), 0);
    EXPECT_NE(output.find(all.entries[5].path), std::string::npos);

    if (seekable) {
      std::ofstream(path, std::ios::binary) << std::string(whole).replace(whole.rfind("qcCircle"), 1, "X");
      EXPECT_EQ(Told(path).entries.end()[-2].facts[0].value, "\"XcCircle\"");
    }

    // Cut or flipped anywhere: what is shown lies in the file, in order, and the faults with it.
    qcRandomUniform random(3);
    for (std::size_t i = 0; i < 2 * whole.size(); i += 3) {
      std::string bytes = whole;
      if (i < whole.size())
        bytes.resize(i);
      else
        bytes[i - whole.size()] ^= static_cast<char>(1 << static_cast<int>(random.next(0, 8)));
      std::ofstream(path, std::ios::binary) << bytes;
      const Told told(path);
      const bool hasFault =
          std::any_of(told.entries.begin(), told.entries.end(), [](auto& e) { return e.kind == "fault"; });
      EXPECT_EQ(hasFault, told.fault != Fault::none) << i;
      for (const Entry& entry : told.entries)
        ASSERT_LE(entry.at, static_cast<qcInt64>(bytes.size())) << i << entry.path;
      if (i < whole.size() && !seekable) told.check(static_cast<qcInt64>(i));
    }
  }
}

TEST(Reading, TellsAMediumThatFailsFromTheEnd) {
  struct : std::streambuf {
    pos_type seekpos(pos_type at, std::ios_base::openmode) override { return at; }
    int_type underflow() override { throw std::ios_base::failure("a sector is bad"); }
  } broken;
  std::istream from(&broken);
  EXPECT_THROW(headAt(from, 2, false), qcArchive::BadFile);
}

/// One field of every kind.
struct Fields : Archivable<Fields> {
  static void fields(qcArchive& archive) {
    using Limits = std::numeric_limits<double>;
    const auto put = [&archive](auto... values) { (static_cast<void>(archive || values), ...); };
    put(true, static_cast<unsigned char>(200), static_cast<signed char>(-3), 'a', short{-300},
        static_cast<unsigned short>(60000), -70000L, -(qcInt64{1} << 40), ~qcUInt64{0}, 0.1F, 1.0 / 3,
        Limits::quiet_NaN(), -Limits::infinity(), std::wstring(L"\u00E4\n"), std::u32string(U"\U0001F600"),
        std::string("\xFF"), std::vector<float>(10, 0.5F), std::vector<bool>{true}, std::vector<qcInt64>());
    char raw[3] = {1, 2, char(0xFF)};
    archive.raw(raw, 3);
    archive.reserve16();
  }
};

TEST_F(Tool, TellsTheKindAndValueOfEachField) {
  const std::string expected =
      "bool true; u8 200; i8 -3; u8 97; i16 -300; u16 60000; i32 -70000; i64 -1099511627776; u64 18446744073709551615; "
      "f32 0.1; f64 0.3333333333333333; f64 \"nan\"; f64 \"-inf\"; text \"\u00E4\\u000a\"; text \"\U0001F600\"; "
      "text \"\uFFFD\"; u32 10; f32 10 [0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, \"...\"]; u32 1; bool true; u32 0; "
      "u8 3 [1, 2, 255]; u8 2 [0, 0]; ";
  for (const auto order : kOrderings) {
    Fields fields;
    {
      qcFileArchive archive(path("fields.arc"), qcArchive::storing, order);
      storePointer(archive, fields);
    }
    const Told told(file("fields.arc"));
    std::string said;
    for (std::size_t i = 4; i < told.entries.size(); ++i) {
      said += told.entries[i].kind;
      for (const auto& fact : told.entries[i].facts) said += ' ' + fact.value;
      said += "; ";
      EXPECT_EQ(told.entries[i].path,
                "/0/Archivable<(anonymous namespace)::Fields,qcPersistent>/" + std::to_string(i - 4));
    }
    EXPECT_EQ(said, expected) << static_cast<int>(told.fault);
    EXPECT_EQ(run("info fields.arc"), 0) << errors;
  }
}

TEST(Base64, IsThatOfTheStandard) {
  const char* const kVectors[][2] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFF\xFE\xFB\xEF", "//777w=="}};
  for (const auto& vector : kVectors) EXPECT_EQ(base64(vector[0]), vector[1]);
}

TEST_F(Tool, ListsAndDrawsBlobs) {
  const auto image = imageOf(qcPelRect(5, -3, 60, 40), [](long x, long y) {
    return (x >= 10 && x < 30 && y >= 0 && y < 10) || (x == 50 && y == 20) ? 200 : 40;
  });
  write("blobs.bmp", image);
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
  overlay.init(path("o.bmp"));
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
  qcDIB bitmap = write("edge.bmp", drawn([](const V& p) { return p.x() - 40; }, 1, 1));
  std::ofstream(file("cut.bmp"), std::ios::binary).write(text("edge.bmp").data(), 900);
  std::ofstream(file("cut.arc"), std::ios::binary).write("\x02\x01\x4F\xE5\x70\x54\x01\x01", 8);
  std::ofstream(file("text")) << "nothing of ours";
  qcDIB::BadFormat error(L"twice");
  qcFileArchive twice(path("twice.arc"), qcArchive::storing);
  for (int i = 0; i < 2; ++i) storePointer(twice, error);
  twice.close();
  write("old.arc", std::string("\0\1", 2));
  write("short.arc", text("twice.arc").substr(0, 24));
  write("u\xFF", text("twice.arc"));
  write("head.arc", text("twice.arc").replace(0, 1, 1, '\0'));
  write("zeros", std::string(99, '\0'));
  write("wide.bmp", imageOf(qcPelRect(0, 0, 1'000'001, 9), [](long x, long) { return x < 40 ? 50 : 200; }));
  std::filesystem::create_symlink("nowhere", file("link"));
  bitmap.xOffset(std::numeric_limits<std::int32_t>::max());
  bitmap.write(path("far.bmp"));
  expectCalls("calls.txt");
  EXPECT_EQ(text("edge.bmp").substr(0, 2), "BM");
  const std::string saved = text("m.arc"), measured = "gauge edge.bmp --roi -15,35,110,90 --find line ";
  limit = "ulimit -f 1;";  // what is written in part takes the name of nothing
  for (const std::string& call : {measured + "--save m.arc", measured + "--overlay m.arc", measured + "--overlay o.svg",
                                  std::string("render m.arc -o o.bmp"), std::string("db salvage m.arc --in-place")}) {
    EXPECT_EQ(run(call), 5) << call;
    EXPECT_NE(errors.find("too large"), std::string::npos) << errors;
    EXPECT_EQ(text("m.arc"), saved) << call;
  }
  for (const char* name : {"m.arc.part", "m.arc.damaged", "o.svg", "o.svg.part", "o.bmp", "o.bmp.part"})
    EXPECT_FALSE(std::filesystem::exists(file(name))) << name;
  limit.clear();
  if (!std::filesystem::exists("/dev/full")) return;
  for (const char* call :
       {"info edge.bmp", "--help", "dump twice.arc --json", "gauge edge.bmp --roi -15,35,110,90 --find line", "demo"}) {
    EXPECT_EQ(run(call, "/dev/full"), 5) << call;
    EXPECT_NE(errors.find("standard output: writing failed: "), std::string::npos) << call;
  }
}

/// A record of a class that the tool does not know.
struct Foreign : Archivable<Foreign, qcVDBRecordBase> {
  void fields(qcArchive& archive) { archive || circle || same; }
  qcPtrHandle<qcCircle> circle{new qcCircle({1, 2}, 3)}, same = circle;
};

TEST_F(Tool, ListsChecksAndChangesDatabases) {
  {
    qcVDBArchive database(path("d.vdb"), true, false);
    Foreign record;
    record.header().comment(L"M\u00FC\nll");
    for (int i = 0; i < 3; ++i) database.storeNewRecord(&record);
  }
  std::string lost = text("d.vdb");
  write("bare.arc", "\x03\x01" + std::string(60, 'x'));
  write("r.vdb", lost);
  write("ahead.vdb", std::string(lost).replace(14, 1, "\1"));  // a record is announced behind the end
  write("cut.vdb", lost.substr(0, lost.size() - 5));
  write("first.vdb", lost.substr(0, 75));
  std::string header = lost;
  header[header.rfind(std::string("l\0l", 3)) + 1] = '\xD8';  // half a character
  write("header.vdb", header);
  write("more.vdb", std::string(lost).insert(lost.find("Foreign"), "\r"));
  header = lost;
  header[header.find("Foreign") + 8] = 0;  // the object's marker
  write("kind.vdb", header);
  write("escape.vdb", std::string(lost).replace(lost.find("Foreign"), 2, "\x1B\r"));
  lost[11] = 0;
  write("a.vdb", lost);
  write("cuta.vdb", lost.substr(0, lost.size() - 5));
  write("none.vdb", lost.substr(0, 100));
  std::filesystem::create_symlink("d.vdb", file("link.part"));
  write("small.bmp", Grey(4, 4));
  {
    qcFileArchive archive(path("r.vdb"), qcArchive::loading, kLittle, true);
    const qcInt64 pointer = archive.records().end()[-2].at;
    const auto at = [&](std::size_t i) { return static_cast<std::size_t>(archive.records()[i].at); };
    write("pointer.vdb", text("d.vdb").replace(at(9) - 32, 17, 17, '\0'));
    write("link.vdb", text("d.vdb").replace(at(3) + 18, 8, 8, '\0').substr(0, at(7) + 20));
    write("inside.vdb", text("d.vdb").replace(at(3) + 18, 1, 1, static_cast<char>(at(4) - 1)));
    write("links.vdb", text("d.vdb").replace(at(3) + 18, 8, 8, '\0').replace(at(4) + 18, 8, 8, '\0'));
    archive.seek(qcArchive::Position(pointer));
    archive.removePointer();
    archive.seek(qcArchive::Position(archive.records()[3].at));
    archive.removeObject();
    write("orphan.vdb", text("d.vdb").erase(at(7), at(9) - at(7)));
    write("mark.vdb", text("d.vdb").substr(0, static_cast<std::size_t>(pointer)));
  }
  {
    qcFileArchive archive(path("sound.vdb"), qcArchive::storing, kLittle, true);
    const qcPtrHandle<qcShape> circle(new qcCircle), mapped(new qcMappedShape(circle, qc2XformPoly(), false));
    {
      qcArchive::Transaction never(archive);
      archive << 17L;
      archive.storeObject(circle.rep());
      archive.sync();
      write("killed.vdb", text("sound.vdb"));
    }
    archive.writeNewMark();
    archive || *circle;
    qcArchive::Transaction both(archive);
    archive.sync();
    write("next.vdb", text("sound.vdb"));
    archive.storeObject(circle.rep());
    archive.limits({.nesting = 1});
    EXPECT_THROW(archive.storeObject(mapped.rep()), qcException);
    both.commit();
  }
  write("shifted.vdb", text("sound.vdb").insert(18, 1, '\0'));
  for (const auto& [name, said] : std::map<std::string, std::string>{{"mark", "record 3: no object belongs"},
                                                                     {"orphan", "the record that it belongs to"},
                                                                     {"shifted", "bytes in which no record"},
                                                                     {"ahead", "nothing was lost"},
                                                                     {"inside", "nothing was lost"},
                                                                     {"killed", "its writer has not finished"},
                                                                     {"r", "nothing was lost"},
                                                                     {"cuta", "record 3: "},
                                                                     {"kind", "record 1: "},
                                                                     {"link", "the link at byte"},
                                                                     {"links", "nothing was lost"},
                                                                     {"none", "56 bytes in which no record"},
                                                                     {"pointer", "nothing was lost"},
                                                                     {"sound", "nothing was lost"},
                                                                     {"more", "594 bytes in which no record"}}) {
    EXPECT_EQ(run("db salvage " + name + ".vdb -o " + name + "ed.vdb"), said == "nothing was lost" ? 0 : 3) << name;
    EXPECT_NE(output.find(said), std::string::npos) << output;
  }
  expectCalls("calls_db.txt");
  EXPECT_EQ(text("sounded.vdb"), text("sound.vdb"));
  const std::string whole = text("d.vdb");
  EXPECT_EQ(run("db remove d.vdb 9", "out 2>&- #"), 1);
  EXPECT_EQ(text("d.vdb"), whole);  // what cannot be said is written into no file
  const auto check = [&](const std::string& bytes, int status, const char* said) {
    write("e.vdb", bytes);
    EXPECT_EQ(run("db check e.vdb"), status);
    EXPECT_NE(output.find(said), std::string::npos) << output;
  };
  std::string damaged = whole;
  const auto third = static_cast<std::size_t>(static_cast<std::streamoff>(
      qcFileArchive(path("d.vdb"), qcArchive::loading, qcArchive::littleEndian, true, true).findMark(3)));
  damaged.replace(whole.find("\x4F\xE5\x70", third + 42) + 18, 8, 8, '\0');  // the link to the object
  check(damaged, 3, "damaged at byte");
  damaged = whole;
  damaged[third + 18] = damaged[third + 19] = 1;  // a link that leads backwards
  check(damaged, 3, ("damaged at byte " + std::to_string(third + 42)).c_str());
  EXPECT_EQ(run("verify e.vdb"), 3);
  EXPECT_NE(errors.find("found \"a link to byte 257\""), std::string::npos) << errors;
  damaged = whole;
  damaged[third] = 0;
  check(damaged, 3, "damaged at byte");
  EXPECT_EQ(run("dump e.vdb --json"), 3);
  const auto shown = nlohmann::json::parse(output);
  const auto kinds = [&](const char* kind) {
    return std::count_if(shown["entries"].begin(), shown["entries"].end(), [&](auto& e) { return e["kind"] == kind; });
  };
  EXPECT_EQ(kinds("mark"), 2);
  EXPECT_EQ(kinds("header"), 2);
  EXPECT_EQ(kinds("fault"), 1);
  EXPECT_EQ(shown["entries"].end()[-2]["at"], third);
  EXPECT_EQ(shown["entries"][1]["class"], "qc_VDBIdentification");
  EXPECT_EQ(run("verify e.vdb"), 3);
  EXPECT_NE(errors.find("at byte " + std::to_string(third)), std::string::npos) << errors;
  {
    qcVDBArchive writing(path("e.vdb"), false, false);
    EXPECT_EQ(run("db salvage e.vdb --in-place"), 5);
    EXPECT_NE(errors.find("in use"), std::string::npos) << errors;
  }
  static_cast<void>(::chown(file("e.vdb").c_str(), 1, 1) == 0);
  const auto ownerOf = [&] {
    struct stat status {};
    ::stat(file("e.vdb").c_str(), &status);
    return std::pair(status.st_uid, status.st_gid);
  };
  const auto owner = ownerOf();
  EXPECT_EQ(run("db salvage e.vdb --in-place"), 3);
  EXPECT_EQ(ownerOf(), owner);
  EXPECT_EQ(text("e.vdb.damaged"), damaged);
  EXPECT_EQ(run("verify e.vdb"), 0) << errors;
  std::filesystem::resize_file(file("e.vdb"), third + 10);
  EXPECT_EQ(run("db check e.vdb"), 0);
  EXPECT_NE(output.find("an unfinished record"), std::string::npos) << output;
}

// Whatever byte is damaged, all records that do not lie there are found in what was salvaged, and more can be stored.
TEST_F(Tool, SalvagesWhatIsNotDamaged) {
  Foreign record;
  const auto expectRecord = [&](qcVDBArchive& database, long number) {
    ASSERT_NO_THROW(database.gotoRecord(number));
    const std::unique_ptr<qcVDBRecordBase> loaded(database.loadRecord());
    const auto& found = dynamic_cast<const Foreign&>(*loaded);
    EXPECT_EQ(found.header().comment().size(), static_cast<std::size_t>(number));
    EXPECT_TRUE(found.circle == found.same && *found.circle == *record.circle);
  };
  for (const auto order : kOrderings) {
    std::vector<std::size_t> ends;
    {
      qcVDBArchive database(new qcFileArchive(path("d.vdb"), qcArchive::storing, order, true));
      for (int i = 1; i < 5; ++i) {
        record.header().comment(std::wstring(static_cast<std::size_t>(i), L'x'));
        database.storeNewRecord(&record);
        database.sync();
        ends.push_back(std::filesystem::file_size(file("d.vdb")));
      }
    }
    const std::string whole = text("d.vdb");
    const auto source = openArchive(file("d.vdb"));
    RecordExtractor records(*source, file("d.vdb"));
    for (long number = 1; number < 5; ++number) {
      std::filesystem::remove(file("one.vdb"));
      ASSERT_TRUE(records.extract(number, file("one.vdb")));
      qcVDBArchive one(path("one.vdb"), false, false);
      expectRecord(one, number);
      EXPECT_NE(one.storeNewRecord(&record), number);
      expectRecord(one, number);
    }
    qcRandomUniform random(11);
    for (const auto& [at, bit] :
         {std::pair{0U, 1}, {0U, 2}, {1U, 1}}) {  // nothing is read in another way than it was written
      std::string bytes = whole;
      bytes[at] = static_cast<char>(bytes[at] ^ bit);
      std::ofstream(file("e.vdb"), std::ios::binary) << bytes;
      std::ostringstream report;
      EXPECT_THROW(salvageArchive(file("e.vdb"), file("h.vdb"), report), FileError);
    }
    for (std::size_t at = 2; at < whole.size(); at += 7) {
      std::string bytes = whole;
      bytes[at] ^= static_cast<char>(1 << static_cast<int>(random.next(0, 8)));
      if (at % 2 != 0) bytes.replace(at, 5, 5, '\0').resize(whole.size());
      std::ofstream(file("e.vdb"), std::ios::binary) << bytes;
      std::filesystem::remove(file("s.vdb"));
      std::ostringstream report;
      const bool isWhole = salvageArchive(file("e.vdb"), file("s.vdb"), report);
      EXPECT_EQ(text("e.vdb"), bytes);
      EXPECT_EQ(isWhole, report.str().find("lost:") == std::string::npos) << report.str();
      EXPECT_EQ(Told(file("s.vdb")).fault, Fault::none) << at << report.str();
      qcVDBArchive saved(path("s.vdb"), false, false);
      for (std::size_t i = 0; i < ends.size(); ++i) {
        if (at < ends[i] && at + 5 > (i == 0 ? 44 : ends[i - 1])) continue;
        if (i == 3 && report.str().find("has not finished") != std::string::npos) continue;  // its link is gone
        SCOPED_TRACE(std::to_string(at) + report.str());
        expectRecord(saved, static_cast<long>(i + 1));
      }
      saved.storeNewRecord(&record);
      EXPECT_EQ(saved.archive().damaged(), qcArchive::Position(0));
    }
  }
}

// What nests deeper than the tool loads is no damage.
TEST_F(Tool, SalvagesWhatIsTooDeepToRead) {
  qcPtrHandle_const<qcShape> shape(new qcCircle);
  for (int i = 0; i < 600; ++i) shape = qcPtrHandle_const<qcShape>(new qcMappedShape(shape, qc2XformPoly(), false));
  for (const bool isSeekable : {false, true}) {
    const std::string path = file("deep.arc");
    {
      qcFileArchive archive(qf_Widen(path), qcArchive::storing, kLittle, isSeekable);
      archive.limits({.nesting = 5000});
      if (isSeekable) {
        archive.storeObject(const_cast<qcShape*>(shape.rep()));
      } else {
        archive << shape;
      }
    }
    std::ostringstream report;
    if (isSeekable) {
      EXPECT_TRUE(salvageArchive(path, file("saved.arc"), report)) << report.str();
      EXPECT_EQ(openArchive(file("saved.arc"))->firstObjectID(), 1);
    } else {
      EXPECT_THROW(salvageArchive(path, file("saved.arc"), report), FileError);
    }
  }
}

}  // namespace
