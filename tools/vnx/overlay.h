// Draws what was found over its image.
#pragma once

#include "blobs.h"
#include "gauge.h"

/// The image in grey, enlarged so that single pixels can be seen, with the region (blue), the scan lines (dim), the
/// edge points (green where they carry the fit, red where not) and the fitted shape (yellow).
qcPelBuffer<qcPackedRGB32Pel> drawOverlay(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans);

/// The image in the same way, with the borders of the regions, those of holes too (yellow), and their centroids
/// (green).
qcPelBuffer<qcPackedRGB32Pel> drawBlobs(const qcPelBuffer<unsigned char>& image, const Blobs& blobs);
