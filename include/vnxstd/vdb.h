// The tool database archive.
#pragma once

#include "vnxstd/vdb/vdb.h"
#include "vnxstd/vdb/vdbarch.h"
#include "vnxstd/vdb/vdbr_com.h"
