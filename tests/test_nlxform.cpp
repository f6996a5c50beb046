// Nonlinear transforms: fits against maps known by construction, laws over all classes, degenerate and hostile input.

#include "std/math/mappoints.h"
#include "support/randomshapes.h"
#include "support/records.h"
#include "vnxstd/except.h"
#include "vnxstd/math.h"
#include "zrtnlxf/deform.h"
#include "zrtnlxf/handle.h"
#include "zrtnlxf/perspective.h"
#include "zrtnlxf/polynomial.h"
#include "zrtnlxf/simd.h"

namespace {

using Handle = qcPtrHandle<qc2XformBase>;
using Point = qcVector<2>;
using Points = std::vector<Point>;
using Linear = qc2XformLinear;
using Perspective = qc2XformPerspective;
using Poly = qc2XformPoly;
using Inverse = qc2XformInverse;
using Deform = qc2XformDeform;
using BadParams = qc2XformPerspectiveDefs::BadParams;
using NumericalError = qc2XformPerspectiveDefs::NumericalError;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kMax = std::numeric_limits<double>::max();

struct Source : Random {
  Source() : Random(11) {}
  Point point(double reach = 500) { return {real(-reach, reach), real(-reach, reach)}; }
  Points points(std::size_t count, double reach = 500) {
    Points result(count);
    for (Point& p : result) p = point(reach);
    return result;
  }
  // Within 500 pixels of the origin the denominator stays between 0.5 and 1.5 of itself.
  qcMatrix<3> matrix() {
    const double w = real(0.1, 5), bend = 5e-4 * w;
    return {real(0.5, 2),      real(-0.3, 0.3),   real(-99, 99),
            real(-0.3, 0.3),   real(0.5, 2),      real(-99, 99),
            real(-bend, bend), real(-bend, bend), w};
  }
  // A similarity bent by up to `bend` pixels, about, within 500 pixels of the origin.
  Poly poly(int order, double bend) {
    const std::size_t size = Poly::size(order);
    std::vector<double> x(size), y(size);
    for (std::size_t i = 0; i < size; ++i) {
      x[i] = real(-bend, bend) / static_cast<double>(size);
      y[i] = real(-bend, bend) / static_cast<double>(size);
    }
    x[1] += 500;
    y[2] += 500;
    return Poly(order, x, y, point(9), Point(0.002, 0.002));
  }
  // Sources on a grid over 600 x 600 pixels around the origin, destinations up to `bend` pixels away in x and y.
  Deform deform(double bend, double smoothness = 0) {
    Points from, to;
    for (int i = 0; i < 25; ++i) {
      const int row = i / 5 - 2, column = i % 5 - 2;
      from.push_back(point(20) + Point(150 * column, 150 * row));
      to.push_back(from.back() + point(bend));
    }
    return Deform(from, to, smoothness);
  }
};

template <class Map>
Points mapped(const Points& points, const Map& map) {
  Points result;
  for (const Point& p : points) result.push_back(map(p));
  return result;
}

double distance(const qc2XformBase& a, const qc2XformBase& b, const Points& points) {
  double largest = 0;
  for (const Point& p : points) largest = std::max(largest, (a * p).distance(b * p));
  return largest;
}

TEST(PerspectiveFit, FindsTheMapThatMadeThePoints) {
  Source source;
  for (int round = 0; round < 300; ++round) {
    const Perspective truth(source.matrix());
    const auto map = [&](const Point& p) { return truth * p; };
    const Points corners = {source.point(200) + Point(-290, -290), source.point(200) + Point(290, -290),
                            source.point(200) + Point(290, 290), source.point(200) + Point(-290, 290)};
    const Points images = mapped(corners, map), probes = source.points(20);
    const Perspective four({corners[0], corners[1], corners[2], corners[3]},
                           {images[0], images[1], images[2], images[3]});
    EXPECT_LT(distance(four, truth, probes), 1e-9);
    EXPECT_EQ(four, Perspective(corners, images));
    EXPECT_DOUBLE_EQ(four.matrix().element(2, 2), 1);
    const Points many = source.points(static_cast<std::size_t>(source.integer(5, 44)));
    EXPECT_LT(distance(Perspective(many, mapped(many, map)), truth, probes), 1e-7);
    // Far from the origin, what the coordinates have lost to rounding is lost, and no more.
    const Point far(3e5, -2e5);
    const Points away = mapped(many, [&](const Point& p) { return p + far; });
    const Perspective there(away, mapped(many, map));
    for (const Point& p : probes) EXPECT_LT((there * (p + far)).distance(truth * p), 1e-4);
  }
}

TEST(PerspectiveFit, AveragesNoise) {
  Source source;
  const Perspective truth(source.matrix());
  const Points from = source.points(2500);
  const Points to = mapped(from, [&](const Point& p) { return truth * p + source.point(0.5); });
  EXPECT_LT(distance(Perspective(from, to), truth, source.points(100)), 0.1);
}

TEST(PerspectiveFit, RefusesWhatDeterminesNoMap) {
  Source source;
  const Points square = {{0, 0}, {9, 0}, {9, 9}, {0, 9}}, five = {{0, 0}, {9, 0}, {9, 9}, {0, 9}, {3, 4}};
  const auto refused = [](const Points& a, const Points& b) {
    EXPECT_THROW(Perspective(a, b), NumericalError);
    EXPECT_THROW(Perspective(b, a), NumericalError);
  };
  for (int round = 0; round < 300; ++round) {  // lines, which rounding bends, and single points
    const Point from = source.point(9), step = round % 7 ? source.point(3) : Point();
    Points line;
    for (int i = 0; i < 5; ++i) line.push_back(from + i * step);
    refused(five, line);
    line[4] = source.point();
    EXPECT_THROW(Perspective(line, five), NumericalError);
    refused(square, Points(line.begin() + 1, line.end()));
  }
  refused(square, {{0, 0}, {1. / 3, 1. / 3}, {7, 7}, {9, 2}});
  const Points wild = {{0, 0}, {9, 0}, {9, kNaN}, {0, 9}}, three(3);
  for (const auto& [a, b] : {std::pair{square, five}, {three, three}, {{}, {}}, {wild, square}, {square, wild}})
    EXPECT_THROW(Perspective(a, b), BadParams);
  EXPECT_NO_THROW(Perspective(square, {{0, 0}, {9e9, 0}, {9e9, 1e-3}, {0, 1e-3}}));  // thin, but no line
  EXPECT_THROW(Perspective(square, {{0, 0}, {kMax, 0}, {kMax, kMax}, {0, kMax}}) * Point(1e9, -9), NumericalError);
}

TEST(Perspective, KnowsWhereItEnds) {
  // The line x = 2 has no image; nor has what an infinite denominator puts at 0: the one of an element, and one that
  // overflows on the way to 1e-5.
  const qcMatrix<3> matrix(1, 0, 0, 0, 1, 0, 1, 0, -2);
  const Perspective infinite(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0, 0, INFINITY));
  const Perspective xform(matrix), steep(qcMatrix<3>(1e5, 0, 0, 0, 1, 0, 1e10, 0, 1));
  for (const auto& [far, p] : {std::pair{&infinite, Point(3, 5)},
                               {&steep, Point(1e300, 5)},
                               {&xform, Point(2, 1e300)},
                               {&xform, Point(kNaN, 5)}}) {
    EXPECT_THROW(*far * p, NumericalError);
    EXPECT_THROW(far->linearXform(p), NumericalError);
    for (const std::size_t at : {0u, 5u, 6u, 7u}) {
      Points many(8, far == &infinite ? p : Point(1e-9, 1));
      many[at] = p;
      EXPECT_THROW(far->mapPoints(many.data(), many.data(), many.size()), NumericalError);
    }
  }
  EXPECT_FALSE(xform.isLinear() || xform.isSingular());
  const Perspective scale(qcMatrix<3>(6, 3, 9, 0, 3, 6, 0, 0, 3));
  EXPECT_TRUE(scale.isLinear() && scale.linearXform(Point(kNaN, kMax)) == Linear(qcMatrix<2>(2, 1, 0, 1), Point(3, 2)));
  // Singular by rounding, and by what is left of 1e-320; one that only looks so; and sizes that products of three
  // elements cannot hold.
  const double third = 1. / 3;
  const Perspective flat(qcMatrix<3>(0.1, 0.2, 0.3, third, 2 * third, 1, 7, 8, 9));
  const Perspective tiny(qcMatrix<3>(1e-160, 0, 0, 0, 1e-160, 0, 0, 0, 1)), none(matrix * kNaN);
  for (const Perspective* singular : {&flat, &tiny, &none}) {
    EXPECT_TRUE(singular->isSingular());
    EXPECT_THROW(singular->inverseBase(), NumericalError);
  }
  const Perspective shift(qcMatrix<3>(1, 0, 1e9, 0, 1, -1e9, 0, 0, 1)), small(matrix * 1e-150), large(matrix * 1e150);
  for (const Perspective* far : {&shift, &small, &large})
    EXPECT_TRUE(qfRealEq(*far->inverseBase() * (*far * Point(3, 5)), Point(3, 5), 1e-6));
  const Point from[] = {{0, 0}, {1000, 0}, {1000, 1000}, {0, 1000}};
  const Point to[] = {
      {1e7 + 13.7, -7e6}, {1e7 + 913.1, -7e6 - 88.9}, {1e7 + 1101.3, -7e6 + 791.7}, {1e7 - 99.1, -7e6 + 1111.3}};
  const Perspective tilted(from, to);
  EXPECT_TRUE(qfRealEq(*tilted.inverseBase() * (tilted * Point(300, 500)), Point(300, 500), 1e-6));
}

TEST(Perspective, ComposesByProductWherePossible) {
  Source source;
  const auto isProduct = [](const Handle& handle) { return dynamic_cast<Perspective*>(handle.rep()) != nullptr; };
  const Handle a(new Perspective(source.matrix())), b(new Perspective(source.matrix()));
  const Handle linear(new Linear(qcMatrix<2>(0.5, 0.2, 0, 0.3), Point(3, 4))), empty(new qc2XformComposed);
  EXPECT_TRUE(isProduct(*a * *b) && isProduct(*a * *linear) && isProduct(*a * *empty));
  EXPECT_FALSE(isProduct(*linear * *a) || isProduct(*a * *(*linear * *a)));
}

// The sum of the terms as the header numbers them.
Point sumOfTerms(const Poly& poly, const Point& p) {
  const double u = (p.x() - poly.origin().x()) * poly.scale().x(), v = (p.y() - poly.origin().y()) * poly.scale().y();
  Point sum;
  std::size_t k = 0;
  for (int degree = 0; degree <= poly.order(); ++degree)
    for (int j = 0; j <= degree; ++j, ++k)
      sum += Point(poly.xCoefs()[k], poly.yCoefs()[k]) * (std::pow(u, degree - j) * std::pow(v, j));
  return sum;
}

TEST(PolynomialFit, FindsThePolynomialThatMadeThePoints) {
  Source source;
  for (int order = 1; order <= Poly::kMaxOrder; ++order) {
    const Poly truth = source.poly(order, 300);
    const Points probes = source.points(50);
    for (const Point& p : probes) EXPECT_LT((truth * p).distance(sumOfTerms(truth, p)), 1e-9);
    const Points from = source.points(3 * Poly::size(order));
    const Points to = mapped(from, [&](const Point& p) { return truth * p; });
    EXPECT_LT(distance(Poly(from, to, order), truth, probes), 1e-5) << order;
    const Point far(4e4, -7e4);
    const Poly there(mapped(from, [&](const Point& p) { return p + far; }), to, order);
    for (const Point& p : probes) EXPECT_LT((there * (p + far)).distance(truth * p), 1e-4) << order;
  }
}

TEST(PolynomialFit, LeavesResidualsThatNoTermCouldReduce) {
  Source source;
  const Points from = source.points(400), to = source.points(400);
  const Poly fit(from, to, 4);
  std::vector<Point> products(Poly::size(4));
  for (std::size_t i = 0; i < from.size(); ++i) {
    for (std::size_t k = 0; k < products.size(); ++k) {
      std::vector<double> term(products.size());
      term[k] = 1;
      const Poly basis(4, term, term, fit.origin(), fit.scale());
      products[k] += (basis * from[i]).x() * (to[i] - fit * from[i]);
    }
  }
  for (const Point& product : products) EXPECT_LT(product.len(), 1e-8);
}

TEST(PolynomialFit, RefusesWhatDeterminesNoPolynomial) {
  Source source;
  const Points good = source.points(60);
  Points circle;
  for (int i = 0; i < 60; ++i) circle.emplace_back(100 + 50 * std::cos(i), 80 + 50 * std::sin(i));
  EXPECT_THROW(Poly(circle, good, 2), NumericalError);
  const Points many = mapped(source.points(300000), [](const Point& p) { return Point(p.x(), 0.3 * p.x() + 7); });
  EXPECT_THROW(Poly(many, many, 1), NumericalError);  // rounding errors grow with the number of points
  EXPECT_THROW(Perspective(many, many), NumericalError);
  EXPECT_THROW(Poly(Points(60, Point(1, 2)), good, 1), BadParams);
  EXPECT_THROW(Poly(good, Points(59), 1), BadParams);
  EXPECT_THROW(Poly(good, Points(60, Point(0, kNaN)), 1), BadParams);
  for (const int order : {-1, 0, 10, std::numeric_limits<int>::max()}) {
    EXPECT_THROW(Poly(good, good, order), BadParams);
    EXPECT_THROW(Poly{order}, BadParams);
  }
  for (const auto& [count, order] : {std::pair{3, 1}, {5, 1}, {6, 2}, {54, 8}, {55, 9}, {60, 9}}) {
    Points points(good.begin(), good.begin() + count);
    points.insert(points.end(), points.begin(), points.end());  // twice the same says no more
    EXPECT_TRUE(Poly::maxOrder(points) == order && Poly::minOrder(points) == 1);
    EXPECT_NO_THROW(Poly(points, points, order));
    EXPECT_THROW(Poly(points, points, order + 1), BadParams);
  }
  EXPECT_THROW(Poly::minOrder({}), BadParams);
  const std::vector<double> three = {0, 1, 0};
  EXPECT_THROW(Poly(2, three, three), BadParams);
  EXPECT_THROW(Poly(1, three, {0, kNaN, 1}), BadParams);
  EXPECT_THROW(Poly(1, three, three, Point(), Point(1, 0)), BadParams);
}

TEST(Polynomial, IsLinearWithoutHigherTermsAndAbsorbsALinearTransformOnItsLeft) {
  Source source;
  const Linear linear(qcMatrix<2>(0.5, 0.2, 0, 0.3), Point(3, 4));
  const Poly line(1, {1, 2, 0}, {5, 0, 4}, Point(1, 1), Point(2, 1)), bent = source.poly(3, 50);
  EXPECT_TRUE(line.isLinear() && Poly(7).isLinear() && Inverse(line).isLinear() && !bent.isLinear());
  EXPECT_EQ(Inverse(line).linearXform(Point(kNaN, 0)), Linear(qcMatrix<2>(0.25, 0, 0, 0.25), Point(0.75, -0.25)));
  EXPECT_TRUE(dynamic_cast<Poly*>((linear * static_cast<const qc2XformBase&>(bent)).rep()));
  EXPECT_TRUE(dynamic_cast<Linear*>((linear * static_cast<const qc2XformBase&>(line)).rep()));
  EXPECT_TRUE(dynamic_cast<qc2XformComposed*>((bent * static_cast<const qc2XformBase&>(linear)).rep()));
  EXPECT_THROW(bent * Point(1e200, 0), NumericalError);
  EXPECT_THROW(bent.linearXform(Point(kNaN, 0)), NumericalError);
}

// The spline by the equations of the textbook, in source units and extended precision.
Points splineOfTheTextbook(const Deform& spline, const Points& probes) {
  const Points from = spline.from(), to = spline.to();
  const std::size_t n = from.size();
  const auto kernel = [](const Point& a, const Point& b) {
    const double r = a.distance(b);
    return r == 0 ? 0 : r * r * std::log(r);
  };
  qcNMMatrix equations(n + 3, n + 3), right(n + 3, 2);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j)
      equations.element(i, j, i == j ? spline.smoothness() : kernel(from[i], from[j]));
    const double affine[3] = {1, from[i].x(), from[i].y()};
    for (std::size_t k = 0; k < 3; ++k) {
      equations.element(i, n + k, affine[k]);
      equations.element(n + k, i, affine[k]);
    }
    right.element(i, 0, to[i].x());
    right.element(i, 1, to[i].y());
  }
  double condition = 0;
  const qcNMMatrix w = qcNMMatrix::solve(equations, right, true, condition, 1e18);
  return mapped(probes, [&](const Point& p) {
    const auto weight = [&](std::size_t i) { return Point(w.element(i, 0), w.element(i, 1)); };
    Point sum = weight(n) + weight(n + 1) * p.x() + weight(n + 2) * p.y();
    for (std::size_t i = 0; i < n; ++i) sum += weight(i) * kernel(p, from[i]);
    return sum;
  });
}

const Points kCross = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};

TEST(Deformation, IsTheThinPlateSpline) {
  Source source;
  const Points probes = source.points(40, 400);
  for (const double smoothness : {0., 100., 1e5}) {
    const Deform spline = source.deform(50, smoothness);
    const Points expected = splineOfTheTextbook(spline, probes), from = spline.from(), to = spline.to();
    for (std::size_t i = 0; i < probes.size(); ++i) EXPECT_LT((spline * probes[i]).distance(expected[i]), 1e-8);
    if (smoothness == 0) {
      for (std::size_t i = 0; i < from.size(); ++i) EXPECT_LT((spline * from[i]).distance(to[i]), 1e-10);
    }
    const Point far(1e5, -3e5);
    const Deform away(mapped(from, [&](const Point& p) { return p + far; }), to, smoothness);
    for (const Point& p : probes) EXPECT_LT((away * (p + far)).distance(spline * p), 1e-7);
    for (const double most : {1e100, kMax}) {  // nothing is left to bend
      EXPECT_LT(distance(Deform(from, to, most), Poly(from, to, 1), probes), 1e-10);
    }
  }
}

TEST(Deformation, TakesInMoreCorrespondences) {
  Source source;
  const Deform whole = source.deform(30, 7);
  Points from = whole.from(), to = whole.to();
  const Points probes = source.points(20, 400);
  Deform grown(Points(from.begin(), from.begin() + 9), Points(to.begin(), to.begin() + 9), 7), fresh;
  EXPECT_TRUE(fresh.isLinear() && fresh * Point(3, 4) == Point(3, 4));
  grown.update(Points(from.begin() + 5, from.end()), Points(to.begin() + 5, to.end()));  // four of them again
  fresh.update(from, to);
  EXPECT_LT(distance(fresh, Deform(from, to), probes), 1e-12);
  EXPECT_THROW(grown.update({from[3]}, {Point(1, 1)}), qc2XformDeformDefs::BadParams);
  EXPECT_EQ(distance(grown, whole, probes), 0);
  const Deform affine({{0, 0}, {1, 0}, {0, 1}}, {{5, 5}, {7, 5}, {5, 8}});
  EXPECT_TRUE(affine.isLinear());
  EXPECT_NEAR((affine * Point(1e200, 0)).x(), 2e200, 1e187);
}

TEST(Deformation, RefusesWhatDeterminesNoMap) {
  const Points line = {{0, 0}, {0.1, 0.3}, {0.2, 0.6}, {1e3, 3e3}};
  const Points wild = {{0, 0}, {1, 1}, {2, INFINITY}, {3, 3}}, three(3), same = {{0, 0}, {1, 0}, {0, 1}, {0, 1}}, none;
  const std::tuple<const Points&, const Points&, double> table[] = {
      {line, kCross, 0}, {kCross, line, -1}, {kCross, line, kNaN}, {kCross, line, INFINITY},
      {kCross, wild, 0}, {kCross, three, 0}, {same, kCross, 1e3},  {none, none, 0}};
  for (const auto& [from, to, smoothness] : table)
    EXPECT_THROW(Deform(from, to, smoothness), qc2XformDeformDefs::BadParams) << to.size() << ' ' << smoothness;
  EXPECT_NO_THROW(Deform(kCross, line));  // destinations may be anywhere
  // Too close for weights, unless smoothness does without.
  const Points close = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {1, 1 + 1e-12}};
  EXPECT_THROW(Deform(close, {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {2, 2}}), NumericalError);
  EXPECT_NO_THROW(Deform(close, {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {2, 2}}, 0.1));
  EXPECT_THROW(Deform(kCross, line) * Point(1e200, 0), NumericalError);
}

// However close points come to determining no map, one that is made leads to the destinations.
TEST(Fits, LeadToTheDestinationsOrAreRefused) {
  Source source;
  int made = 0;
  const auto holds = [&](const Points& from, const auto& fit) {
    const Points to = source.points(from.size());
    try {
      const auto map = fit(from, to);
      for (std::size_t i = 0; i < from.size(); ++i) EXPECT_LT((map * from[i]).distance(to[i]), 2e-3);
      ++made;
    } catch (const NumericalError&) {
    }
  };
  for (int round = 0; round < 600; ++round) {
    const Point off(std::pow(10, 2 - round % 14), 0);
    Points pair = source.points(20), line = source.points(4), circle;
    pair[1] = pair[0] + off;
    line[2] = (line[0] + line[1]) / 2 + off;
    for (int i = 0; i < 6; ++i) circle.emplace_back(300, qcRadian(source.real(-3, 3)));
    circle[5] += off;
    holds(pair, [](const Points& from, const Points& to) { return Deform(from, to); });
    holds(line, [](const Points& from, const Points& to) { return Perspective(from, to); });
    holds(circle, [](const Points& from, const Points& to) { return Poly(from, to, 2); });
  }
  EXPECT_GT(made, 600);
}

TEST(Inverse, SaysWhereThereIsNone) {
  const Poly fold(2, {0, 1, 0, 1, 0, 0}, {0, 0, 1, 0, 0, 0});  // (x + x^2, y): nothing comes below -1/4
  const Inverse inverse(fold);
  EXPECT_LT((inverse * Point(-0.2499999, 5)).distance(Point(-0.5 + std::sqrt(1e-7), 5)), 1e-9);
  EXPECT_THROW(inverse * Point(-0.26, 5), NumericalError);
  EXPECT_LT((inverse * Point(-0.25, 5)).distance(Point(-0.5, 5)), 1e-6);
  // No inverse at all, one only by rounding errors, and two beyond the range of double.
  EXPECT_THROW(Poly(1, {0, 1, 0}, {0, 1, 0}).inverseBase(), NumericalError);
  for (const double factor : {0.1, 0.7, 1. / 3, 1e-3})
    EXPECT_THROW(Poly(1, {0, 0.1, 0.3}, {0, 0.1 * factor, 0.3 * factor}).inverseBase(), NumericalError) << factor;
  for (const double scale : {1e-160, 1e160})
    EXPECT_THROW(Poly(1, {0, scale, 0}, {0, 0, scale}).inverseBase(), NumericalError);
  // Large and small units, far from the origin: as good as the coordinates.
  for (const double unit : {1e-12, 1e-3, 1e6, 1e12}) {
    const Point at(300 * unit, -500 * unit);
    const Poly bent(2, {3, 1, 0.1, 0.2, 0, 0.1}, {4, 0, 1, 0.1, 0.1, 0.1}, at, Point(1 / unit, 1 / unit));
    const Point p = at + Point(0.4, -0.7) * unit;
    EXPECT_LT((Inverse(bent) * (bent * p)).distance(p), 1e-12 * unit);
  }
}

TEST(Inverse, UndoesALensFromCornerToCorner) {
  // A stage of 100 millimetres in nanometres and the 4000 pixels that see it, both with their zero in a corner. The
  // other corners move inwards by a fifth of their distance.
  Points stage, pixels;
  for (int i = 0; i < 81; ++i) {
    const Point p(i % 9 / 8. - 0.5, i / 9 / 8. - 0.5);
    stage.push_back((p + Point(0.5, 0.5)) * 1e8);
    pixels.push_back(p * (4000 - 1600 * p.len() * p.len()) + Point(1600, 1600));
  }
  const Poly poly(stage, pixels, 3), back(pixels, stage, 7);
  const Deform deform(stage, pixels);
  Points probes = Source().points(500, 10);
  probes.insert(probes.end(), stage.begin(), stage.end());
  for (const Point& p : probes) {
    EXPECT_LT((poly.invMapPoint(poly * p)).distance(p), 1e-6);
    EXPECT_LT((deform.invMapPoint(deform * p)).distance(p), 1e-6);
  }
  for (const Point& p : pixels) EXPECT_LT((back.invMapPoint(back * p)).distance(p), 1e-10);
}

// One of each class, whose inverse is within reach over 100 pixels around the origin.
std::vector<Handle> family(Source& source) {
  std::vector<Handle> all;
  all.emplace_back(new Perspective(source.matrix()));
  all.emplace_back(new Poly(source.poly(source.integer(2, 9), 90)));
  all.emplace_back(new Deform(source.deform(15)));
  for (std::size_t i = 0, kinds = all.size(); i < kinds; ++i) all.push_back(all[i]->inverseBase());
  return all;
}

TEST(Family, LawsHoldForEveryClass) {
  Source source;
  for (int round = 0; round < 100; ++round) {
    for (const Handle& xform : family(source)) {
      const qc2XformBase& object = *xform;
      SCOPED_TRACE(typeid(object).name());
      const Handle other(new Linear(qcMatrix<2>(0.8, 0.1, -0.1, 0.7), source.point(9))), inverse = xform->inverseBase();
      const Point p = source.point(100), image = *xform * p;
      EXPECT_LT((*inverse * image).distance(p), 1e-10);
      EXPECT_LT((*inverse->inverseBase() * p).distance(image), 1e-10);
      EXPECT_LT((*(*xform * *other) * p).distance(*xform * (*other * p)), 1e-10);
      EXPECT_LT((*(*other * *xform) * p).distance(*other * image), 1e-10);
      EXPECT_TRUE(*xform->clone() * p == image && xform->clone() != xform);
      EXPECT_FALSE(xform->isLinear());
      const Linear form = xform->linearXform(p);
      EXPECT_LT((form * p).distance(image), 1e-10);
      for (const Point& e : {Point(1e-3, 0), Point(0, 1e-3)})
        EXPECT_LT(form.mapVector(e).distance((*xform * (p + e) - *xform * (p - e)) / 2), 1e-9);
    }
  }
}

// (x^2, y) by somebody else, which has no derivatives beyond x = 1.
class Square : public qc2XformBase {
 public:
  Point mapPoint(const Point& p) const override { return {p.x() * p.x(), p.y()}; }
  bool isLinear() const override { return false; }
  Linear linearXform(const Point& p) const override { return {{p.x() > 1 ? kNaN : 2 * p.x(), 0, 0, 1}, {}}; }
};

TEST(Family, BoundsOfOthersBendingMissNoPointWithoutDerivative) {
  const Square square;
  for (const double reach : {0.01, 0.4})
    EXPECT_NEAR(square.bendBound(Point(0.5, 3), Point(reach, 0)), 4 * reach, 1e-12);
  EXPECT_EQ(square.bendBound(Point(0.5, 3), Point(0.6, 0)), INFINITY);
}

TEST(Family, ArraysMapBitForBitLikePoints) {
  Source source;
  const Linear linear(qcMatrix<2>(0.8, 0.1, -0.1, 0.7), source.point(9));
  std::vector<Handle> others = family(source);
  others.insert(others.end(), {linear * *others[0], linear * *others[2], Handle(new qc2XformComposed)});
  for (const std::size_t count : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 300u, 2500u}) {
    const Points in = source.points(count, 100);
    const auto check = [&](const qc2XformBase& xform, const auto& map) {
      Points out = in, inPlace = in;
      map(in.data(), out.data());
      map(inPlace.data(), inPlace.data());
      EXPECT_EQ(out, inPlace);
      EXPECT_EQ(out, mapped(in, [&](const Point& p) { return xform * p; }));
    };
    for (const auto mapper : vnxstd::pointMappers())
      check(linear, [&](auto* from, auto* to) { mapper(linear, from, to, count); });
    for (const int level : {0, 1}) {
      if (zrtnlxf::useLevel(level) != level) continue;
      for (const Handle& xform : others)
        check(*xform, [&](auto* from, auto* to) { xform->mapPoints(from, to, count); });
    }
  }
  zrtnlxf::useLevel(1);
}

// A parameter of its type as a test holds it.
template <class T>
using Held = std::conditional_t<std::is_pointer_v<T>, std::remove_const_t<std::remove_pointer_t<T>>*, T>;

// Calls functions with each of their pointers null, one at a time; the other arguments are the given ones of their
// type.
template <class... Parameters>
void expectNullsRefused(const auto& given, zrtnlxf::Status code, zrtnlxf::Status (*function)(Parameters...) noexcept) {
  std::tuple<Parameters...> arguments{std::get<Held<Parameters>>(given)...};
  const auto refuses = [&](auto& argument) {
    if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(argument)>>) {
      const auto kept = std::exchange(argument, nullptr);
      EXPECT_EQ(std::apply(function, arguments), code) << typeid(function).name();
      argument = kept;
    }
  };
  std::apply([&](auto&... all) { (refuses(all), ...); }, arguments);
}

TEST(Status, NullPointersAreRefusedByEveryFunction) {
  using zrtnlxf::badArgument, zrtnlxf::badDeformArgument;
  double in[8] = {0, 0, 1, 0, 1, 1, 0, 1};
  const double coefs[6] = {0, 1, 0, 0, 0, 1};
  qmath_vect v{1, 2};
  qmath_matrix m;
  qmath_xformLinear linear;
  qmath_xformPoly poly{1, {0, 0}, {1, 1}, coefs};
  qmath_xformDeformParts parts{0, {0, 0}, 1, {0, 1, 0, 0, 0, 1}, in, in, in, 4};
  qmath_xformPerspective *p = nullptr, *none = nullptr;
  const qmath_xformPerspective* held = nullptr;
  qmath_xformPtrhConst *handle = nullptr, *noHandle = nullptr;
  qmath_xformDeform *d = nullptr, *noDeform = nullptr;
  ASSERT_EQ(qmath_xformPerspective_construct(&p), zrtnlxf::ok);
  ASSERT_EQ(qmath_xformPtrhConst_constructPerspective(p, &handle), zrtnlxf::ok);
  ASSERT_EQ(qmath_xformDeform_construct(&d), zrtnlxf::ok);
  const std::tuple given(in + 0, std::size_t{4}, std::int32_t{1}, 1.0, &v, &m, &linear, &poly, &parts, p, &none, &held,
                         handle, &noHandle, d, &noDeform);
  const auto refuse = [&given](zrtnlxf::Status code, auto*... functions) {
    (expectNullsRefused(given, code, functions), ...);
  };
  refuse(badArgument, qmath_xformPerspective_construct, qmath_xformPerspective_construct4Points,
         qmath_xformPerspective_constructPoints, qmath_xformPerspective_constructCopy, qmath_xformPerspective_assign,
         qmath_xformPerspective_setMatrix, qmath_xformPerspective_getMatrix, qmath_xformPerspective_mapPoint,
         qmath_xformPerspective_mapPoints, qmath_xformPerspective_getIsLinear, qmath_xformPerspective_getIsSingular,
         qmath_xformPerspective_getLinearXform, qmath_xformPerspective_getInverse, qmath_xformPerspective_getBend,
         qmath_xformPtrhConst_construct, qmath_xformPtrhConst_constructPerspective,
         qmath_xformPtrhConst_getIsPerspective, qmath_xformPtrhConst_getPerspective, qmath_xformPolyInitIdentityArray_,
         qmath_xformPolyMinOrder_, qmath_xformPolyMaxOrder_, qmath_xformPolyFit_, qmath_xformPolyMapPoint_,
         qmath_xformPolyMapPoints_, qmath_xformPolyIsLinear_, qmath_xformPolyDerivs_, qmath_xformPolyLinearXform_,
         qmath_xformPolyInvMapPoint_, qmath_xformPolyBend_);
  refuse(badDeformArgument, qmath_xformDeform_construct, qmath_xformDeform_constructPoints,
         qmath_xformDeform_constructParts, qmath_xformDeform_constructCopy, qmath_xformDeform_update,
         qmath_xformDeform_getSmoothness, qmath_xformDeform_getParts, qmath_xformDeform_mapPoint,
         qmath_xformDeform_mapPoints, qmath_xformDeform_getIsLinear, qmath_xformDeform_getLinearXform,
         qmath_xformDeform_getInverse, qmath_xformDeform_getBend);
  const qmath_xformPoly unknown{0, {0, 0}, {1, 1}, coefs}, empty{1, {0, 0}, {1, 1}, nullptr};
  for (const qmath_xformPoly* bad : {&unknown, &empty}) EXPECT_EQ(qmath_xformPolyIsLinear_(bad), badArgument);
  for (const double** array : {&parts.from, &parts.to, &parts.weights}) {
    const double* const kept = std::exchange(*array, nullptr);
    EXPECT_EQ(qmath_xformDeform_constructParts(&parts, &noDeform), badDeformArgument);
    *array = kept;
  }
  EXPECT_FALSE(none || noHandle || noDeform || held);
  // A handle keeps a perspective of its own, or has none.
  qmath_xformPerspective_destruct(p);
  ASSERT_EQ(qmath_xformPtrhConst_getPerspective(handle, &held), zrtnlxf::ok);
  EXPECT_EQ(Perspective(*held), Perspective());
  ASSERT_EQ(qmath_xformPtrhConst_construct(&noHandle), zrtnlxf::ok);
  EXPECT_EQ(qmath_xformPtrhConst_getPerspective(noHandle, &held), badArgument);
  qmath_xformPtrhConst_destruct(noHandle);
  qmath_xformPtrhConst_destruct(handle);
  qmath_xformDeform_destruct(d);
}

TEST(Status, CodesAreErrorsWithTheseNumbers) {
  const std::pair<std::uint32_t, std::uint32_t> table[] = {
      {0x80000B62, 0x10003D00}, {0x80000B63, 0x10003E00}, {0x80000B64, 0x10003D01}, {0x80000B65, 0x10003D01},
      {0x80000B66, 0x10003D01}, {0x80000B67, 0x10003D01}, {0x80000B68, 0x10000004}};
  std::set<std::wstring> texts;
  for (const auto& [code, number] : table) {
    try {
      qfThrowExceptionOnFailure(static_cast<std::int32_t>(code));
      ADD_FAILURE() << code;
    } catch (const qcException& error) {
      EXPECT_EQ(static_cast<std::uint32_t>(error.errorNumber()), number) << code;
      texts.insert(error.message(true));
    }
  }
  EXPECT_EQ(texts.size(), std::size(table));  // people tell them apart
  EXPECT_THROW(qfThrowExceptionOnFailure(static_cast<std::int32_t>(0x80000B61)), std::bad_alloc);
}

// An inverse holds a polynomial or a deformation, and nothing through which it could hold itself.
TEST(Archive, InversesHoldWhatTheyCanUndo) {
  Source source;
  const Handle inverse(new Inverse(source.poly(3, 50)));
  Handle loaded = inverse;
  const std::string three(3, '\0'), back = record(1, 0);
  const std::string linear =
      newObject(2, "qc2XformLinear", stored(kBig, false, Linear(qcMatrix<2>(), Point(5, 0))).substr(4));
  const std::string chain = newObject(2, "qc2XformComposed", three + std::string({0, 0, 0, 0, 1}) + back);
  for (const std::string& forward :
       {record(0, 0), back, linear, chain, newObject(2, "qc2XformInverse", three + back)}) {
    EXPECT_THROW(load(headOf(kBig) + newObject(1, "qc2XformInverse", three + forward), loaded), qcArchive::BadContent);
  }
  EXPECT_EQ(loaded, inverse);
}

}  // namespace
