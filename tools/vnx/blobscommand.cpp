#include "blobscommand.h"

#include <cstdio>
#include <iostream>
#include <limits>
#include <numbers>

#include "files.h"
#include "numberoption.h"
#include "overlay.h"
#include "svg.h"
#include "wholefile.h"
#include "wrongcall.h"

namespace {

void print(const Blobs& blobs, bool isDark) {
  std::printf("threshold: %d, %s\nregions: %zu\n", int{blobs.threshold}, isDark ? "below" : "at or above",
              blobs.kept.size());
  std::printf("%6s %10s %10s %10s %8s %8s %7s %7s %8s %10s\n", "number", "area", "x", "y", "left", "top", "width",
              "height", "angle", "elongation");
  long number = 0;
  for (const std::size_t i : blobs.kept) {
    const qcRLERegion& r = blobs.regions.region(i);
    std::printf("%6ld %10lld %10.3f %10.3f %8ld %8ld %7ld %7ld %8.2f %10.3f\n", ++number, r.area, r.centroid.x(),
                r.centroid.y(), r.boundingBox.x0(), r.boundingBox.y0(), r.boundingBox.width(), r.boundingBox.height(),
                r.angle().plain() * 180 / std::numbers::pi, r.elongation());
  }
}

}  // namespace

BlobsCommand::BlobsCommand(CLI::App& app)
    : command_(
          app.add_subcommand("blobs", "Find the regions of a bitmap that are brighter or darker than a threshold")) {
  command_->footer(
      "Pixels that touch at a side or a corner belong to one region. x and y are the mean of its pixels' centres, "
      "left,\n"
      "top, width and height its bounding box, all in pixels; the pixel in column x and row y covers x to x + 1 and y\n"
      "to y + 1, y grows downwards. The angle, in degrees from the x axis towards the y axis, is that in which the\n"
      "region is longest; the elongation is its length by its width, 1 for a disk or a square.");
  command_->add_option("image", image_, "Bitmap file; colours become grey");
  command_->add_option("--threshold", threshold_,
                       "Grey value from 0 to 255 from which pixels are bright, or auto: the one that divides dark from "
                       "bright best, by Otsu's method (auto)");
  command_->add_flag("--dark", isDark_, "Look for the regions below the threshold");
  addNumber(*command_, "--min-area", leastArea_, "Leave out regions of fewer pixels (1)", 1L,
            std::numeric_limits<long>::max());
  command_->add_option("--overlay", overlay_,
                       "Draw over the image, as a bitmap: the borders (yellow) and the centroids (green)");
}

BlobParams BlobsCommand::params() const {
  if (image_.empty()) throw WrongCall("which image?");
  BlobParams params;
  if (threshold_ != "auto") {
    params.threshold = readNumber<unsigned char>(threshold_);
    if (!params.threshold)
      throw WrongCall("--threshold takes a whole number from 0 to 255 or auto, not \"" + threshold_ + '"');
  }
  params.isDark = isDark_;
  params.leastArea = leastArea_;
  return params;
}

bool BlobsCommand::run() const {
  const BlobParams wanted = params();
  requireDistinct("the image and --overlay", {image_, overlay_});
  if (isSvg(overlay_)) throw WrongCall("--overlay draws a bitmap, which \"" + overlay_ + "\" is no name for");
  const auto image = readBitmap(image_);
  const Blobs blobs = findBlobs(image, wanted);
  if (blobs.kept.empty()) {
    std::cerr << "vnx blobs: nothing found: no region of at least " << wanted.leastArea << " pixels "
              << (wanted.isDark ? "below " : "at or above ") << int{blobs.threshold} << '\n';
    return false;
  }
  print(blobs, wanted.isDark);
  if (!overlay_.empty()) writeBitmap(overlay_, drawBlobs(image, blobs));
  return true;
}
