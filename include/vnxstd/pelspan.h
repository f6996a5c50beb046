// Pixel rectangles and spans.
#pragma once

#include "vnxstd/pelspan/pelspan.h"
