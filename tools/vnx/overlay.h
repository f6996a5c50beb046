// Draws what was found over its image.
#pragma once

#include "blobs.h"
#include "gauge.h"

/// The image in grey, enlarged so that single pixels can be seen, with the region (blue), the scan lines (dim), the
/// edge points (green where they carry the fit, red where not) and the fitted shape (yellow).
qcPelBuffer<qcPackedRGB32Pel> drawOverlay(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans);

/// A page as SVG: a heading with the result and the source, the image with the region, the scan lines, the edge points
/// coloured by residual and the fitted shape, a scale bar, a legend, and the residuals along the scans. The measurement
/// must have an image and a shape; an image without a PNG file (hasPng) is left out, which the heading says.
std::string overlaySvg(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans,
                       const std::string& source);

/// The image in the same way as the first, with the borders of the regions, those of holes too (yellow), and their
/// centroids (green).
qcPelBuffer<qcPackedRGB32Pel> drawBlobs(const qcPelBuffer<unsigned char>& image, const Blobs& blobs);
