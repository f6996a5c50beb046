// The demonstration: draws a part, measures it and shows how far the measurement is from the truth.
#pragma once

#include <iosfwd>

/// Writes its files to the current directory and a table to `out`; returns whether every error is within 0.05 pixels.
bool runDemo(std::ostream& out);
