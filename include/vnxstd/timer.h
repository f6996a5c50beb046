// Timers and time-outs.
#pragma once

#include "vnxstd/timer/timeout.h"
#include "vnxstd/timer/timer.h"
