// The root classes of all errors, and the templates from which an owner declares its own.
//
// Every failure of the library is reported by throwing an object of a class derived from qcException. Errors are
// values: thrown by value, caught by reference, copied freely, and archivable like every other persistent object. An
// owner X declares a group and one line per kind of failure:
//
//     class X {
//      public:
//       class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
//       class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000F38> {};
//     };
//
// A group with a text derives from qc_ErrorGroup<Errors, qcExceptionWithString>; it and its kinds inherit the
// constructors. The owner registers them in its source file: static const qc_ErrorRegistration<X::Errors, X::BadParams>
// registered;
#pragma once

#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "vnxstd/archive/persistent.h"
#include "vnxstd/except/loadcontext.h"
#include "vnxstd/export.h"

/// The root of all errors. Building, copying and printing an error never throws anything but std::bad_alloc.
class VNXSTD_EXPORT qcException : public qcPersistent {
 public:
  /// The number that identifies the class independently of the language; listed in docs/errors.md.
  virtual long errorNumber() const = 0;

  /// For an error that was made by the registry and loaded from an archive: deletes this object and throws a copy of
  /// its exact type. The object must live on the heap and must not be touched afterwards.
  [[noreturn]] virtual void suicideAndRethrow() = 0;

  /// The text of the error, with "type name: " before it when `withTypeName` is set.
  std::wstring message(bool withTypeName) const;
  /// Writes the text with the type name.
  void message(std::wostream& out) const;

  /// Where the load that this error has left went wrong; null for an error that comes from no load, and when there was
  /// no memory for it. It lives as long as this error and the copies of it, which share it.
  const qcLoadContext* loadContext() const noexcept { return loadContext_.get(); }

 protected:
  qcException() noexcept = default;
  qcException(const qcException&) noexcept = default;
  qcException& operator=(const qcException&) noexcept = default;

  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);

  /// Writes the part of the message that belongs to the class.
  virtual void message_(std::wostream& out) const;

 private:
  friend class qcArchive;
  friend class qc_DIBReader;
  std::shared_ptr<const qcLoadContext> loadContext_;
};

/// An error that carries a free text.
class VNXSTD_EXPORT qcExceptionWithString : public qcException {
 public:
  const std::wstring& info() const noexcept { return info_; }

 protected:
  qcExceptionWithString() = default;
  explicit qcExceptionWithString(std::wstring info) : info_(std::move(info)) {}
  /// A null pointer gives an empty text.
  explicit qcExceptionWithString(const wchar_t* info) : info_(info ? info : L"") {}

  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);
  void message_(std::wostream& out) const override;

  std::wstring info_;
};

/// Throws qcArchive::UnknownVersion that names the error class when `version` is newer than the one this library
/// writes.
VNXSTD_EXPORT void qf_CheckErrorVersion(unsigned char version, const std::type_info& type);

/// The abstract base of an owner's errors; G is the class that derives from this. A class level without fields.
template <class G, class Base = qcException>
class VNXSTD_EXPORT qc_ErrorGroup : public Base {
 protected:
  qc_ErrorGroup() = default;
  template <class... Args>
  requires(sizeof...(Args) > 0 &&
           !(std::derived_from<std::remove_cvref_t<Args>, qcException> || ...)) explicit qc_ErrorGroup(Args&&... args)
      : Base(std::forward<Args>(args)...) {}

  void dispatchSerialize(qcArchive& archive) override {
    qcPersistent::serializeLevel<G>(archive, static_cast<G*>(this), 0, &qc_ErrorGroup::serialize_);
  }
  void serialize_(qcArchive& archive, unsigned char version) {
    qf_CheckErrorVersion(version, typeid(G));
    Base::dispatchSerialize(archive);
  }
};

template <class Group, class... Leaves>
struct qc_ErrorRegistration;

/// One kind of failure: D is the class that derives from this, Base its group, Number its error number. A kind that has
/// fields of its own gives `void archiveFields(qcArchive&)`, which stores or loads them after the base part.
template <class D, class Base, std::int32_t Number>
class VNXSTD_EXPORT qc_ErrorLeaf : public Base {
 public:
  qc_ErrorLeaf() = default;
  template <class... Args>
  requires(sizeof...(Args) > 0 &&
           !(std::derived_from<std::remove_cvref_t<Args>, qcException> || ...)) explicit qc_ErrorLeaf(Args&&... args)
      : Base(std::forward<Args>(args)...) {}

  long errorNumber() const override { return Number; }

  [[noreturn]] void suicideAndRethrow() override {
    const std::unique_ptr<qc_ErrorLeaf> self(this);  // goes also when there is no memory for the copy
    throw D(static_cast<const D&>(*this));
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override {
    qcPersistent::serializeLevel<D>(archive, static_cast<D*>(this), 0, &qc_ErrorLeaf::serialize_);
  }
  void serialize_(qcArchive& archive, unsigned char version) {
    qf_CheckErrorVersion(version, typeid(D));
    Base::dispatchSerialize(archive);
    if constexpr (requires(D & self) { self.archiveFields(archive); }) static_cast<D*>(this)->archiveFields(archive);
  }

 private:
  template <class Group, class... Leaves>
  friend struct qc_ErrorRegistration;
  static qcPersistent* make() { return new D; }
};

/// Registers a group of errors (by name, without a maker: it is abstract) and its kinds.
template <class Group, class... Leaves>
struct qc_ErrorRegistration {
  qc_ErrorRegistration() {
    qc_Instantiator(typeid(Group), nullptr);
    (qc_Instantiator(typeid(Leaves), &Leaves::make), ...);
  }
};

/// The errors without an owner.
class VNXSTD_EXPORT qcInvariantFailure : public qc_ErrorLeaf<qcInvariantFailure, qcException, 0x10000001> {};
class VNXSTD_EXPORT qcBadPointer : public qc_ErrorLeaf<qcBadPointer, qcException, 0x10000008> {};
class VNXSTD_EXPORT qcSysTimeBadArgument : public qc_ErrorLeaf<qcSysTimeBadArgument, qcException, 0x10000009> {};
class VNXSTD_EXPORT qcUnsupportedHW : public qc_ErrorLeaf<qcUnsupportedHW, qcException, 0x1000000A> {};
class VNXSTD_EXPORT qcBadUnicodeChar : public qc_ErrorLeaf<qcBadUnicodeChar, qcException, 0x1000000B> {};

/// A failure code of a lower layer that nobody turned into an error of its own.
class VNXSTD_EXPORT qcUnknownError : public qc_ErrorLeaf<qcUnknownError, qcExceptionWithString, 0x10000004> {
 public:
  qcUnknownError() = default;
  /// The text is "Internal error code: " and the code as 32 bits in hexadecimal; empty for code 0.
  explicit qcUnknownError(long code);
};
