#include "vnxstd/shapes/ellipsearc.h"

#include <cmath>
#include <type_traits>

#include "std/archive/found.h"
#include "std/shapes/ellipsecurve.h"
#include "vnxstd/archive/archive.h"

namespace {

const qc_Instantiator registered(typeid(qcEllipseArc), &qcEllipseArc::make);
const qc_Instantiator registered2(typeid(qcEllipseArc2), &qcEllipseArc2::make);

// What readers call themselves.
template <class Arc>
constexpr int kLine = std::is_same_v<Arc, qcEllipseArc2> ? 2204 : 871;

bool isSpan(const qcRadian& start, const qcRadian& end) {
  return std::isfinite(start.plain()) && std::fabs((end - start).plain()) <= qcRadian::turn * (1 + 1e-12);
}

}  // namespace

template <class Arc, class Ellipse>
qc_EllipseArcOf<Arc, Ellipse>::qc_EllipseArcOf(const Ellipse& ellipse, const qcRadian& phiStart,
                                               const qcRadian& phiSpan)
    : ellipse_(ellipse), start_(phiStart.signedNorm()), end_(start_ + phiSpan) {
  if (!isSpan(start_, end_)) throw qcShapesError::BadParams();
}

template <class Arc, class Ellipse>
Arc qc_EllipseArcOf<Arc, Ellipse>::between(const Ellipse& ellipse, const qcRadian& phiStart, const qcRadian& phiEnd) {
  if (!isSpan(phiStart, phiEnd)) throw qcShapesError::BadParams();
  Arc arc(ellipse, qcRadian(0), qcRadian(0));
  arc.start_ = phiStart;
  arc.end_ = phiEnd;
  return arc;
}

template <class Arc, class Ellipse>
qcPtrHandle<qcShape> qc_EllipseArcOf<Arc, Ellipse>::clone() const {
  return new Arc(self());
}

template <class Arc, class Ellipse>
bool qc_EllipseArcOf<Arc, Ellipse>::isRegion() const {
  return false;
}

template <class Arc, class Ellipse>
bool qc_EllipseArcOf<Arc, Ellipse>::isReversible() const {
  return true;
}

template <class Arc, class Ellipse>
qcPtrHandle<qcShape> qc_EllipseArcOf<Arc, Ellipse>::reverse() const {
  return new Arc(between(ellipse_, end_, start_));
}

// Without the exact turn, rounding would open an arc that runs once round when it is moved along its ellipse often.
template <class Arc, class Ellipse>
qcRadian qc_EllipseArcOf<Arc, Ellipse>::phiSpan() const {
  const qcRadian span = end_ - start_;
  return curve_().isFull() ? qcRadian(std::copysign(qcRadian::turn, span.plain())) : span;
}

template <class Arc, class Ellipse>
void qc_EllipseArcOf<Arc, Ellipse>::ellipse(const Ellipse& ellipse) {
  this->mutating();
  ellipse_ = ellipse;
}

template <class Arc, class Ellipse>
void qc_EllipseArcOf<Arc, Ellipse>::phiStart(const qcRadian& phiStart) {
  *this = Arc(ellipse_, phiStart, phiSpan());
}

template <class Arc, class Ellipse>
void qc_EllipseArcOf<Arc, Ellipse>::phiSpan(const qcRadian& phiSpan) {
  *this = Arc(ellipse_, start_, phiSpan);
}

template <class Arc, class Ellipse>
bool qc_EllipseArcOf<Arc, Ellipse>::equal_(const qcShape& that) const {
  return this->equalAs(self(), that);
}

template <class Arc, class Ellipse>
void qc_EllipseArcOf<Arc, Ellipse>::dispatchSerialize(qcArchive& archive) {
  this->template serializeLevel<Arc>(archive, static_cast<Arc*>(this), 0, &qc_EllipseArcOf::serialize_);
}

template <class Arc, class Ellipse>
void qc_EllipseArcOf<Arc, Ellipse>::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/ellipse", kLine<Arc>);
  qcShape::dispatchSerialize(archive);
  if (archive.isStoring()) {
    archive || ellipse_ || start_ || end_;
    return;
  }
  Ellipse ellipse;
  qcRadian start, end;
  archive || ellipse || start || end;
  if (!isSpan(start, end)) {
    throw archive.located(qcArchive::BadContent("std/shapes/ellipse", kLine<Arc>), "a span of angles",
                          qf_Found(start.plain(), end.plain()));
  }
  ellipse_ = ellipse;
  start_ = start;
  end_ = end;
}

template <class Arc, class Ellipse>
qc_shapes::EllipseCurve qc_EllipseArcOf<Arc, Ellipse>::curve_() const {
  return ellipse_.arcCurve(start_.plain(), end_.plain());
}

template class qc_EllipseArcOf<qcEllipseArc, qcEllipse>;
template class qc_EllipseArcOf<qcEllipseArc2, qcEllipse2>;

qcEllipseArc qcEllipseArc::map(const qcXform<2>& xform) const {
  return qcEllipseArc2(*this).map(xform).oldEllipseArc();
}

qcPtrHandle<qcShape> qcEllipseArc::mapShape(const qcXform<2>& xform) const {
  return qcEllipseArc2(*this).mapShape(xform);
}

qcPtrHandle<qcShape> qcEllipseArc::decompose() const { return new qcEllipseArc2(*this); }

qcEllipseArc2::qcEllipseArc2(const qcEllipseArc& arc)
    : qcEllipseArc2(between(arc.ellipse(), arc.phiStart(), arc.phiEnd())) {}

qcEllipseArc qcEllipseArc2::oldEllipseArc() const {
  const double sense = ellipse().isRightHanded() ? 1 : -1;
  return qcEllipseArc::between(ellipse().oldEllipse(), sense * (phiStart() + ellipse().phase()),
                               sense * (phiEnd() + ellipse().phase()));
}
