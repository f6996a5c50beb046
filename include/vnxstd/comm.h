// Connections to other processes, and archives that cross them.
#pragma once

#include "vnxstd/comm/communicator.h"
#include "vnxstd/comm/remote.h"
#include "vnxstd/comm/transfer.h"
#include "vnxstd/except/catalogue.h"
