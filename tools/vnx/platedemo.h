// The part of the demonstration that is calibrated.
#pragma once

#include <iosfwd>

/// Finds the dots of a board in one picture, and with transforms from these measures a plate in another; writes its
/// files to the current directory and a table to `out`. Returns whether every error of the transforms that can follow
/// the lens is within 0.01 mm, a tenth of a pixel.
bool measurePlate(std::ostream& out);
