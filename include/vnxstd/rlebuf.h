// Run-length encoded images.
#pragma once

#include "vnxstd/rlebuf/regions.h"
#include "vnxstd/rlebuf/rlebuf.h"
