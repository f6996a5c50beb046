// Archives: the stream, what can be stored in it, its media, handles and the storage pool.
#pragma once

#include "vnxstd/archive/alone.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/compound.h"
#include "vnxstd/archive/file.h"
#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/limits.h"
#include "vnxstd/archive/memory.h"
#include "vnxstd/archive/observer.h"
#include "vnxstd/archive/persistent.h"
#include "vnxstd/archive/pool.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/archive/spinlock.h"
#include "vnxstd/archive/text.h"
#include "vnxstd/archive/widths.h"
