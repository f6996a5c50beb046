// Objects that live on the other side of a communicator.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

class qcCommunicator;
class qc_Link;

/// Where an object lives: here, or on the other side of a communicator, which knows it by a number. That never changes.
/// The object may outlive the communicator, but is of little use then.
class VNXSTD_EXPORT qcRemoteObject {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// An object is of another size or type on the two sides.
  class VNXSTD_EXPORT ObjectMismatch : public qc_ErrorLeaf<ObjectMismatch, Errors, 0x10002600> {};

  bool isRemote() const noexcept { return link_ != nullptr; }
  /// The communicator behind which the object lives; null for an object that lives here, and once it is gone.
  qcCommunicator* communicator() const noexcept;
  /// The number by which the other side knows the object; 0 for an object that lives here.
  std::uint32_t remoteIdentity() const noexcept { return identity_; }

 protected:
  qcRemoteObject() noexcept = default;
  qcRemoteObject(std::shared_ptr<qc_Link> link, std::uint32_t identity) noexcept
      : link_(std::move(link)), identity_(identity) {}
  qcRemoteObject(const qcRemoteObject&) = default;
  ~qcRemoteObject() = default;

  const std::shared_ptr<qc_Link>& link() const noexcept { return link_; }

 private:
  std::shared_ptr<qc_Link> link_;
  std::uint32_t identity_ = 0;
};
