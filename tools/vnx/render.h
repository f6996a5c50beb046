// Draws what an archive holds.
#pragma once

#include <map>
#include <optional>
#include <string>

#include <vnxstd/shapes/shape.h>

#include "files.h"
#include "svg.h"

struct Rendering {
  std::string svg;
  std::map<std::string, int> drawn;    // how many of each class
  std::map<std::string, int> skipped;  // the same of what cannot be drawn, with the reason
  std::optional<FileError> damage;     // of the archive, and where; what was found before it is drawn
};

/// Reads every object of an archive and draws the shapes, images and measurements among them, each class in a colour of
/// its own, with a legend. Shapes stand where their coordinates say, images with their corner at the origin, a
/// measurement with its image in its place. Throws FileError for a file that cannot be read or is no archive.
Rendering renderArchive(const std::string& path);

/// The elements that draw a shape as it lies on the page: circles, ellipses and their arcs exactly, any other finite
/// shape by samples no further from it than a tenth of a pixel, and of an infinite line the part in sight. `tip` is
/// shown when a pointer rests on it. Throws what the shape's operations throw.
std::string shapeMarkup(const qcShape& shape, const qcXform<2>& pageFromShape, const qcRect& page,
                        const std::string& colour, const std::string& tip);
