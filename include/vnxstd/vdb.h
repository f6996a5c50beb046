// The tool database archive.
#pragma once

#include "vnxstd/vdb/vdbr_com.h"
