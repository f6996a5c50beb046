// Shapes: the common interface, lines, circles, rectangles and what is built from them.
#pragma once

#include "vnxstd/shapes/affrect.h"
