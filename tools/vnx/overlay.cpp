#include "overlay.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr qcPackedRGB32Pel kRegion(80, 140, 255, 255), kScan(70, 110, 110, 255), kUsed(0, 230, 60, 255),
    kRejected(255, 50, 40, 255), kShape(255, 220, 0, 255);

constexpr double kLargeEnough = 1200;  // pixels; smaller images are enlarged towards this width or height
constexpr int kLargestZoom = 4;

/// An enlarged copy of an image to draw on, in the coordinates of the image plane.
class Canvas {
 public:
  explicit Canvas(const qcPelBuffer_const<unsigned char>& image)
      : zoom_(std::clamp(
            static_cast<int>(std::ceil(kLargeEnough / static_cast<double>(std::max(image.width(), image.height())))), 1,
            kLargestZoom)),
        corner_(static_cast<double>(image.offset().x()), static_cast<double>(image.offset().y())),
        pels_(image.width() * zoom_, image.height() * zoom_) {
    for (long y = 0; y < pels_.height(); ++y) {
      const unsigned char* from = image.pointToRow(image.offset().y() + y / zoom_);
      qcPackedRGB32Pel* to = pels_.pointToRow(y);
      for (long x = 0; x < pels_.width(); ++x) {
        const unsigned char grey = from[x / zoom_];
        to[x] = qcPackedRGB32Pel(grey, grey, grey, 255);
      }
    }
  }

  /// A segment, its edges smoothed over one pixel.
  void segment(const qcVector<2>& from, const qcVector<2>& to, const qcPackedRGB32Pel& colour) {
    const qcVector<2> a = onCanvas(from), b = onCanvas(to);
    const double length = a.distance(b);
    const auto steps = static_cast<long>(std::ceil(length));
    for (long i = 0; i <= steps; ++i) {
      const qcVector<2> p = a + (b - a) * (steps == 0 ? 0.0 : static_cast<double>(i) / static_cast<double>(steps));
      dot(p, colour);
    }
  }

  void cross(const qcVector<2>& at, const qcPackedRGB32Pel& colour) {
    const double arm = 2.5 / zoom_;
    segment(at - qcVector<2>(arm, arm), at + qcVector<2>(arm, arm), colour);
    segment(at - qcVector<2>(arm, -arm), at + qcVector<2>(arm, -arm), colour);
  }

  const qcPelBuffer<qcPackedRGB32Pel>& pels() const { return pels_; }

 private:
  qcVector<2> onCanvas(const qcVector<2>& p) const { return (p - corner_) * static_cast<double>(zoom_); }

  // Spreads the dot over the four pels around it.
  void dot(const qcVector<2>& p, const qcPackedRGB32Pel& colour) {
    const double x = p.x() - 0.5, y = p.y() - 0.5;
    if (!(x > -1 && y > -1 && x < static_cast<double>(pels_.width()) && y < static_cast<double>(pels_.height())))
      return;
    const auto left = static_cast<long>(std::floor(x)), top = static_cast<long>(std::floor(y));
    const double fx = x - static_cast<double>(left), fy = y - static_cast<double>(top);
    blend(left, top, colour, (1 - fx) * (1 - fy));
    blend(left + 1, top, colour, fx * (1 - fy));
    blend(left, top + 1, colour, (1 - fx) * fy);
    blend(left + 1, top + 1, colour, fx * fy);
  }

  void blend(long x, long y, const qcPackedRGB32Pel& colour, double share) {
    if (x < 0 || y < 0 || x >= pels_.width() || y >= pels_.height()) return;
    qcPackedRGB32Pel& pel = *pels_.pointToPel(x, y);
    const auto mix = [share](unsigned char below, unsigned char above) {
      return static_cast<unsigned char>(std::lround(below + share * (above - below)));
    };
    pel = qcPackedRGB32Pel(mix(pel.r(), colour.r()), mix(pel.g(), colour.g()), mix(pel.b(), colour.b()), 255);
  }

  int zoom_;
  qcVector<2> corner_;
  qcPelBuffer<qcPackedRGB32Pel> pels_;
};

void drawChains(Canvas& canvas, const std::vector<Chain>& chains, const qcPackedRGB32Pel& colour) {
  for (const Chain& chain : chains)
    for (std::size_t i = 1; i < chain.size(); ++i) canvas.segment(chain[i - 1], chain[i], colour);
}

}  // namespace

qcPelBuffer<qcPackedRGB32Pel> drawOverlay(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans) {
  Canvas canvas(measurement.image);
  for (const ScanLine& scan : scans) canvas.segment(scan.from, scan.to, kScan);
  drawChains(canvas, measurement.region.outlines(), kRegion);
  for (std::size_t i = 0; i < measurement.points.size(); ++i)
    canvas.cross(measurement.points[i], measurement.used[i] ? kUsed : kRejected);
  drawChains(canvas, measurement.shapeInImage(), kShape);
  return canvas.pels();
}

qcPelBuffer<qcPackedRGB32Pel> drawBlobs(const qcPelBuffer<unsigned char>& image, const Blobs& blobs) {
  Canvas canvas(image);
  for (const std::size_t i : blobs.kept) {
    for (const qcPolyline& border : blobs.regions.boundaries(i)) {
      const std::vector<qcVector<2>>& corners = border.vertices();
      for (std::size_t k = 0; k < corners.size(); ++k)
        canvas.segment(corners[k], corners[(k + 1) % corners.size()], kShape);
    }
    canvas.cross(blobs.regions.region(i).centroid, kUsed);
  }
  return canvas.pels();
}
