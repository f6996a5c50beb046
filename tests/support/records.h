// Pointers in plain big-endian archives, put together by hand.
#pragma once

#include "support/bytes.h"

/// What every object begins with.
inline const std::string kMarker = fromHex("F1664BDF");

/// A pointer to the object of that number; of kind 1 with the object behind it.
inline std::string record(int id, int kind, const std::string& inlined = {}) {
  return fromHex("4FE5705401") + stored(kBig, false, id, static_cast<unsigned char>(kind)) + std::string(8, '\0') +
         inlined;
}

/// A pointer to a new object of a class, of which `body` is what follows the marker.
inline std::string newObject(int id, const std::string& type, const std::string& body) {
  return record(id, 1, stored(kBig, false, type) + kMarker + body);
}
