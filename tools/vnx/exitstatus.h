// What a command says of how it went.
#pragma once

#include "files.h"

enum Exit { kGood = 0, kNotFound = 1, kWrongCall = 2, kMalformed = 3, kLimitExceeded = 4, kMediumFailed = 5 };

inline Exit exitOf(Fault fault) {
  constexpr Exit kExits[] = {kGood, kMalformed, kLimitExceeded, kMediumFailed};
  return kExits[static_cast<int>(fault)];
}
