// Locks and reference counts.
#pragma once

#include "vnxstd/sync/sync.h"
