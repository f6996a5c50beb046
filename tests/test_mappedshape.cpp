// Shapes seen through transforms of any kind, and what these tell about how much they bend.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "vnxstd/math/xfcomp.h"
#include "vnxstd/math/xfdeform.h"
#include "vnxstd/math/xfinverse.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/math/xfpoly.h"

namespace {

using Xform = qcPtrHandle_const<qc2XformBase>;

struct NamedXform {
  std::string name;
  Xform xform;
};

// Some of every class, all one to one over [-10, 10] x [-10, 10]. The deformation has a steep bump of width 0.1 at
// (3, 2), between the points of any coarse grid; the polynomials are of all curved orders.
std::vector<NamedXform> transforms() {
  std::mt19937 engine(7);
  std::uniform_real_distribution<double> unit(-1, 1);
  std::vector<NamedXform> all;
  const auto add = [&](const std::string& name, Xform xform) { all.push_back({name, std::move(xform)}); };
  add("perspective", new qc2XformPerspective(qcMatrix<3>(1.1, 0.1, 3, -0.2, 0.9, 4, 0.02, -0.03, 1)));
  for (int order = 2; order <= 9; ++order) {
    std::vector<double> x(qc2XformPoly::size(order)), y(x.size());
    for (std::size_t i = 3; i < x.size(); ++i) {
      x[i] = 0.5 / order * unit(engine);
      y[i] = 0.5 / order * unit(engine);
    }
    x[0] = 2, x[1] = 10, x[2] = 3, y[1] = -2, y[2] = 12;
    add("polynomial " + std::to_string(order), new qc2XformPoly(order, x, y, {0.5, -1}, {0.1, 0.08}));
  }
  std::vector<qcVector<2>> from, to;
  for (int i = -2; i <= 2; ++i) {
    for (int j = -2; j <= 2; ++j) from.emplace_back(5.0 * i, 5.0 * j);
  }
  for (const qcVector<2>& p : from) to.push_back(p + qcVector<2>(0.5 * unit(engine), 0.5 * unit(engine)));
  for (const double d : {-0.1, 0.0, 0.1}) {
    from.emplace_back(3 + d, 2);
    to.emplace_back(3 + d, d == 0 ? 2.02 : 2.0);
  }
  const qc2XformDeform deform(from, to);
  add("deformation", new qc2XformDeform(deform));
  add("inverse deformation", deform.inverseBase());
  add("inverse polynomial", all[2].xform->inverseBase());
  add("composition", new qc2XformComposed(*all[0].xform, deform, true, true));
  add("composition with the rest",
      new qc2XformComposed(qc2XformLinear(qcMatrix<2>(0, 2, -1, 0.5), {1, 1}), *all[1].xform, true, true));
  return all;
}

double norm(const qcMatrix<2>& m) {
  double largest = 0;
  for (int i = 0; i < 72; ++i) largest = std::max(largest, (m * qcVector<2>(1, qcRadian(i * 0.0873))).len());
  return largest;
}

// The bound is above all differences that are found, and for short reaches not far above.
TEST(BendBound, HoldsAndIsNotLoose) {
  std::mt19937 engine(11);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const NamedXform& named : transforms()) {
    SCOPED_TRACE(named.name);
    int finite = 0;
    for (const double reach : {1e-4, 0.01, 0.3, 3.0}) {
      for (int trial = 0; trial < 20; ++trial) {
        const qcVector<2> center(8 * unit(engine), 8 * unit(engine)), along(reach, qcRadian(3 * unit(engine)));
        const qcMatrix<2> middle = named.xform->linearXform(center).matrix();
        const double bound = named.xform->bendBound(center, along);
        if (std::isinf(bound)) continue;
        ++finite;
        double largest = 0;
        for (int i = 0; i < 200; ++i) {
          const qcVector<2> at = center + qcVector<2>(reach * std::sqrt(0.5 + 0.5 * unit(engine)), qcRadian(i * 0.1));
          largest = std::max(largest, norm(named.xform->linearXform(at).matrix() - middle));
        }
        EXPECT_GE(bound, largest * 0.9999 - 1e-12);
        if (reach <= 0.01) {
          EXPECT_LE(bound, 12 * largest + 1e-9) << reach;
        }
      }
    }
    EXPECT_GE(finite, 40);
  }
}

}  // namespace
