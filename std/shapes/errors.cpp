#include "vnxstd/shapes/errors.h"

namespace {

const qc_ErrorRegistration<qcShapesError::Errors, qcShapesError::DegenerateShape, qcShapesError::LinesParallel,
                           qcShapesError::BadRadius, qcShapesError::NotConcentric, qcShapesError::BadCoef,
                           qcShapesError::BadGeom, qcShapesError::BadUnit, qcShapesError::BadIndex,
                           qcShapesError::BadParams, qcShapesError::InfiniteExtent, qcShapesError::NotOpenContour,
                           qcShapesError::NotRegion, qcShapesError::SampleOverflow, qcShapesError::NoTangent,
                           qcShapesError::EmptyShape, qcShapesError::NotReversible, qcShapesError::NonpositiveWeight,
                           qcShapesError::CoincidentShapePoints, qcShapesError::NotImplemented>
    registered;

}  // namespace
