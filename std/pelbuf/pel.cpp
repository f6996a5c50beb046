#include "vnxstd/pelbuf/pel.h"

#include <iterator>

const char* qfPelTypeName(qePelType type) noexcept {
  static constexpr const char* kNames[] = {"any",
                                           "unsigned char",
                                           "signed char",
                                           "unsigned short",
                                           "short",
                                           "unsigned long",
                                           "long",
                                           "float",
                                           "double",
                                           "qcPair<long>",
                                           "qcPair<float>",
                                           "qcPackedRGB15Pel",
                                           "qcPackedRGB16Pel",
                                           "qcPackedRGB24Pel",
                                           "qcPackedRGB32Pel",
                                           "qc3PlanePel"};
  const auto index = static_cast<std::size_t>(type);
  return index < std::size(kNames) ? kNames[index] : "unknown";
}
