// Locks and other resources that threads wait for.
#pragma once

#include "vnxstd/sync/sync.h"
