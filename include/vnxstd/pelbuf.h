// Pixel types, roots, buffers and the free pixel functions.
#pragma once

#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/pelbuf/arith.h"
#include "vnxstd/pelbuf/arrange.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/pelbuf/colour.h"
#include "vnxstd/pelbuf/copy.h"
#include "vnxstd/pelbuf/fill.h"
#include "vnxstd/pelbuf/filter.h"
#include "vnxstd/pelbuf/measure.h"
#include "vnxstd/pelbuf/pel.h"
#include "vnxstd/pelbuf/pelwise.h"
#include "vnxstd/pelbuf/prepare.h"
#include "vnxstd/pelbuf/print.h"
#include "vnxstd/pelbuf/root.h"
#include "vnxstd/pelbuf/rootpool.h"
#include "vnxstd/pelbuf/rows.h"
