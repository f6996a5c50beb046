

#include "support/bytes.h"
#include "support/test.h"
#include "vnxstd/cfit.h"

namespace {

using Point = qcVector<2>;
using Points = std::vector<Point>;
using Numbers = std::vector<double>;
using Wide = long double;
using Rows = std::vector<std::vector<Wide>>;

const double kPi = std::acos(-1.0);

struct Random {
  std::mt19937_64 engine{20240607};
  double operator()(double low, double high) { return std::uniform_real_distribution<double>(low, high)(engine); }
  Point point(double size) { return {(*this)(-size, size), (*this)(-size, size)}; }
  Points cloud(int n, double size, const Point& centre) {
    Points points;
    for (int i = 0; i < n; ++i) points.push_back(centre + point(size));
    return points;
  }
};

// A random member of the family of 3, 4, 5 or 6 degrees of freedom.
qcXform<2> member(Random& random, int freedom, double size) {
  const double scale = freedom == 3 ? 1 : random(0.3, 3), aspect = freedom < 5 ? 1 : random(0.3, 3);
  return {random.point(size), scale, aspect, qcRadian(freedom < 6 ? 0 : random(-0.8, 0.8)),
          qcRadian(random(-3.1, 3.1))};
}

Numbers numbers(const qcXform<2>& x) {
  const qcMatrix<2>& m = x.matrix();
  return {m.element(0, 0), m.element(0, 1), x.trans().x(), m.element(1, 0), m.element(1, 1), x.trans().y()};
}

void expectNear(const Numbers& actual, const Numbers& expected, double tolerance) {
  for (std::size_t i = 0; i < actual.size(); ++i)
    EXPECT_NEAR(actual[i], expected[i], tolerance * (1 + std::fabs(expected[i]))) << "number " << i;
}

// The least-squares solution of rows (coefficients..., right-hand side): normal equations, Gauss-Jordan elimination.
Numbers leastSquares(const Rows& rows) {
  const std::size_t n = rows[0].size() - 1;
  Rows m(n, std::vector<Wide>(n + 1));
  for (const auto& row : rows)
    for (std::size_t i = 0; i < n * (n + 1); ++i) m[i / (n + 1)][i % (n + 1)] += row[i / (n + 1)] * row[i % (n + 1)];
  for (std::size_t k = 0; k < n; ++k) {
    for (std::size_t i = 0; i < n; ++i) {
      const Wide factor = i == k ? 0 : m[i][k] / m[k][k];
      for (std::size_t j = k; j <= n; ++j) m[i][j] -= factor * m[k][j];
    }
  }
  Numbers x;
  for (std::size_t k = 0; k < n; ++k) x.push_back(static_cast<double>(m[k][n] / m[k][k]));
  return x;
}

// No angle of a full turn, and none nearby, costs less.
template <class Cost>
void expectLeast(double angle, Cost cost) {
  const double least = cost(angle) * (1 - 1e-12) - 1e-12;
  for (int i = 1; i < 180; ++i) EXPECT_GE(cost(angle + i * kPi / 90), least) << i;
  for (double step : {1e-2, -1e-2, 1e-4, -1e-4, 3e-6, -3e-6}) EXPECT_GE(cost(angle + step), least) << step;
}

// What a transform T of a point q should fulfil: nx * X + ny * Y = d. Two of these, in x and y, make a pair of points.
struct Condition {
  double nx, ny, d;
  Point q;
};
using Conditions = std::vector<Condition>;

double squares(const Conditions& conditions, const qcXform<2>& xform) {
  Wide sum = 0;
  for (const auto& [nx, ny, d, q] : conditions) {
    const Wide residual = Wide{nx} * (xform * q).x() + Wide{ny} * (xform * q).y() - d;
    sum += residual * residual;
  }
  return static_cast<double>(sum);
}

// The best transform that turns by an angle: with no scale, one, or two along the axes of q.
qcXform<2> turned(const Conditions& conditions, double angle, int scales) {
  const Wide c = std::cos(angle), s = std::sin(angle);
  Rows rows;
  for (const auto& [nx, ny, d, q] : conditions) {
    const Wide x = (nx * c + ny * s) * q.x(), y = (ny * c - nx * s) * q.y();
    rows.push_back({nx, ny, d - x - y});
    if (scales == 1) rows.back() = {nx, ny, x + y, d};
    if (scales == 2) rows.back() = {nx, ny, x, y, d};
  }
  Numbers u = leastSquares(rows);
  u.resize(4, scales == 0 ? 1 : u.back());
  return {qcMatrix<2>(qcRadian(angle), qcRadian(angle), u[2], u[3]), Point(u[0], u[1])};
}

// Fits of points scaled by a factor are those of the conditions; without noise they recover every smaller family.
template <class Fitter>
void expectFits(const Fitter& fitter, const Conditions& conditions, double scale, int exactFrom) {
  for (int freedom : {3, 4, 5, 6}) {
    if (freedom == 5 && std::is_same_v<Fitter, qcLSPointToLineFitter>) continue;
    qcXform<2> fitted = fitter.fit(freedom);
    const double error = fitter.error(fitted) / (scale * scale);
    fitted.trans(fitted.trans() / scale);
    EXPECT_NEAR(error, squares(conditions, fitted), 1e-10 * (1 + error));
    EXPECT_TRUE(freedom < exactFrom || squares(conditions, fitted) < 1e-18) << freedom;
    Rows rows;
    for (const auto& [nx, ny, d, q] : conditions)
      rows.push_back({nx * q.x(), nx * q.y(), nx, ny * q.x(), ny * q.y(), ny, d});
    Numbers expected = leastSquares(rows);
    if (freedom < 6) {
      const double angle = std::atan2(fitted.matrix().element(1, 0), fitted.matrix().element(0, 0));
      const auto turn = [&](double t) { return turned(conditions, t, freedom - 3); };
      expectLeast(angle, [&](double t) { return squares(conditions, turn(t)); });
      expected = numbers(turn(angle));
    }
    expectNear(numbers(fitted), expected, 1e-7);
  }
}

// The fitters seen alike: filled from points, one by one or in bulk, and fitted into a list of numbers, the last of
// which is the error of some candidate. Pairs are made of neighbouring points, lines are the sides of a figure.
const qcFLine kSides[] = {{qcDegree(10), 3}, {qcDegree(100), 2}, {qcDegree(190), 5}, {qcDegree(225), 4}};

template <class F>
struct PointsCase {
  using Fitter = F;
  static void one(Fitter& f, const Points& p, std::size_t i) { f.update(p[i]); }
  static void all(Fitter& f, const Points& p) { f.update(p.data(), p.size()); }
};
struct LineCase : PointsCase<qcLSLineFitter> {
  static Numbers fit(const Fitter& f) {
    return {f.fit().cosAngle(), f.fit().sinAngle(), f.fit().distance(), f.error(kSides[0])};
  }
};
struct CircleCase : PointsCase<qcLSCircleFitter> {
  static Numbers fit(const Fitter& f) {
    const qcCircle c = f.fit();
    return {c.center().x(), c.center().y(), c.radius(), f.error(qcCircle(Point(3, -2), 1.5))};
  }
};
template <class F, int freedom>
struct TransformCase {
  using Fitter = F;
  static Numbers fit(const Fitter& f) {
    Numbers result = numbers(f.fit(freedom));
    result.push_back(f.error({Point(0.5, 0.25), 1, 0.9, qcRadian(0.2), qcRadian(-0.1)}));
    return result;
  }
};
template <int freedom>
struct PairCase : TransformCase<qcLSPointToPointFitter, freedom> {
  static void one(qcLSPointToPointFitter& f, const Points& p, std::size_t i) { f.update(p[i], p[(i + 1) % p.size()]); }
  static void all(qcLSPointToPointFitter& f, Points p) {
    p.push_back(p[0]);
    f.update(&p[0], &p[1], p.size() - 1);
  }
};
template <int freedom>
struct SideCase : TransformCase<qcLSPointToLineFitter, freedom> {
  static void one(qcLSPointToLineFitter& f, const Points& p, std::size_t i) { f.update(kSides[i / 4 % 4], p[i]); }
  static void all(qcLSPointToLineFitter& f, const Points& p) {
    for (std::size_t i = 0; i < p.size(); i += 4)
      f.update(kSides[i / 4 % 4], &p[i], p.size() - i < 4 ? p.size() - i : 4);
  }
};

template <class Case>
struct EveryFitter : testing::Test {
  static auto filled(const Points& points) {
    typename Case::Fitter fitter;
    for (std::size_t i = 0; i < points.size(); ++i) Case::one(fitter, points, i);
    return fitter;
  }
  Random random;
};
using Cases = testing::Types<LineCase, CircleCase, PairCase<3>, PairCase<4>, PairCase<5>, PairCase<6>, SideCase<3>,
                             SideCase<4>, SideCase<6>>;
TYPED_TEST_SUITE(EveryFitter, Cases);

TYPED_TEST(EveryFitter, BulkAndMergedSumsAreThoseOfSinglePointsWithinTheCount) {
  for (int n : {16, 127}) {
    const Points points = this->random.cloud(n, 4, Point(1, 2));
    typename TypeParam::Fitter fitter;
    TypeParam::all(fitter, points);
    Numbers expected = TypeParam::fit(this->filled(points));
    expectNear(TypeParam::fit(fitter), expected, 1e-11);
    for (; fitter.count() < 1L << 30; expected.back() *= 2) fitter += fitter;
    expectNear(TypeParam::fit(fitter), expected, 1e-9);
    EXPECT_THROW(fitter += fitter, typename TypeParam::Fitter::UnstableErr);
    expectNear(TypeParam::fit(fitter), expected, 1e-9);
  }
}

TYPED_TEST(EveryFitter, EqualPointsAndWhatIsNoNumberAreUnstable) {
  for (const Point& p : {Point(0, 0), Point(0.1, 0.3), Point(4711.7, -0.123), Point(1e-7, 3e-6)}) {
    for (std::size_t n : {0U, 1U, 6U, 7U, 30000U})
      EXPECT_THROW(TypeParam::fit(this->filled(Points(n, p))), typename TypeParam::Fitter::UnstableErr) << n;
    for (double bad : {HUGE_VAL, -HUGE_VAL, std::nan(""), 1e200, 1e308}) {
      Points points = this->random.cloud(16, 1, p);
      points[7] = p.x() == 0 ? Point(bad, 1) : Point(1, bad);
      EXPECT_THROW(TypeParam::fit(this->filled(points)), typename TypeParam::Fitter::UnstableErr) << bad;
    }
  }
}

TYPED_TEST(EveryFitter, MappedSumsAreThoseOfMappedPoints) {
  for (int round = 0; round < 200; ++round) {
    Points points = this->random.cloud(32, 5, this->random.point(20));
    const qcXform<2> xform = member(this->random, 6, 10);
    const auto mapped = xform * this->filled(points);
    for (Point& p : points) p = xform * p;
    expectNear(TypeParam::fit(mapped), TypeParam::fit(this->filled(points)), 1e-6);
  }
}

TEST(PointToPoint, FitsAreTheLeastSquaresAtAnyScale) {
  Random random;
  for (int round = 0; round < 52; ++round) {
    const double scale = std::pow(10, round % 13 - 6), noise = round % 2 == 0 ? 0.5 : 0;
    const int family = 3 + round / 2 % 4;
    const qcXform<2> truth = member(random, family, 5);
    qcLSPointToPointFitter fitter;
    Conditions conditions;
    for (const Point& q : random.cloud(3 + round / 2, 2, random.point(10))) {
      const Point p = truth * q + random.point(noise);
      fitter.update(p * scale, q * scale);
      conditions.insert(conditions.end(), {{1, 0, p.x(), q}, {0, 1, p.y(), q}});
    }
    expectFits(fitter, conditions, scale, noise == 0 ? family : 7);
  }
}

TEST(PointToPoint, PointsOnALineAreUnstableWhereverTheyLie) {
  Random random;
  for (int i = 0; i < 6000; ++i) {
    const Point along(1, qcRadian(i % 2 ? kPi / 2 * (i % 4) : random(-4, 4))),
        centre = random.point(std::pow(10, random(0, 3)));
    qcLSPointToPointFitter fitter;
    for (int n = 3 + i % 3; n > 0; --n) fitter.update(random.point(1), centre + random(-1, 1) * along);
    for (int freedom : {5, 6}) EXPECT_THROW(fitter.fit(freedom), qcLSPointToPointFitter::UnstableErr) << i;
    for (int freedom : {3, 4}) EXPECT_NO_THROW(fitter.fit(freedom)) << i;
  }
}

TEST(PointToPoint, RejectsWhatDoesNotDetermineTheTransform) {
  const Points corner = {{0, 0}, {1, 0}, {3, 1}, {4, 4}}, spot(4, Point(.1, .3));
  const Points square = {{11.1, .7}, {8.9, .7}, {10, 1.8}, {10, -.4}},
               mirrored = {square[0], square[1], square[3], square[2]};
  const std::tuple<std::string, Points, Points> table[] = {
      {"34", {{1, 2}, {3, 3}}, {{0, 1}, {5, 5}}},  // two pairs
      {"46", spot, corner},
      {"", corner, spot},
      {"456", square, mirrored},  // no rotation is favoured
      {"456", {{0, 0}, {1e-9, 0}, {0, 1e-9}}, {{0, 0}, {1e-9, 0}, {0, 1e-9}}}};
  for (const auto& [expected, p, q] : table) {
    const qcLSPointToPointFitter fitter(p, q);
    for (char freedom : std::string("3456")) {
      const bool good = expected.find(freedom) != std::string::npos;
      EXPECT_EQ(errorOf([&] { fitter.fit(freedom - '0'); }).empty(), good) << expected << freedom;
    }
  }
  for (int freedom : {-1, 0, 2, 5, 7}) {  // before the count
    EXPECT_THROW(qcLSPointToPointFitter().fit(freedom == 5 ? 1 : freedom), qcLSPointToPointFitter::BadArgErr);
    EXPECT_THROW(qcLSPointToLineFitter().fit(freedom), qcLSPointToLineFitter::BadArgErr);
  }
  EXPECT_THROW(qcLSPointToLineFitter({qcFLine()}, {}), qcLSPointToLineFitter::BadArgErr);
  EXPECT_THROW(qcLSPointToPointFitter(corner, {}), qcLSPointToPointFitter::BadArgErr);
}

TEST(LineFit, AnglesTurnAsDocumented) {
  const double half = std::sqrt(0.5), steep = std::atan(2) * 180 / kPi;
  const std::pair<Points, Numbers> table[] = {// angle and distance of fit, then of fitAndError
                                              {{{0, 0}, {1, 0}, {5, 0}}, {180, 0, 0, 0}},
                                              {{{0, -1}, {1, -1}}, {180, 1, -180, 1}},
                                              {{{1, 0}, {1, 9}}, {270, 1, -90, 1}},
                                              {{{0, 0}, {0, 3}}, {270, 0, 90, 0}},
                                              {{{0, 1}, {1, 0}}, {135 + 180, half, -45, half}},
                                              {{{1, 2}, {2, 4}, {3, 6}}, {steep + 180, 0, steep, 0}}};
  for (const auto& [points, expected] : table) {
    const qcFLine line = qcLSLineFitter(points).fit();
    qcFLine other;
    ASSERT_TRUE(qcLSLineFitter(points).fitAndError(&other, nullptr));
    expectNear({line.angle().plain(), line.distance(), other.angle().plain(), other.distance()}, expected, 1e-15);
    EXPECT_FALSE(std::signbit(line.distance()));
  }
}

TEST(LineFit, IsTheDirectionOfLeastSquaredDistancesAtAnyScale) {
  Random random;
  for (int round = 0; round < 100; ++round) {
    const double scale = std::pow(10, round % 13 - 6);
    const qcXform<2> squash = member(random, 6, 3);
    qcLSLineFitter fitter;
    Conditions points;  // their transforms are rotations of the points, the line lies flat
    Point centre;
    for (int n = 1; n <= 2 + round / 3; ++n) {
      const Point p = squash * Point(random(-1, 1), random(-0.2, 0.2));
      points.push_back({0, 1, 0, p});
      centre += (p - centre) / n;
      fitter.update(p * scale);
    }
    const auto residual = [&](double angle, double distance) {
      return squares(points, {Point(0, -distance), 1, 1, qcRadian(0), qcRadian(-angle)});
    };
    const qcFLine line = fitter.fit();
    const double angle = qcRadian(line.angle()).plain(), distance = line.distance() / scale;
    expectLeast(angle, [&](double t) { return residual(t, Point(1, qcRadian(t)).cross(centre)); });
    EXPECT_NEAR(distance, line.dir().cross(centre), 1e-12);
    EXPECT_NEAR(fitter.error(line) / (scale * scale), residual(angle, distance), 1e-11);
    double error = 0;
    EXPECT_TRUE(!fitter.fitAndError(nullptr, &error) || std::fabs(error - fitter.error(line)) < 1e-11 * scale * scale);
  }
}

TEST(LineFit, SmallSlopesKeepTheirDigits) {
  for (double slope : {1e-3, 1e-9, 1e-100, -1e-3, -1e-10}) {
    qcFLine line;
    ASSERT_TRUE(qcLSLineFitter({{-3, -3 * slope}, {-1, -slope}, {4, 4 * slope}}).fitAndError(&line, nullptr));
    const double angle = (line.angle().plain() - (slope < 0 ? 180 : 0)) * kPi / 180;
    EXPECT_NEAR(angle, std::atan(slope), slope < 0 ? 1e-15 : 1e-13 * slope);
  }
}

TEST(LineFit, PointsWithoutDirectionLeaveTheLineUntouched) {
  const Points square = {{.1, .1}, {.1, 1.1}, {1.1, .1}, {1.1, 1.1}};
  qcFLine line(qcDegree(12), 34);
  double error = 56;
  for (const Points& points : {Points(), Points(3, Point(.1, .7)), square})
    EXPECT_FALSE(qcLSLineFitter(points).fit(line) || qcLSLineFitter(points).fitAndError(&line, &error));
  const qcLSLineFitter tiny({{0, 0}, {1e-7, 0}});  // within the absolute limit of fitAndError only
  EXPECT_FALSE(tiny.fitAndError(&line, &error));
  Random random;
  for (std::size_t i = 0; i < 200000; ++i) EXPECT_FALSE(qcLSLineFitter(Points(i % 32, random.point(1e3))).fit(line));
  EXPECT_EQ(line.angle().plain() + line.distance() + error, 12 + 34 + 56);
}

TEST(LineFit, RemovedPointsLeaveNoTrace) {
  const Points kept = {{1, 2}, {5, 4}, {9, 5}}, other = {{.1, .7}, {1 / 3., -7e3}, {33.3, 2e-5}, {-.7, .9}, {8e5, .3}};
  qcLSLineFitter fitter;
  fitter.remove(other[0]);  // of none: ignored
  fitter += qcLSLineFitter(other);
  for (const Point& p : other) fitter.remove(p);
  EXPECT_THROW(fitter.fit(), qcLSLineFitter::UnstableErr);
  fitter += qcLSLineFitter(kept) + qcLSLineFitter({{7, 8}, {-1024, 3}});
  for (const Point& p : {Point(7, 8), Point(-1024, 3)}) fitter.remove(p);
  EXPECT_EQ(LineCase::fit(fitter), LineCase::fit(qcLSLineFitter(kept)));
}

TEST(CircleFit, NoisyArcsSolveTheAlgebraicEquationsAtAnyScale) {
  Random random;
  for (int round = 0; round < 100; ++round) {
    const double scale = std::pow(10, round % 13 - 6);
    const Point centre = random.point(4);
    qcLSCircleFitter fitter;
    Rows rows;
    Wide error = 0;  // of a circle of radius 3 around (1, 2)
    for (int i = 0; i < 5 + round; ++i) {
      const Point p = centre + Point(1, qcRadian(random(0, 4))) + random.point(0.05), away = p - Point(1, 2);
      fitter.update(p * scale);
      rows.push_back({p.x(), p.y(), 1, -(p * p)});
      error += (scale * (p.x() + p.y()) + 1) * (away * away - 9);
    }
    const qcCircle circle = fitter.fit();
    const Numbers c = leastSquares(rows);
    expectNear({circle.center().x() / scale, circle.center().y() / scale, circle.radius() / scale},
               {-c[0] / 2, -c[1] / 2, std::sqrt(c[0] * c[0] / 4 + c[1] * c[1] / 4 - c[2])}, 1e-9);
    EXPECT_NEAR(fitter.error(qcCircle(scale * Point(1, 2), 3 * scale)) / (scale * scale * (1 + scale)),
                static_cast<double>(error) / (1 + scale), 1e-9);
  }
}

TEST(CircleFit, LosesDigitsFarFromTheOriginAsDocumented) {
  for (double away : {1.0, 10.0, 500.0, 2000.0}) {
    for (int n : {3, 10, 5000}) {
      const Point centre(10 * away, qcRadian(n));
      qcLSCircleFitter fitter;
      for (int i = 0; i < n; ++i) fitter.update(centre + Point(10, qcRadian(2 * kPi * (i + 0.3 * (i % 2)) / n)));
      const double tolerance = 10 * 8e-16 * std::sqrt(n) * std::pow(1 + away, 3);
      EXPECT_LT(fitter.fit().center().distance(centre), tolerance) << away << ", " << n;
      EXPECT_NEAR(fitter.fit().radius(), 10, tolerance) << away << ", " << n;
    }
  }
}

TEST(CircleFit, PointsOnALineAreUnstable) {
  for (const Point& origin : {Point(0, 0), Point(0.1, 0.7), Point(5000.3, -3000.1)}) {
    for (const Point& step : {Point(1, 0), Point(0, 0.1), Point(0.1, 0.1), Point(0.7, -1.3)}) {
      qcLSCircleFitter fitter;
      for (int i = 0; i < 2000; ++i) {
        fitter.update(origin + i * step);
        EXPECT_THROW(fitter.fit(), qcLSCircleFitter::UnstableErr) << i << ' ' << step.x();
      }
    }
  }
}

// Points around an ellipse of random place, size and shape, over an arc, each moved by at most `noise` radii.
struct Oval {
  qcEllipse2 ellipse;
  Points points;
  Oval(Random& random, int n, double arc, double noise)
      : ellipse(random.point(3), qcRadian(random(-1.5, 1.5)), {1, random(0.2, 0.95)}, true, qcRadian(random(-3, 3))) {
    for (int i = 0; i < n; ++i) points.push_back(ellipse.point(qcRadian(i * arc / n)) + random.point(noise));
  }
  double squares(const qcEllipse2& fit) const {
    double sum = 0;
    for (const Point& p : points) sum += std::pow(fit.nearestPoint(p).distance(p), 2);
    return sum;
  }
};

Numbers numbers(const qcEllipse2& e) {
  return {e.center().x(), e.center().y(), e.radii().x(), e.radii().y(), std::cos(2 * e.angle().plain())};
}

TEST(EllipseFit, PointsOnAnEllipseGiveIt) {
  Random random;
  for (int i = 0; i < 300; ++i) {
    const Oval oval(random, 5 + i % 20, i % 3 == 0 ? 4.5 : 2 * kPi, 0);
    for (const qcEllipse2& fit : {qfFitEllipseDirect(oval.points), qfFitEllipse(oval.points)}) {
      expectNear(numbers(fit), numbers(oval.ellipse), i % 3 == 0 ? 1e-7 : 1e-9);
      EXPECT_GE(fit.radii().x(), fit.radii().y());
    }
  }
}

// No neighbour in any direction of the five degrees of freedom is nearer to the points, circles among them.
TEST(EllipseFit, IsALocalMinimumOfDistancesThatMovesWithThePoints) {
  Random random;
  for (int i = 0; i < 100; ++i) {
    Oval oval(random, 40, i % 4 == 0 ? 4.0 : 2 * kPi, 0.03);
    if (i % 5 == 0) {
      oval.points.clear();
      for (int k = 0; k < 40; ++k) oval.points.push_back(Point(1, qcRadian(k * kPi / 20)) + random.point(0.02));
    }
    const qcEllipse2 fit = qfFitEllipse(oval.points);
    const double least = oval.squares(fit);
    EXPECT_LE(least, oval.squares(qfFitEllipseDirect(oval.points)));
    for (int k = 0; k < 20; ++k) {
      const qcXform<2> nudge(qcMatrix<2>(1 + random(-1e-4, 1e-4), random(-1e-4, 1e-4), random(-1e-4, 1e-4), 1),
                             random.point(1e-4));
      EXPECT_GE(oval.squares(fit.map(qc2XformLinear(nudge))), least * (1 - 1e-9));
    }
    const qcXform<2> away(random.point(1e5), 40.0, 1, qcRadian(0), qcRadian(random(-3, 3)));
    Points moved;
    for (const Point& p : oval.points) moved.push_back(away * p);
    EXPECT_LT(qfFitEllipse(moved).center().distance(away * fit.center()), 1e-5);
  }
}

TEST(EllipseFit, RejectsWhatDeterminesNone) {
  Random random;
  const double nan = std::nan(""), huge = 1e308;
  const Points square = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  Points twice = square, line, broken = square, far = square;
  twice.insert(twice.end(), square.begin(), square.end());
  for (int i = 0; i < 9; ++i) line.push_back(Point(0.1, 7) + Point(0.3, 0.7) * i);
  broken.emplace_back(nan, 0);
  far.emplace_back(huge, -huge);
  for (const Points& points : {Points(), square, twice, line, broken, far, Points(9, Point(3, 4))}) {
    EXPECT_THROW(qfFitEllipseDirect(points), qcShapesError::BadCoef) << points.size();
    EXPECT_THROW(qfFitEllipse(points), qcShapesError::BadCoef) << points.size();
  }
  // A hyperbola, a parabola and noise give some ellipse, or none, but no nonsense.
  for (int i = 0; i < 200; ++i) {
    Points points;
    for (int k = 0; k < 12; ++k) {
      const double t = random(-2, 2);
      points.push_back(i % 3 == 0 ? Point(std::cosh(t), std::sinh(t)) : i % 3 == 1 ? Point(t, t * t) : random.point(1));
    }
    try {
      for (const double number : numbers(qfFitEllipse(points))) EXPECT_TRUE(std::isfinite(number));
    } catch (const qcShapesError::BadCoef&) {
    }
  }
}

TEST(PointToLine, FitsAreTheLeastSquaresAtAnyScale) {
  Random random;
  for (int round = 0; round < 78; ++round) {
    const double scale = std::pow(10, round % 13 - 6);
    const int family = round % 3 == 2 ? 6 : 3 + round % 3, noise = round % 4;  // from none to nothing but noise
    const qcXform<2> truth = member(random, family, 3);
    qcLSPointToLineFitter fitter;
    Conditions conditions;
    for (int i = 0; i < 12 + round % 20; ++i) {
      const qcFLine line(qcDegree(random(0, 360)), random(0, 4));
      const Point q = truth.invMapPoint(line.foot() + random(-5, 5) * line.dir()) + random.point(noise);
      fitter.update(qcFLine(line.angle(), line.distance() * scale), q * scale);
      conditions.push_back({-line.sinAngle(), line.cosAngle(), line.distance(), q});
    }
    expectFits(fitter, conditions, scale, noise == 0 ? family : 7);
  }
}

TEST(PointToLine, RejectsWhatDoesNotDetermineTheTransform) {
  Random random;
  qcLSPointToLineFitter parallel, cross;
  for (int i = 0; i < 12; ++i) parallel.update(qcFLine(qcDegree(30 + 180 * (i % 2)), 1 + i % 3), random.point(9));
  for (double along : {1.0, 2.0, -4.0}) {  // lines through the origin: half a turn is as good as none
    cross.update(qcFLine(qcDegree(0), 0), Point(along, 0));
    cross.update(qcFLine(qcDegree(90), 0), Point(0, 1 - along));
  }
  expectNear(numbers(cross.fit(3)), numbers(qcXform<2>()), 1e-15);
  for (int freedom : {3, 4, 6}) {
    EXPECT_THROW(parallel.fit(freedom), qcLSPointToLineFitter::UnstableErr);
    qcLSPointToLineFitter few;
    for (int i = 1; i < freedom; ++i) few.update(kSides[static_cast<std::size_t>(i % 4)], random.point(9));
    EXPECT_THROW(few.fit(freedom), qcLSPointToLineFitter::UnstableErr);
  }
}

}  // namespace
