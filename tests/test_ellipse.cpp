
#include "support/randomshapes.h"

namespace {

struct Random : ::Random {
  using ::Random::Random;
  /// From 10^low to 10^high, and either sign when asked for.
  double size(double low, double high) { return std::pow(10, real(low, high)); }
  double number(double low, double high) { return (integer(0, 1) ? 1 : -1) * size(low, high); }
  qcRadian angle() { return qcRadian(real(-kPi, kPi)); }
  qcEllipse2 ellipse(double log10Ratio) {
    const double larger = size(-2, 3), smaller = larger * size(-log10Ratio, 0);
    return {point(), angle(), integer(0, 1) ? V(larger, smaller) : V(smaller, larger), integer(0, 1) == 1, angle()};
  }
};

double largest(const V& v) { return std::max(v.x(), v.y()); }

double relativeError(const qcMatrix<2>& a, const qcMatrix<2>& b) {
  double error = 0, norm = 0;
  for (int i = 0; i < 4; ++i) {
    norm = std::hypot(norm, a.element(i / 2, i % 2));
    error = std::hypot(error, a.element(i / 2, i % 2) - b.element(i / 2, i % 2));
  }
  return norm > 0 ? error / norm : 0;
}

TEST(EllipseForms, DegreesOfFreedomReproduceTheMatrix) {
  Random random(1);
  double worst = 0;
  for (int i = 0; i < 200000; ++i) {
    const double unit = random.size(-140, 140);
    qcMatrix<2> m(random.number(-3, 0), random.number(-3, 0), random.number(-3, 0), random.number(-3, 0));
    const int kind = random.integer(0, 5);
    if (kind == 0) m = {m.element(0, 0), 0, 0, m.element(1, 1)};
    if (kind == 1) m = {m.element(0, 0), m.element(0, 1), -m.element(0, 1), m.element(0, 0)};
    if (kind == 2) m.element(1, 1, m.element(0, 1) * m.element(1, 0) / m.element(0, 0));
    if (kind == 3) m = qcMatrix<2>(1, random.angle().plain(), 0, random.size(-12, 0)) * m;
    if (kind == 4) m.element(random.integer(0, 1), random.integer(0, 1), 0);
    m *= unit;
    const qcEllipse2 e(qcXform<2>(m, random.point()));
    const qcEllipse2 again(e.center(), e.angle(), e.radii(), e.isRightHanded(), e.phase());
    worst = std::max(worst, relativeError(m, again.unitCircleMap().matrix()));
    EXPECT_TRUE(kind == 2 || e.isRightHanded() == (m.determinant() >= 0));
    EXPECT_TRUE(kind != 1 || (e.phase().plain() == 0 && e.radii().x() == e.radii().y()));
  }
  EXPECT_LE(worst, 1e-15);
  for (const double bad : {kInf, -kInf, kNan})
    EXPECT_THROW(qcEllipse2(qcXform<2>({1, 0, bad, 1}, {})), qcShapesError::BadParams);
}

TEST(EllipseForms, MappingKeepsPointsAndSimilaritiesKeepTheForm) {
  forSeeds<Random>(500, [&](Random& random, unsigned) {
    const qcEllipse2 e = random.ellipse(2);
    const double eps = 1e-12 * (largest(e.radii()) + 20);
    const qcXform<2> affine({random.real(-2, 2), random.real(-2, 2), random.real(-2, 2), random.real(-2, 2)},
                            random.point());
    const qcRadian phi = random.angle(), by = random.angle();
    EXPECT_NEAR_POINT(e.map(affine).point(phi), affine * e.point(phi), 4 * eps);
    EXPECT_EQ(e.map(affine).isRightHanded(), e.isRightHanded() == (affine.matrix().determinant() > 0));
    const qcEllipse2 similar = e.rotate(by).scale({3, 3}).translate({1, 2});
    EXPECT_NEAR_POINT(similar.radii(), 3 * e.radii(), 3 * eps);
    EXPECT_EQ(similar.isRightHanded(), e.isRightHanded());
    if (std::fabs(e.radii().x() / e.radii().y() - 1) < 1e-3) return;
    EXPECT_TRUE(qfRealEq(similar.phase(), e.phase(), 1e-10) && qfRealEq(similar.angle(), e.angle() + by, 1e-10));
  });
}

TEST(EllipseForms, SettersKeepBothFormsInStepAndRefuse) {
  qcEllipse2 e({1, 2}, qcRadian(7), {3, 2}, true, qcRadian(-7));
  e.radii({5, 1});
  e.angle(qcRadian(0.5));
  e.phase(qcRadian(0.25));
  e.isRightHanded(false);
  e.center({-1, 4});
  EXPECT_EQ(e, qcEllipse2({-1, 4}, qcRadian(0.5), {5, 1}, false, qcRadian(0.25)));
  const qcEllipse2 before = e;
  for (const double bad : {-1e-300, -1.0, kInf, kNan}) {
    EXPECT_THROW(e.radii({1, bad}), qcShapesError::BadParams);
    EXPECT_THROW(qcEllipse({}, {bad, 1}, qcRadian(0)), qcShapesError::BadParams);
  }
  EXPECT_THROW(e.phase(qcRadian(kInf)), qcShapesError::BadParams);
  EXPECT_EQ(e, before);
  qcEllipseArc2 arc(e, qcRadian(1), qcRadian(2));
  for (const double bad : {6.3, -7.0, kNan}) EXPECT_THROW(arc.phiSpan(qcRadian(bad)), qcShapesError::BadParams);
  EXPECT_THROW(arc.phiStart(qcRadian(kNan)), qcShapesError::BadParams);
  EXPECT_EQ(arc, qcEllipseArc2(e, qcRadian(1), qcRadian(2)));
}

TEST(EllipseForms, OlderClassesAreTheSameCurves) {
  forSeeds<Random>(200, [&](Random& random, unsigned) {
    const qcEllipse2 e = random.ellipse(1);
    const qcEllipseArc2 arc(e, random.angle(), qcRadian(random.real(-6, 6)));
    const qcXform<2> mirror({1, 2, 3, 4}, {5, 6});
    const qcEllipseArc oldArc = arc.oldEllipseArc().map(mirror);
    const double eps = 1e-11 * (largest(e.radii()) + 20);
    EXPECT_NEAR_POINT(oldArc.startPoint(), mirror * arc.startPoint(), eps);
    EXPECT_NEAR_POINT(oldArc.endPoint(), mirror * arc.endPoint(), eps);
    EXPECT_NEAR(oldArc.tangentRotation().plain(), arc.map(mirror).tangentRotation().plain(), 1e-9);
    EXPECT_EQ(qcEllipse2(e.oldEllipse()).oldEllipse(), e.oldEllipse());
  });
}

TEST(EllipseConics, CoefficientsVanishOnTheCurveAndComeBack) {
  forSeeds<Random>(500, [&](Random& random, unsigned) {
    const qcEllipse2 e(random.point(), random.angle(), {random.size(-1.5, 1), random.size(-1.5, 1)}, true,
                       random.angle());
    const double larger = largest(e.radii()), reach = (larger + e.center().len()) / -largest(-e.radii());
    const double eps = (1e-14 * reach * reach + 1e-9) * larger;  // what the rounding of coefficients leaves
    double c[6];
    e.coeffs(c[0], c[1], c[2], c[3], c[4], c[5]);
    const V p = e.point(random.angle());
    const double value =
        c[0] * p.x() * p.x() + c[1] * p.x() * p.y() + c[2] * p.y() * p.y() + c[3] * p.x() + c[4] * p.y() + c[5];
    EXPECT_NEAR(value, 0, 1e-12 * (1 + p * p));
    const double factor = random.number(-100, 100);
    for (double& coefficient : c) coefficient *= factor;
    const qcEllipse2 back(c[0], c[1], c[2], c[3], c[4], c[5]);
    EXPECT_NEAR_POINT(back.center(), e.center(), eps);
    EXPECT_NEAR_POINT(back.nearestPoint(p), p, eps);
    EXPECT_NEAR(back.perimeter(), e.perimeter(), 4 * eps);
  });
  // An empty set, a point, hyperbola, parabola, line, nothing, no numbers.
  const double bad[][6] = {{1, 0, 1, 0, 0, 1}, {1, 0, 1, 0, 0, 0}, {1, 3, 1, 0, 0, 1},     {1, 2, 1, 3, 0, -1},
                           {0, 0, 0, 1, 1, 1}, {0, 0, 0, 0, 0, 0}, {kInf, 0, 1, 0, 0, -1}, {1, 0, 1, 0, 0, kNan}};
  for (const auto& c : bad)
    EXPECT_THROW(qcEllipse2(c[0], c[1], c[2], c[3], c[4], c[5]), qcShapesError::BadCoef) << &c - bad;
  double out;
  EXPECT_THROW(qcEllipse2(qcXform<2>({1, 0, 0, 0}, {})).coeffs(out, out, out, out, out, out),
               qcShapesError::DegenerateShape);
}

// Gauss's way: the arithmetic-geometric mean of the radii.
double perimeterByMeans(double a, double b) {
  double sum = (a * a + b * b) / 2, weight = 0.5;
  while (std::fabs(a - b) > 1e-15 * a) {
    const double mean = (a + b) / 2, c = (a - b) / 2;
    b = std::sqrt(a * b);
    a = mean;
    weight *= 2;
    sum -= weight * c * c;
  }
  return 2 * kPi * sum / a;
}

// Simpson's rule over the speed.
double lengthByQuadrature(const V& r, double from, double to) {
  constexpr int kSteps = 1000;
  double sum = 0;
  for (int i = 0; i <= kSteps; ++i) {
    const double t = from + (to - from) * i / kSteps, weight = i % kSteps == 0 ? 1 : i % 2 ? 4 : 2;
    sum += weight * std::hypot(r.x() * std::sin(t), r.y() * std::cos(t));
  }
  return sum * std::fabs(to - from) / (3 * kSteps);
}

TEST(EllipseLengths, AgreeWithMeansWithQuadratureAndAddUp) {
  forSeeds<Random>(300, [&](Random& random, unsigned seed) {
    const qcEllipse2 e = random.ellipse(seed % 7);
    const V r = e.radii();
    EXPECT_NEAR(e.perimeter(), perimeterByMeans(r.x(), r.y()), 2e-15 * largest(r) * (seed % 7 < 3 ? 4 : 1e8));
    const qcEllipseArc2 arc(e, random.angle(), qcRadian(random.real(-6.28, 6.28)));
    const qcShapeInfo info(arc);
    if (seed % 7 < 2) {  // rounder than 10 to 1, where steps are small beside all that the speed does
      const double from = (arc.phiStart() + e.phase()).plain(), to = (arc.phiEnd() + e.phase()).plain();
      EXPECT_NEAR(info.perimeter(), lengthByQuadrature(r, from, to), 1e-8 * largest(r)) << seed;
    }
    // A point at a length, and the length at that point.
    for (const double part : {0.0, 1e-9, 0.3, 0.7, 1.0}) {
      const qcPerimPos place(0, part * info.perimeter());
      const V p = arc.perimPoint(info, place);
      const double length = arc.nearestPerimPos(info, p).distance();
      EXPECT_NEAR_POINT(arc.perimPoint(info, {0, length}), p, 1e-9 * largest(r));
      const auto rest = dynamic_cast<const qcEllipseArc2&>(*arc.subShape(info, {place, 1e300}));
      EXPECT_NEAR(rest.perimeter() + place.distance(), info.perimeter(), 4e-15 * largest(r));
      EXPECT_EQ(rest.phiEnd(), arc.phiEnd());
    }
  });
  // Where rounding of lengths moves parameters by much, near the tips.
  Random random(7);
  for (int i = 0; i < 4000; ++i) {
    const qcEllipse2 e({}, qcRadian(0), {1, random.size(-16, -8)}, true, qcRadian(0));
    const qcShapeInfo info(e);
    const qcPerimPos start(0, info.perimeter() * (0.5 + 1e-15 * random.real(-1, 1)));
    const double length = info.perimeter() * (i % 2 ? 1 - 1.2e-16 : 1e-15 * random.real(0, 1));
    const auto part = dynamic_cast<const qcEllipseArc2&>(*e.subShape(info, {start, length}));
    EXPECT_TRUE(part.phiSpan().plain() >= 0 && part.phiSpan().plain() <= qcRadian::turn + 4e-15) << i;
    EXPECT_NEAR(part.perimeter(), length, 1e-14);
    // Towards the tips of the thinnest.
    const V thin(1, random.size(-160, -20));
    const qcRadian span(i % 5 * kPi / 2 + 1e-15 * random.real(-1, 1) - 0.5);
    const auto perimeter = [&span](const V& radii) {
      return qcEllipseArc(qcEllipse({}, radii, {}), qcRadian(0.5), span).perimeter();
    };
    EXPECT_NEAR(perimeter(thin), perimeter({1, 0}), 2e-15);
    EXPECT_NEAR(perimeter({thin.y(), 1}), perimeter({0, 1}), 2e-15);
  }
  for (const double r : {1e-300, 0.1, 1.0, 3e300}) {
    EXPECT_DOUBLE_EQ(qcEllipse({}, {0, r}, {}).perimeter(), 4 * r);
    EXPECT_DOUBLE_EQ(qcEllipse({}, {r, r / 2}, {}).perimeter(), 4.844224110273838 * r);
  }
}

/// The least distance from `p` to the part of (a cos t, b sin t) from t0 to t1, by looking for it everywhere: at the
/// ends and at every change of sign of the slope on a grid that is finer towards the axes.
double leastDistance(double a, double b, const V& p, double t0, double t1) {
  static const std::vector<double> grid = [] {
    std::vector<double> all;
    for (int axis = -4; axis <= 8; ++axis) {
      for (int i = 0; i <= 40; ++i) {
        const double offset = kPi / 4 * std::pow(1e-8, 1 - i / 40.0);
        all.push_back(axis * kPi / 2 - offset);
        all.push_back(axis * kPi / 2 + offset);
      }
    }
    std::sort(all.begin(), all.end());
    return all;
  }();
  const auto distance = [&](double t) { return std::hypot(a * std::cos(t) - p.x(), b * std::sin(t) - p.y()); };
  const auto slope = [&](double t) {
    const double c = std::cos(t), s = std::sin(t);
    return (b * b - a * a) * s * c + a * p.x() * s - b * p.y() * c;
  };
  double least = std::min(distance(t0), distance(t1)), low = t0;
  for (const double next : grid) {
    if (next <= low) continue;
    const double high = std::min(next, t1);
    double l = low, h = high;
    if (slope(l) <= 0 && slope(h) > 0) {
      for (int i = 0; i < 45; ++i) (slope((l + h) / 2) <= 0 ? l : h) = (l + h) / 2;
    }
    least = std::min({least, distance(h), distance(l)});
    low = high;
    if (low >= t1) break;
  }
  return least;
}

TEST(EllipseNearest, NothingIsNearerThanTheNearestPoint) {
  Random random(1);
  double worst = 0;
  for (int i = 0; i < 100000; ++i) {
    const double a = random.size(-3, 3), b = a * random.size(i % 3 == 0 ? -6 : -1, 0), d = a * a - b * b;
    const double t = random.angle().plain(), c = std::cos(t), s = std::sin(t);
    V p(a * random.number(-4, 1), a * random.number(-4, 1));
    const int kind = i % 8;
    if (kind == 1) p = {a * c, b * s};                                                 // on it
    if (kind == 2) p = {p.x(), 0};                                                     // on the axes
    if (kind == 3) p = {0, p.y()};                                                     //
    if (kind == 4) p = {d / a * c * c * c, -d / b * s * s * s};                        // on the evolute
    if (kind == 5) p = {d / a * c * c * c * 0.999999, -d / b * s * s * s * 0.999999};  // just inside
    if (kind == 6) p = random.flip() ? V() : V(d / a, 0);                              // the centre, a cusp
    const bool swapped = random.flip();
    const qcEllipse e({}, swapped ? V(b, a) : V(a, b), {});
    const V q = swapped ? V(p.y(), p.x()) : p, foot = e.nearestPoint(q);
    worst = std::max(worst, (q.distance(foot) - leastDistance(a, b, p, -kPi, kPi)) / a);
    EXPECT_NEAR(std::hypot(foot.x() / e.radii().x(), foot.y() / e.radii().y()), 1, 1e-14);
    EXPECT_NEAR_POINT(foot, q, kind == 1 && b > 0.1 * a ? 1e-8 * a : kInf);
    if (random.flip()) continue;
    // The same arc in four guises.
    const double start = random.angle().plain(), span = random.integer(0, 9) ? random.real(0, 6.28) : 0;
    const double u = random.angle().plain(), from = random.flip() ? start : start + span;
    const double sense = random.flip() ? 1 : -1, to = from == start ? start + span : start;
    const qcEllipseArc2 arc = qcEllipseArc2::between(qcEllipse2({}, qcRadian(0), {a, b}, sense > 0, qcRadian(u)),
                                                     qcRadian(sense * from - u), qcRadian(sense * to - u));
    const V on = arc.nearestPoint(p);
    worst = std::max(worst, (p.distance(on) - leastDistance(a, b, p, start, start + span)) / a);
    const qcShapeInfo info(arc);
    EXPECT_NEAR_POINT(arc.perimPoint(info, arc.nearestPerimPos(info, p)), on, 1e-12 * a);
  }
  EXPECT_LE(worst, 1e-9);
  EXPECT_NEAR_POINT(qcEllipse({}, {3, 0}, {}).nearestPoint({-1, 4}), V(-1, 0), 1e-12);
  // The first of equally near ones along an arc, also all the way round and where rounding favours the other.
  for (const auto& [start, span, x, y] : std::vector<std::array<double, 4>>{
           {-2, 2 * kPi, 0, -1}, {2, 2 * kPi, 0, -1}, {2, -4, -1, 1}, {1, 2 * kPi, -1, 1}, {-1, -2 * kPi, -1, -1}}) {
    const qcEllipseArc2 arc(qcEllipse2({0, 0}, {}, {5, 2}, true, {}), qcRadian(start), qcRadian(span));
    EXPECT_GT(arc.nearestPoint({x, 0}).y() * y, 0) << start << " " << span;
  }
  for (const double far : {1e-200, 1e200})
    EXPECT_NEAR_POINT(qcEllipse({}, {2 * far, far}, {}).nearestPoint({0, 9 * far}) / far, V(0, 1), 1e-12);
}

TEST(EllipseDirections, ParametersOfPointsAndTangents) {
  forSeeds<Random>(500, [&](Random& random, unsigned seed) {
    const qcEllipse2 e = random.ellipse(2);
    const qcRadian phi = random.angle();
    const V p = e.point(phi), step = e.point(phi + qcRadian(1e-6)) - p;
    EXPECT_TRUE(qfRealEq(e.phi(e.center() + random.size(-1, 1) * (p - e.center())), phi, 1e-8));
    EXPECT_TRUE(qfRealEq(e.phi(e.center()), -e.phase(), 1e-15));
    EXPECT_TRUE(qfRealEq(e.tangent(phi), step.angle(), 1e-3));
    EXPECT_TRUE(qfRealEq(e.phiFromDir(e.tangent(phi)), phi, 1e-9));
    const qcEllipseArc2 arc(e, phi, qcRadian(random.flip() ? 2 * kPi : -2 * kPi));
    qcEllipseArc2 moved(arc);
    for (int i = 0; i < 30; ++i) moved.phiStart(random.angle());
    EXPECT_TRUE(moved.startPoint() == moved.endPoint() && moved.phiSpan() == arc.phiSpan()) << seed;
    const qcEllipseArc2 part(e, phi, seed % 4 ? qcRadian(random.real(-6.2, 6.2)) : arc.phiSpan());
    Result result;
    part.sample(Params(1e-5 * largest(e.radii()), 0, 100000, true), result);
    double turned = 0;
    for (std::size_t i = 1; i < result.tangents().size(); ++i)
      turned += (result.tangents()[i] - result.tangents()[i - 1]).signedNorm().plain();
    EXPECT_NEAR(part.tangentRotation().plain(), turned, 1e-9);
  });
  const qcEllipse2 flat(qcXform<2>({3, 0, 0, 0}, {1, 0}));
  EXPECT_TRUE(flat.isDegenerate());
  EXPECT_THROW(flat.tangent(qcRadian(1)), qcShapesError::NoTangent);
  EXPECT_THROW(flat.phiFromDir(qcRadian(1)), qcShapesError::NoTangent);
  EXPECT_NEAR_POINT(flat.point(flat.phi({2.5, 7})), V(2.5, 0), 1e-12);
  EXPECT_TRUE(flat.within({4, 0}) && !flat.within({1, 1e-300}) && !flat.within({4.1, 0}));
}

// A point moved to the left by very little sees what the point on the arc reports.
TEST(EllipseDirections, PointsOfArcsWindAsFromTheLeft) {
  forSeeds<Random>(2000, [&](Random& random, unsigned seed) {
    const qcEllipse2 e = random.ellipse(1);
    const double span = random.integer(0, 3) ? random.real(0.1, 6.2) : 2 * kPi;
    const qcEllipseArc2 arc(e, random.angle(), qcRadian(random.flip() ? span : -span));
    const qcShapeInfo info(arc);
    const int end = random.integer(0, 4);
    V p;
    qcRadian tangent;
    const qcPerimPos place = info.perimPos(info.perimeter() * (end < 2 ? end : random.real(0.01, 0.99)));
    arc.perimPointAndTangent(info, place, p, tangent);
    const V left = 1e-7 * largest(e.radii()) * V(1, tangent).perpendicular();
    EXPECT_NEAR(arc.windingAngle(p).plain(), arc.windingAngle(p + left).plain(), 1e-3) << seed;
    const double scale = std::ldexp(1, seed % 2 ? 700 : -700);  // squares leave the range of doubles
    const auto scaled = qcEllipseArc2(arc).map({{scale, 0, 0, scale}, {}});
    EXPECT_NEAR(scaled.windingAngle(scale * (p + left)).plain(), arc.windingAngle(p + left).plain(), 1e-7) << seed;
  });
  EXPECT_EQ(qcEllipseArc2(qcEllipse2(qcXform<2>({0, 0, 0, 0}, {})), {}, qcRadian(1)).windingAngle({0, 0}).plain(), 0);
}

TEST(EllipseSampling, EqualArcsOrEqualAngles) {
  const qcEllipse2 e({0, 0}, qcRadian(0), {100, 1}, true, qcRadian(0));
  Params params(0.01, 7, 100000);
  params.recordPositions_(true);
  Result result, limited;
  e.sample(params, result);
  const auto& places = result.perimPositions_();
  for (std::size_t i = 1; i < places.size(); ++i)
    EXPECT_NEAR(places[i].distance() - places[i - 1].distance(), places[1].distance(), 1e-9);
  // By tolerance alone about as many points as on the circle of the larger radius.
  EXPECT_THROW(e.sample(Params(0.01, 0, 222), limited), qcShapesError::SampleOverflow);
  e.sample(Params(0.01, 0, 223), limited);
  EXPECT_EQ(limited.positions().size(), 223u);
}

}  // namespace
