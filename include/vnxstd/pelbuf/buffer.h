// Pixel buffers: windows onto shared pixel roots.
//
// A buffer is a value that names a root, a window (a part of the root), an offset that says which image coordinates the
// window's upper-left pel has, and a transform from image to client coordinates. Copying, assigning and windowing never
// copy pels: they share the root. The pel at (rx, ry) of the root has the image coordinates (rx - x0 + offset.x,
// ry - y0 + offset.y), where (x0, y0) is the window's corner in the root. All coordinates are image coordinates unless
// "root" is in the name.
//
// The root may live on the other side of a communicator. Pels of such a buffer are got and put one by one, and copied,
// through the communicator, as root.h says of roots; whatever needs their address, the pixel functions among it, throws
// qcTcpip::NotSupported. Copy the pels here, by qfPelCopy(buffer, nullptr), to do more with them than that.
//
// An operation that throws leaves the buffer as it was. Windows and offsets whose image coordinates would not fit 32
// bits are qcPel::BadWindow. Buffers are values and not locked: one buffer is for one thread at a time, any number of
// buffers may share a root, and who writes the same pels from two threads has to see to it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/widths.h"
#include "vnxstd/except/pelerrors.h"
#include "vnxstd/export.h"
#include "vnxstd/math/pair.h"
#include "vnxstd/math/xfcache.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/pelbuf/pel.h"
#include "vnxstd/pelbuf/root.h"
#include "vnxstd/pelspan/pelspan.h"

class qcArchive;

/// A pixel buffer of any type. Buffers that are made as this class take roots of every type; those of a typed class
/// take roots of that type only, also through a reference to this class: others throw qcPel::Unknown.
class VNXSTD_EXPORT qc_PelBuffer {
 public:
  /// Unbound, with an empty window.
  qc_PelBuffer() = default;
  /// Shares the root of `other`.
  qc_PelBuffer(const qc_PelBuffer& other) : qc_PelBuffer(other, qePelType::Any) {}
  qc_PelBuffer& operator=(const qc_PelBuffer& other);

  bool isBound() const noexcept { return !root_.isNull(); }
  /// Whether the root lives on the other side of a communicator.
  bool isRemote() const noexcept { return isBound() && root_.rep()->isRemote(); }
  /// Lets go of the root; window and offset stay.
  void setUnbound() noexcept { root_.release(); }
  /// The number of owners of the root; 0 when unbound.
  long refc() const noexcept { return isBound() ? root_.rep()->refc() : 0; }
  /// Gives up the root and returns it, null when unbound, with the count that the buffer held: the caller hands it back
  /// by qc_PelRoot::refDec and deletes the root when that gives 0.
  qc_PelRoot* disconnectRoot() noexcept;
  /// Takes the root of `other` and puts the own window, in root coordinates, onto it as `windowRoot` does; returns
  /// whether it was clipped. Becomes unbound, and returns false, when `other` is unbound.
  bool bind(const qc_PelBuffer& other, bool clip);

  /// The type of the pels, Any for an unbound buffer that takes all.
  qePelType pelType() const noexcept { return isBound() ? root_.rep()->pelType() : pelType_; }

  long width() const noexcept { return window_.width(); }
  long height() const noexcept { return window_.height(); }
  qcPair<long> size() const noexcept { return window_.size(); }
  /// Pels from the start of a row to the start of the next; throws qcPel::UnboundWindow when unbound.
  long rowUpdate() const { return boundRoot().rowUpdate(); }
  /// True when all pels of the window lie without gaps, so that they can be taken as one long row. Says nothing of an
  /// image of three planes: ask its planes.
  bool isContiguous() const noexcept {
    return isBound() && (root_.rep()->rowUpdate() == width() || height() <= 1 || width() == 0);
  }

  /// The window; its upper-left corner is the offset.
  qcPelRect window() const { return qcPelRect(offset(), size()); }
  /// The window in root coordinates.
  const qcPelRect& windowRoot() const noexcept { return window_; }
  /// The window's upper-left corner in root coordinates.
  qcPair<long> offsetRoot() const noexcept { return window_.ul(); }
  /// The image coordinates of the window's upper-left pel.
  qcPair<long> offset() const noexcept { return {offsetX_, offsetY_}; }
  /// Gives the window's pels other image coordinates; the window stays where it is in the root.
  void offset(long x, long y);
  void offset(const qcPair<long>& offset) { this->offset(offset.x(), offset.y()); }

  /// Moves the window to another part of the root. Pels keep their image coordinates. Returns true when the request was
  /// clipped. Throws qcPel::BadWindow for a negative size, or for a request that reaches outside the root unless `clip`
  /// is set; qcPel::UnboundWindow when unbound. A clipped request that only touches the root gives an empty window
  /// there, one that is apart from it an empty window at the root's origin.
  bool window(long x, long y, long width, long height, bool clip);
  bool window(const qcPair<long>& ul, const qcPair<long>& size, bool clip) {
    return window(ul.x(), ul.y(), size.x(), size.y(), clip);
  }
  bool window(const qcPelRect& window, bool clip) { return this->window(window.ul(), window.size(), clip); }
  /// The same in root coordinates.
  bool windowRoot(long x, long y, long width, long height, bool clip);
  bool windowRoot(const qcPair<long>& ul, const qcPair<long>& size, bool clip) {
    return windowRoot(ul.x(), ul.y(), size.x(), size.y(), clip);
  }
  bool windowRoot(const qcPelRect& window, bool clip) { return windowRoot(window.ul(), window.size(), clip); }
  /// Narrows the window to a part of itself, (x, y) counted from its upper-left pel. Throws qcPel::BadWindow when the
  /// part reaches outside the window.
  void subWindow(long x, long y, long width, long height);
  void subWindow(const qcPair<long>& ul, const qcPair<long>& size) { subWindow(ul.x(), ul.y(), size.x(), size.y()); }

  /// True when bound and the window is the whole root.
  bool isEntire() const noexcept;
  /// Makes the window the whole root; pels keep their image coordinates. Throws qcPel::UnboundWindow when unbound.
  void setEntire();
  /// The whole root in image coordinates. Throws as setEntire.
  qcPelRect windowEntire() const;

  /// True when both are bound to one root and there is a pel in both windows.
  bool sharesPels(const qc_PelBuffer& other) const noexcept {
    return isBound() && root_.rep() == other.root_.rep() && window_.overlaps(other.window_);
  }
  /// The same root object, equal windows and equal offsets; transforms are not compared.
  friend bool operator==(const qc_PelBuffer& a, const qc_PelBuffer& b) noexcept {
    return a.root_.rep() == b.root_.rep() && a.window_ == b.window_ && a.offset() == b.offset();
  }

  // The transform from image to client coordinates and its inverse; the identity unless set. Setting one makes the
  // other its inverse, which is computed when it is first asked for: a singular transform is accepted until then.
  // Getting the plain form throws qcPel::NonlinearXform when the transform is not linear, qcMathError::Singular when
  // the inverse of a singular one is needed.
  qcXform<2> clientFromImageXform() const { return xforms_.linearXform(); }
  qcXform<2> imageFromClientXform() const { return xforms_.linearXformInverse(); }
  void clientFromImageXform(const qcXform<2>& xform);
  void imageFromClientXform(const qcXform<2>& xform);
  const qcPtrHandle_const<qc2XformBase>& clientFromImageXformBase() const { return xforms_.xform(); }
  const qcPtrHandle_const<qc2XformBase>& imageFromClientXformBase() const { return xforms_.xformInverse(); }
  /// Sets a copy of the transform.
  void clientFromImageXformBase(const qc2XformBase& xform) { xforms_.xform(xform); }
  void imageFromClientXformBase(const qc2XformBase& xform) { xforms_.xformInverse(xform); }
  /// Sets a copy of the transform, or shares it. Throws qcBadPointer for a null handle.
  void clientFromImageXformBase(const qcPtrHandle_const<qc2XformBase>& xform, bool copy) { xforms_.xform(xform, copy); }
  void imageFromClientXformBase(const qcPtrHandle_const<qc2XformBase>& xform, bool copy) {
    xforms_.xformInverse(xform, copy);
  }
  const qc2XformCache& xforms() const noexcept { return xforms_; }
  void copyXforms(const qc2XformCache& xforms) { xforms_ = xforms; }
  void copyXforms(const qc_PelBuffer& other) { xforms_ = other.xforms_; }

  /// An order by root, window and offset that agrees with equality.
  friend bool operator<(const qc_PelBuffer& a, const qc_PelBuffer& b) noexcept { return a.isBefore(b); }

  /// Throws qcInvariantFailure when the window lies outside the root, or the root is broken.
  void repInvariant() const;

  /// Stores or loads window, offset, transforms and, as a shared object, the root; versions 0 to 3 are read, 3 is
  /// written. Of images in a plain archive, or one message, that share a root or a calibration, those that are loaded
  /// after the first need it to live on, or forgetObjects between the stores. To a transfer archive the root goes by
  /// reference: it stays here, where the peer may read and write its pels from now on, and lives at least until the
  /// peer has let go of it or the connection ends. The peer loads a buffer on a proxy of it, the same one while that
  /// lives; a buffer that is sent back is on the root itself. What the peer never loads of messages keeps its roots
  /// until the connection ends. A buffer that takes roots of every type loads no new proxy: qcArchive::BadType. One of
  /// other pels throws when these are asked for, not before: qcRemoteObject::ObjectMismatch. What the peer was not
  /// given is NotFound. Loading throws BadType for any other root of pels that the buffer does not take, BadContent for
  /// a window outside it or 32 bits; the buffer stays as it was.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qc_PelBuffer& buffer);

 protected:
  explicit qc_PelBuffer(qePelType type) noexcept : pelType_(type) {}
  /// Copies `other`, whose root must be of the type.
  qc_PelBuffer(const qc_PelBuffer& other, qePelType type);
  /// Bound to the whole of the root, which may be null.
  qc_PelBuffer(qc_PelRoot* root, qePelType type);

  qc_PelRoot* root() const noexcept { return root_.rep(); }
  qc_PelRoot& boundRoot() const;
  /// Image coordinates to row and column of the window; both are beyond its size when the pel is outside.
  std::uint64_t column(long x) const noexcept { return distance(x, offsetX_); }
  std::uint64_t row(long y) const noexcept { return distance(y, offsetY_); }
  bool isInside(std::uint64_t column, std::uint64_t row) const noexcept {
    return isBound() && column < static_cast<std::uint64_t>(width()) && row < static_cast<std::uint64_t>(height());
  }
  /// Throws the error of a pel that is not inside: UnboundWindow or BadCoord.
  [[noreturn]] void throwOutside(long x, long y) const;

 private:
  static std::uint64_t distance(long to, std::int32_t from) noexcept {
    return static_cast<std::uint64_t>(qcInt64{to}) - static_cast<std::uint64_t>(qcInt64{from});
  }
  void checkType(const qc_PelRoot* root) const;
  bool isBefore(const qc_PelBuffer& other) const noexcept;
  void setWindow(const qcRectangle<long>& window);

  qcPelRect window_;
  std::int32_t offsetX_ = 0, offsetY_ = 0;
  qc2XformCache xforms_;
  qcPtrHandle<qc_PelRoot> root_;
  qePelType pelType_ = qePelType::Any;
};

/// What all buffers of pels of type T have: how they are made, and their root.
template <class T>
class VNXSTD_EXPORT qc_TypedPelBuffer : public qc_PelBuffer {
  static_assert(qcRootPelType<T>, "there are no images of qcPackedRGB15Pel and qcPackedRGB24Pel");

 public:
  /// The type of a pel in memory.
  using Stored = qcStoredPel<T>;

  /// Unbound.
  qc_TypedPelBuffer() : qc_PelBuffer(qcPelTraits<T>::type) {}
  /// Bound to the whole root at offset (0, 0); unbound for null.
  explicit qc_TypedPelBuffer(qcPelRoot<T>* root) : qc_PelBuffer(root, qcPelTraits<T>::type) {}
  explicit qc_TypedPelBuffer(const qcPtrHandle<qcPelRoot<T>>& root) : qc_TypedPelBuffer(root.rep()) {}
  /// Bound to a new root, whose pels are not cleared; throws as qcPelRoot<T>.
  qc_TypedPelBuffer(long width, long height, long alignModulus = qc_PelRoot::defaultAlignModulus)
      : qc_TypedPelBuffer(qcPtrHandle<qcPelRoot<T>>(new qcPelRoot<T>(width, height, alignModulus))) {}
  /// Bound to a new root on the other side of a communicator; throws as qcPelRoot<T>.
  qc_TypedPelBuffer(qcCommunicator& communicator, long width, long height)
      : qc_TypedPelBuffer(qcPtrHandle<qcPelRoot<T>>(new qcPelRoot<T>(communicator, width, height))) {}
  /// Bound to a new root of the rectangle's size, with its upper-left corner as offset. A rectangle without pels gives
  /// the empty root.
  explicit qc_TypedPelBuffer(const qcPelRect& window, long alignModulus = qc_PelRoot::defaultAlignModulus)
      : qc_TypedPelBuffer(window.width(), window.height(), alignModulus) {
    offset(window.ul());
  }
  qc_TypedPelBuffer(const qc_TypedPelBuffer& other) : qc_PelBuffer(other, qcPelTraits<T>::type) {}
  qc_TypedPelBuffer& operator=(const qc_TypedPelBuffer& other) = default;

  /// The root, or null.
  const qcPelRoot<T>* rep() const noexcept { return typedRoot(); }

 protected:
  qcPelRoot<T>* typedRoot() const noexcept { return static_cast<qcPelRoot<T>*>(root()); }
};

/// A pixel buffer through which pels of type T are read. Pointers are pointers to pels as they lie in memory, that is
/// to qcStoredPel<T>.
template <class T>
class VNXSTD_EXPORT qcPelBuffer_const : public qc_TypedPelBuffer<T> {
 public:
  using Stored = qcStoredPel<T>;
  using qc_TypedPelBuffer<T>::qc_TypedPelBuffer;

  /// The pel at these image coordinates. Throws qcPel::BadCoord outside the window, qcPel::UnboundWindow when unbound.
  T get(long x, long y) const {
    const Stored* const here = pelHere(x, y);
    return here ? qcPelTraits<T>::load(*here) : getRemote(x, y);
  }
  T get(const qcPair<long>& at) const { return get(at.x(), at.y()); }

  /// The address of the pel; throws as get.
  const Stored* pointToPel(long x, long y) const { return pel(x, y); }
  const Stored* pointToPel(const qcPair<long>& at) const { return pel(at.x(), at.y()); }
  /// The address of the first pel of the window's row `y`; `width()` pels follow each other from there, and the next
  /// row starts `rowUpdate()` pels further. Throws qcPel::BadCoord when the window has no such row,
  /// qcPel::UnboundWindow when unbound.
  const Stored* pointToRow(long y) const { return rowStart(y); }
  /// The address of the window's upper-left pel; null when there are no pels.
  const Stored* pointToOffset() const { return upperLeft(); }
  /// True when the pointer is the address of a pel of the window.
  bool contains(const Stored* address) const noexcept;

  /// Copies the window, row by row and without padding, to width() * height() pels. Throws qcPelFunc::BadParams when
  /// there are pels and `pels` is null, qcPel::UnboundWindow when unbound.
  void copyToBuffer(Stored* pels) const;

 protected:
  /// The address of the pel, null when it is on the other side of a communicator; throws as get.
  Stored* pelHere(long x, long y) const {
    const std::uint64_t c = this->column(x), r = this->row(y);
    if (!this->isInside(c, r)) this->throwOutside(x, y);
    return inWindow(c, r);
  }
  Stored* pel(long x, long y) const { return here(pelHere(x, y)); }
  Stored* rowStart(long y) const {
    const std::uint64_t r = this->row(y);
    if (!this->isBound() || r >= static_cast<std::uint64_t>(this->height())) this->throwOutside(this->offset().x(), y);
    return this->windowRoot().isNull() ? this->typedRoot()->pels() : here(inWindow(0, r));
  }
  Stored* upperLeft() const { return this->isBound() && !this->windowRoot().isNull() ? here(inWindow(0, 0)) : nullptr; }
  /// The part of the root that is this pel, where the address of a pel is none.
  qcPelRect pelInRoot(long x, long y) const {
    return {static_cast<long>(this->column(x)) + this->windowRoot().x0(),
            static_cast<long>(this->row(y)) + this->windowRoot().y0(), 1, 1};
  }

 private:
  T getRemote(long x, long y) const;
  static Stored* here(Stored* pels) {
    if (!pels) qf_ThrowRemotePels();
    return pels;
  }
  Stored* inWindow(std::uint64_t column, std::uint64_t row) const noexcept {
    qcPelRoot<T>* const root = this->typedRoot();
    const qcPelRect& window = this->windowRoot();
    Stored* const first = root->pels();
    if (!first) return nullptr;
    return first +
           static_cast<std::ptrdiff_t>(root->rowUpdate()) *
               (static_cast<std::ptrdiff_t>(row) + static_cast<std::ptrdiff_t>(window.y0())) +
           (static_cast<std::ptrdiff_t>(column) + static_cast<std::ptrdiff_t>(window.x0()));
  }
};

/// A pixel buffer through which pels of type T are read and written. Whether the buffer itself is const says nothing
/// about its pels.
template <class T>
class VNXSTD_EXPORT qcPelBuffer : public qcPelBuffer_const<T> {
 public:
  using Stored = qcStoredPel<T>;
  using qcPelBuffer_const<T>::qcPelBuffer_const;

  qcPelBuffer() = default;
  /// Write access to pels that `other` only reads.
  explicit qcPelBuffer(const qcPelBuffer_const<T>& other) : qcPelBuffer_const<T>(other) {}

  /// Sets the pel at these image coordinates. Throws as get, and qcPelFunc::Range when the value does not fit the pel.
  void put(long x, long y, const T& value) const {
    Stored* const to = this->pelHere(x, y);
    const Stored stored = qcPelTraits<T>::store(value);
    if (!to) return putRemote(x, y, stored);
    this->typedRoot()->mutating();
    *to = stored;
  }
  void put(const qcPair<long>& at, const T& value) const { put(at.x(), at.y(), value); }

  // As for reading. Handing out an address counts as a change of the root.
  Stored* pointToPel(long x, long y) const { return changing(this->pel(x, y)); }
  Stored* pointToPel(const qcPair<long>& at) const { return pointToPel(at.x(), at.y()); }
  Stored* pointToRow(long y) const { return changing(this->rowStart(y)); }
  Stored* pointToOffset() const { return changing(this->upperLeft()); }

  /// Copies width() * height() pels without padding to the window; throws as copyToBuffer.
  void copyFromBuffer(const Stored* pels) const;

  /// The root, or null.
  qcPelRoot<T>* rep() const noexcept { return this->typedRoot(); }

 private:
  void putRemote(long x, long y, Stored value) const;
  Stored* changing(Stored* pels) const {
    if (pels) this->typedRoot()->mutating();
    return pels;
  }
};

/// A buffer of three planes. It has no addresses of pels: ask planeBuffer for the planes.
template <>
class VNXSTD_EXPORT qcPelBuffer_const<qc3PlanePel> : public qc_TypedPelBuffer<qc3PlanePel> {
 public:
  using qc_TypedPelBuffer<qc3PlanePel>::qc_TypedPelBuffer;

  /// The pel at these image coordinates, which refers to the pels of the planes, so that there is none to be had of a
  /// root on the other side of a communicator. Throws as for the other buffers.
  qc3PlanePelRef_const get(long x, long y) const {
    return {*planePel(0, x, y), *planePel(1, x, y), *planePel(2, x, y)};
  }
  qc3PlanePelRef_const get(const qcPair<long>& at) const { return get(at.x(), at.y()); }

  /// Copies the window, row by row, to width() * height() pels; throws as for the other buffers.
  void copyToBuffer(qc3PlanePel* pels) const;

  /// A plane, 0 to 2, as an 8-bit buffer with this window, offset and transform, which shares the pels. Throws
  /// qcPelFunc::BadParams for another index. Unbound when this is.
  qcPelBuffer_const<unsigned char> planeBuffer(int index) const { return plane(index); }

 protected:
  qcPelBuffer<unsigned char> plane(int index) const;
  /// The address of the pel in a plane; throws as get. The planes have rows of their own: those of one that an image
  /// was loaded into by itself can differ.
  unsigned char* planePel(int index, long x, long y) const {
    const std::uint64_t c = column(x), r = row(y);
    if (!isInside(c, r)) throwOutside(x, y);
    qcPelRoot<unsigned char>* const plane = typedRoot()->plane(index);
    if (!plane) qf_ThrowRemotePels();
    return plane->pels() +
           static_cast<std::ptrdiff_t>(plane->rowUpdate()) * (static_cast<std::ptrdiff_t>(r) + windowRoot().y0()) +
           (static_cast<std::ptrdiff_t>(c) + windowRoot().x0());
  }
};

template <>
class VNXSTD_EXPORT qcPelBuffer<qc3PlanePel> : public qcPelBuffer_const<qc3PlanePel> {
 public:
  using qcPelBuffer_const<qc3PlanePel>::qcPelBuffer_const;

  qcPelBuffer() = default;
  explicit qcPelBuffer(const qcPelBuffer_const<qc3PlanePel>& other) : qcPelBuffer_const<qc3PlanePel>(other) {}

  void put(long x, long y, const qc3PlanePel& value) const {
    if (isRemote()) return putRemote(x, y, value);
    unsigned char* const to[] = {planePel(0, x, y), planePel(1, x, y), planePel(2, x, y)};
    rep()->mutating();
    const unsigned char values[] = {value.plane0(), value.plane1(), value.plane2()};
    for (int i = 0; i < 3; ++i) {
      rep()->plane(i)->mutating();  // planes can be archived by themselves
      *to[i] = values[i];
    }
  }
  void put(const qcPair<long>& at, const qc3PlanePel& value) const { put(at.x(), at.y(), value); }
  void copyFromBuffer(const qc3PlanePel* pels) const;
  /// A plane to write to, otherwise as for reading. Handing it out counts as a change of the image, writing to it later
  /// does not: ask for it again when the image was archived in between.
  qcPelBuffer<unsigned char> planeBuffer(int index) const;
  qcPelRoot<qc3PlanePel>* rep() const noexcept { return typedRoot(); }

 private:
  void putRemote(long x, long y, qc3PlanePel value) const;
};

// The library holds the code of these for all programs. On Windows that takes more than export.h declares, whose
// exports leave inline members of templates out: see --export-all-symbols in the build.
#define VNXSTD_DECLARE(T)                     \
  extern template class qc_TypedPelBuffer<T>; \
  extern template class qcPelBuffer_const<T>; \
  extern template class qcPelBuffer<T>;
VNXSTD_FOR_ARRAY_PELS(VNXSTD_DECLARE)
extern template class qc_TypedPelBuffer<qc3PlanePel>;
#undef VNXSTD_DECLARE
