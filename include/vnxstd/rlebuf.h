// Run-length encoded images.
#pragma once

#include "vnxstd/rlebuf/rlebuf.h"
