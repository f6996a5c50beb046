#include "std/pelbuf/slottedroot.h"

#include <type_traits>

#include "std/pelbuf/rootpoolstate.h"

namespace {

template <class T>
class Slotted final : public qc_SlottedPelRoot {
 public:
  Slotted(long width, long height, long rowUpdate, void* pels)
      : root_(width, height, rowUpdate, static_cast<qcStoredPel<T>*>(pels), 1) {
    attach(root_);
  }
  qc_PelRoot& root() noexcept override { return root_; }

 private:
  qcPelRoot<T> root_;
};

/// Calls `then` with the pel type, or gives `other` for a type of which pools keep no roots.
template <class Result, class Then>
Result withPel(const std::type_info& type, Result other, Then&& then) {
  if (type == typeid(unsigned char)) return then(std::type_identity<unsigned char>());
  if (type == typeid(qcPackedRGB16Pel)) return then(std::type_identity<qcPackedRGB16Pel>());
  if (type == typeid(qcPackedRGB32Pel)) return then(std::type_identity<qcPackedRGB32Pel>());
  return other;
}

}  // namespace

qc_SlottedPelRoot::~qc_SlottedPelRoot() = default;

unsigned qc_SlottedPelRoot::pelSize(const std::type_info& type) noexcept {
  return withPel(type, 0u, []<class T>(std::type_identity<T>) -> unsigned { return sizeof(qcStoredPel<T>); });
}

qc_SlottedPelRoot* qc_SlottedPelRoot::make(const std::type_info& type, long width, long height, long rowUpdate,
                                           void* pels) {
  return withPel<qc_SlottedPelRoot*>(type, nullptr, [&]<class T>(std::type_identity<T>) -> qc_SlottedPelRoot* {
    return new Slotted<T>(width, height, rowUpdate, pels);
  });
}

void qc_SlottedPelRoot::giveBack() noexcept {
  const qcPtrHandle<qc_PelRootPool> state = home;  // outlives this
  state->takeBack(*this);
}
