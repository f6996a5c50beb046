// Pixel types, roots, buffers and the free pixel functions.
#pragma once

#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/pelbuf/pel.h"
#include "vnxstd/pelbuf/root.h"
#include "vnxstd/pelbuf/rootpool.h"
