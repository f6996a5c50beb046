// What the records of a tool database say about results.
#pragma once

#include <cstdint>

/// The values that headers of records hold; applications add their own types of results.
class qcVDB {
 public:
  enum Grade : std::int32_t { unknown = 0, good = 1, bad = 2, review = 3 };
  enum ResultType : std::int32_t { none = 0 };
};
