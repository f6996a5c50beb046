// Draws a measurement over its image.
#pragma once

#include "gauge.h"

/// The image in grey, enlarged so that single pixels can be seen, with the region (blue), the scan lines (dim), the
/// edge points (green where they carry the fit, red where not) and the fitted shape (yellow).
qcPelBuffer<qcPackedRGB32Pel> drawOverlay(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans);
