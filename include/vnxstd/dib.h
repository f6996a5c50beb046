// Bitmap files.
#pragma once

#include "vnxstd/dib/dib.h"
