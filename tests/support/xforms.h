// Transforms that bend, of every class.
#pragma once

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vnxstd/math.h"

using NamedXforms = std::vector<std::pair<std::string, qcPtrHandle_const<qc2XformBase>>>;

/// Some of every class, all one to one over [-10, 10] x [-10, 10]. The deformation has a steep bump of width 0.1 at
/// (3, 2), between the points of any coarse grid; the polynomials are of all curved orders.
inline NamedXforms transforms() {
  std::mt19937 engine(7);
  std::uniform_real_distribution<double> unit(-1, 1);
  NamedXforms all;
  const auto add = [&](const std::string& name, const qcPtrHandle_const<qc2XformBase>& xform) {
    all.emplace_back(name, xform);
  };
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
  for (int i = -2; i <= 2; ++i)
    for (int j = -2; j <= 2; ++j) from.emplace_back(5.0 * i, 5.0 * j);
  for (const qcVector<2>& p : from) to.push_back(p + qcVector<2>(0.5 * unit(engine), 0.5 * unit(engine)));
  for (const double d : {-0.1, 0.0, 0.1}) {
    from.emplace_back(3 + d, 2);
    to.emplace_back(3 + d, d == 0 ? 2.02 : 2.0);
  }
  const qc2XformDeform deform(from, to);
  add("deformation", new qc2XformDeform(deform));
  add("inverse deformation", deform.inverseBase());
  add("inverse polynomial", all[2].second->inverseBase());
  add("composition", new qc2XformComposed(*all[0].second, deform, true, true));
  add("composition with the rest",
      new qc2XformComposed(qc2XformLinear(qcMatrix<2>(0, 2, -1, 0.5), {1, 1}), *all[1].second, true, true));
  return all;
}
