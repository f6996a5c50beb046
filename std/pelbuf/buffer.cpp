#include "vnxstd/pelbuf/buffer.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <tuple>

#include "std/archive/found.h"
#include "std/pelbuf/remoteroots.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/comm/transfer.h"
#include "vnxstd/except/failure.h"
#include "vnxstd/math/xflinear.h"
#include "zrtsys/memory.h"

namespace {

constexpr char kSource[] = "std/pelbuf/pbuf_com";

/// Requests may lie anywhere; sums that leave 64 bits stop there, which is as far outside any root as before.
qcInt64 saturatingSum(qcInt64 a, qcInt64 b) {
  using Limits = std::numeric_limits<qcInt64>;
  if (b > 0 && a > Limits::max() - b) return Limits::max();
  if (b < 0 && a < Limits::min() - b) return Limits::min();
  return a + b;
}

bool fits32(qcInt64 value) { return value >= INT32_MIN && value <= INT32_MAX; }

qcPtrHandle_const<qc2XformBase> linearXform(const qcXform<2>& xform) { return new qc2XformLinear(xform); }

/// What a window on a root becomes, and whether it had to be clipped.
struct Placed {
  qcRectangle<long> window;
  bool isClipped;
};

Placed place(const qc_PelRoot& root, qcInt64 x, qcInt64 y, qcInt64 width, qcInt64 height, bool clip) {
  const qcInt64 x1 = saturatingSum(x, width), y1 = saturatingSum(y, height);
  const bool isContained = x >= 0 && y >= 0 && x1 <= root.width() && y1 <= root.height();
  if (!isContained && !clip) throw qcPel::BadWindow();
  const qcInt64 left = std::max<qcInt64>(x, 0), right = std::min<qcInt64>(x1, root.width());
  const qcInt64 top = std::max<qcInt64>(y, 0), bottom = std::min<qcInt64>(y1, root.height());
  if (left > right || top > bottom) return {{}, true};
  return {qcRectangle<long>::fromCorners(static_cast<long>(left), static_cast<long>(top), static_cast<long>(right),
                                         static_cast<long>(bottom)),
          !isContained};
}

}  // namespace

qc_PelBuffer::qc_PelBuffer(const qc_PelBuffer& other, qePelType type)
    : window_(other.window_),
      offsetX_(other.offsetX_),
      offsetY_(other.offsetY_),
      xforms_(other.xforms_),
      pelType_(type) {
  checkType(other.root_.rep());
  root_ = other.root_;
}

qc_PelBuffer::qc_PelBuffer(qc_PelRoot* root, qePelType type) : root_(root), pelType_(type) {
  checkType(root);
  if (root) window_ = root->rect();
}

qc_PelBuffer& qc_PelBuffer::operator=(const qc_PelBuffer& other) {
  checkType(other.root_.rep());
  xforms_ = other.xforms_;
  window_ = other.window_;
  offsetX_ = other.offsetX_;
  offsetY_ = other.offsetY_;
  root_ = other.root_;
  return *this;
}

void qc_PelBuffer::checkType(const qc_PelRoot* root) const {
  if (root && pelType_ != qePelType::Any && root->pelType() != pelType_) throw qcPel::Unknown();
}

qc_PelRoot& qc_PelBuffer::boundRoot() const {
  if (!isBound()) throw qcPel::UnboundWindow();
  return *root_.rep();
}

void qc_PelBuffer::throwOutside(long x, long y) const {
  if (!isBound()) throw qcPel::UnboundWindow();
  throw qcPel::BadCoord(x, y);
}

qc_PelRoot* qc_PelBuffer::disconnectRoot() noexcept {
  qc_PelRoot* const root = root_.rep();
  if (root) qc_PelRoot::refInc(root);
  root_.release();
  return root;
}

bool qc_PelBuffer::bind(const qc_PelBuffer& other, bool clip) {
  if (!other.isBound()) {
    setUnbound();
    return false;
  }
  checkType(other.root_.rep());
  const Placed placed = place(*other.root_, window_.x0(), window_.y0(), window_.width(), window_.height(), clip);
  setWindow(placed.window);
  root_ = other.root_;
  return placed.isClipped;
}

// Takes a window of the root while all pels keep their image coordinates.
void qc_PelBuffer::setWindow(const qcRectangle<long>& window) {
  const qcInt64 x = qcInt64{offsetX_} + window.x0() - window_.x0();
  const qcInt64 y = qcInt64{offsetY_} + window.y0() - window_.y0();
  if (!fits32(x) || !fits32(y) || !fits32(x + window.width()) || !fits32(y + window.height())) {
    throw qcPel::BadWindow();
  }
  window_ = window;
  offsetX_ = static_cast<std::int32_t>(x);
  offsetY_ = static_cast<std::int32_t>(y);
}

void qc_PelBuffer::offset(long x, long y) {
  if (!fits32(x) || !fits32(y) || !fits32(qcInt64{x} + width()) || !fits32(qcInt64{y} + height())) {
    throw qcPel::BadWindow();
  }
  offsetX_ = static_cast<std::int32_t>(x);
  offsetY_ = static_cast<std::int32_t>(y);
}

bool qc_PelBuffer::window(long x, long y, long width, long height, bool clip) {
  if (width < 0 || height < 0) throw qcPel::BadWindow();
  const Placed placed = place(boundRoot(), saturatingSum(x, qcInt64{window_.x0()} - offsetX_),
                              saturatingSum(y, qcInt64{window_.y0()} - offsetY_), width, height, clip);
  setWindow(placed.window);
  return placed.isClipped;
}

bool qc_PelBuffer::windowRoot(long x, long y, long width, long height, bool clip) {
  if (width < 0 || height < 0) throw qcPel::BadWindow();
  const Placed placed = place(boundRoot(), x, y, width, height, clip);
  setWindow(placed.window);
  return placed.isClipped;
}

void qc_PelBuffer::subWindow(long x, long y, long width, long height) {
  const long w = this->width(), h = this->height();
  if (width < 0 || height < 0 || x < 0 || y < 0 || x > w || y > h || width > w - x || height > h - y) {
    throw qcPel::BadWindow();
  }
  setWindow(qcPelRect(window_.x0() + x, window_.y0() + y, width, height));
}

bool qc_PelBuffer::isEntire() const noexcept {
  return isBound() && window_.x0() == 0 && window_.y0() == 0 && width() == root_.rep()->width() &&
         height() == root_.rep()->height();
}

void qc_PelBuffer::setEntire() { setWindow(boundRoot().rect()); }

qcPelRect qc_PelBuffer::windowEntire() const {
  const qc_PelRoot& root = boundRoot();
  const qcInt64 x = qcInt64{offsetX_} - window_.x0(), y = qcInt64{offsetY_} - window_.y0();
  if (!fits32(x) || !fits32(y) || !fits32(x + root.width()) || !fits32(y + root.height())) throw qcPel::BadWindow();
  return qcPelRect(static_cast<long>(x), static_cast<long>(y), root.width(), root.height());
}

bool qc_PelBuffer::isBefore(const qc_PelBuffer& other) const noexcept {
  if (root_.rep() != other.root_.rep()) return std::less<>()(root_.rep(), other.root_.rep());
  const auto key = [](const qc_PelBuffer& b) {
    return std::tuple(b.window_.x0(), b.window_.y0(), b.window_.x1(), b.window_.y1(), b.offsetX_, b.offsetY_);
  };
  return key(*this) < key(other);
}

void qc_PelBuffer::clientFromImageXform(const qcXform<2>& xform) { xforms_.xform(linearXform(xform), false); }
void qc_PelBuffer::imageFromClientXform(const qcXform<2>& xform) { xforms_.xformInverse(linearXform(xform), false); }

void qc_PelBuffer::repInvariant() const {
  if (window_.x0() < 0 || window_.y0() < 0) throw qcInvariantFailure();
  if (!isBound()) return;
  root_->repInvariant();
  if (!root_->contains(window_)) throw qcInvariantFailure();
}

qcArchive& operator||(qcArchive& archive, qc_PelBuffer& buffer) try {
  unsigned char version = 3;
  archive || version;
  const qcArchiveCompound compound(archive);
  qcArchive::checkVersion(archive, version, 3, kSource, 744);

  qc_PelBuffer read = buffer;  // takes roots of every type, so that one of the wrong type is told apart below
  archive || static_cast<qcRectangle<long>&>(read.window_);
  if (version == 0) {
    archive || read.root_;
    read.offsetX_ = read.offsetY_ = 0;
    read.xforms_.setIdentity();
  } else {
    archive || read.offsetX_ || read.offsetY_;
    if (version == 1) {
      qcXform<2> clientFromImage;
      archive || clientFromImage;
      read.clientFromImageXform(clientFromImage);
    } else if (version == 2) {
      qcPtrHandle_const<qc2XformBase> clientFromImage, imageFromClient;
      archive || clientFromImage || imageFromClient;
      if (clientFromImage.isNull() && imageFromClient.isNull()) {
        throw archive.located(qcArchive::BadContent(kSource, 762), "a transform or its inverse", "neither");
      }
      if (clientFromImage.isNull()) {
        read.imageFromClientXformBase(imageFromClient, false);
      } else {
        read.xforms_.xformAndXformInverse(clientFromImage, imageFromClient);
      }
    } else {
      archive || read.xforms_;
    }
    if (auto* const transfer = dynamic_cast<qcTransferArchive*>(&archive)) {
      qf_TransferPelRoot(*transfer, read.root_, buffer.pelType_);
    } else {
      archive || read.root_;
    }
  }
  if (archive.isStoring()) return archive;

  const bool isPlaced = fits32(qcInt64{read.offsetX_} + read.width()) && fits32(qcInt64{read.offsetY_} + read.height());
  const bool isOnRoot =
      read.isBound() ? read.root_->contains(read.window_) : read.window_.x0() >= 0 && read.window_.y0() >= 0;
  if (!isPlaced || !isOnRoot)
    throw archive.located(qcArchive::BadContent(kSource, 781), "a window within its image",
                          qf_Found(read.window_.x0(), read.window_.y0(), read.window_.x1(), read.window_.y1()));
  if (read.isBound() && buffer.pelType_ != qePelType::Any && read.pelType() != buffer.pelType_) {
    throw archive.located(qcArchive::BadType(kSource, 784),
                          "pels of type " + qf_Found(static_cast<int>(buffer.pelType_)),
                          qf_Found(static_cast<int>(read.pelType())));
  }
  buffer = read;
  return archive;
} catch (qcException& error) {  // those of transforms
  archive.located(error);
  throw;
}

// --- typed access ---------------------------------------------------------------------------------------------------

namespace {

template <class Stored>
std::int64_t bytesOf(long pels) {
  return std::int64_t{pels} * static_cast<std::int64_t>(sizeof(Stored));
}

}  // namespace

template <class T>
bool qcPelBuffer_const<T>::contains(const Stored* address) const noexcept {
  if (!this->isBound() || this->typedRoot()->isRemote()) return false;
  const Stored* const first = upperLeft();
  if (!first || std::less<>()(address, first)) return false;
  const auto bytes =
      static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(first));
  const std::uint64_t pels = bytes / sizeof(Stored), pitch = static_cast<std::uint64_t>(this->typedRoot()->rowUpdate());
  return bytes % sizeof(Stored) == 0 && pels / pitch < static_cast<std::uint64_t>(this->height()) &&
         pels % pitch < static_cast<std::uint64_t>(this->width());
}

template <class T>
T qcPelBuffer_const<T>::getRemote(long x, long y) const {
  Stored value{};
  qcPelRoot<T> here(1, 1, &value, 1);
  this->typedRoot()->copy(pelInRoot(x, y), here, {0, 0}, false);
  return qcPelTraits<T>::load(value);
}

template <class T>
void qcPelBuffer<T>::putRemote(long x, long y, Stored value) const {
  const qcPelRoot<T> here(1, 1, &value, 1);
  here.copy(here.rect(), *this->typedRoot(), this->pelInRoot(x, y).ul(), false);
}

template <class T>
void qcPelBuffer_const<T>::copyToBuffer(Stored* pels) const {
  const qc_PelRoot& root = this->boundRoot();
  if (root.isRemote()) {
    if (this->windowRoot().isNull()) return;
    qcPelRoot<T> here(this->width(), this->height(), pels, 1);
    return this->typedRoot()->copy(this->windowRoot(), here, {0, 0}, false);
  }
  const Stored* const first = upperLeft();
  if (!first) return;
  qfThrowExceptionOnFailure(zrtsys::copyRect(
      pels, bytesOf<Stored>(this->width()), first, bytesOf<Stored>(root.rowUpdate()),
      static_cast<std::uint64_t>(bytesOf<Stored>(this->width())), static_cast<std::uint64_t>(this->height())));
}

template <class T>
void qcPelBuffer<T>::copyFromBuffer(const Stored* pels) const {
  const qc_PelRoot& root = this->boundRoot();
  if (root.isRemote()) {
    const qcPelRoot<T> here(this->width(), this->height(), const_cast<Stored*>(pels), 1);  // is only read
    return here.copy(here.rect(), *this->typedRoot(), this->offsetRoot(), false);
  }
  Stored* const first = pointToOffset();
  if (!first) return;
  qfThrowExceptionOnFailure(zrtsys::copyRect(
      first, bytesOf<Stored>(root.rowUpdate()), pels, bytesOf<Stored>(this->width()),
      static_cast<std::uint64_t>(bytesOf<Stored>(this->width())), static_cast<std::uint64_t>(this->height())));
}

// --- buffers of three planes ----------------------------------------------------------------------------------------

qcPelBuffer<unsigned char> qcPelBuffer_const<qc3PlanePel>::plane(int index) const {
  if (index < 0 || index > 2) throw qcPelFunc::BadParams();
  qcPelBuffer<unsigned char> result;
  if (isBound()) {
    if (typedRoot()->isRemote()) qf_ThrowRemotePels();
    result = qcPelBuffer<unsigned char>(typedRoot()->plane(index));
    result.windowRoot(windowRoot(), false);
    result.offset(offset());
  }
  result.copyXforms(*this);
  return result;
}

void qcPelBuffer_const<qc3PlanePel>::copyToBuffer(qc3PlanePel* pels) const {
  boundRoot();
  if (windowRoot().isNull()) return;
  if (!pels) throw qcPelFunc::BadParams();
  if (typedRoot()->isRemote()) return qcPelBuffer_const(typedRoot()->copy(windowRoot(), false)).copyToBuffer(pels);
  const qcPelBuffer_const<unsigned char> planes[3] = {plane(0), plane(1), plane(2)};
  for (long y = offset().y(); y < offset().y() + height(); ++y) {
    const unsigned char* const rows[3] = {planes[0].pointToRow(y), planes[1].pointToRow(y), planes[2].pointToRow(y)};
    for (long x = 0; x < width(); ++x) *pels++ = {rows[0][x], rows[1][x], rows[2][x]};
  }
}

void qcPelBuffer<qc3PlanePel>::copyFromBuffer(const qc3PlanePel* pels) const {
  boundRoot();
  if (windowRoot().isNull()) return;
  if (!pels) throw qcPelFunc::BadParams();
  if (rep()->isRemote()) {
    const qcPelBuffer here(width(), height());
    here.copyFromBuffer(pels);
    return here.rep()->copy(here.rep()->rect(), *rep(), offsetRoot(), false);
  }
  const qcPelBuffer<unsigned char> planes[3] = {planeBuffer(0), planeBuffer(1), planeBuffer(2)};
  for (long y = offset().y(); y < offset().y() + height(); ++y) {
    unsigned char* const rows[3] = {planes[0].pointToRow(y), planes[1].pointToRow(y), planes[2].pointToRow(y)};
    for (long x = 0; x < width(); ++x, ++pels) {
      rows[0][x] = pels->plane0();
      rows[1][x] = pels->plane1();
      rows[2][x] = pels->plane2();
    }
  }
}

void qcPelBuffer<qc3PlanePel>::putRemote(long x, long y, qc3PlanePel value) const {
  const std::uint64_t c = column(x), r = row(y);
  if (!isInside(c, r)) throwOutside(x, y);
  const qcPelRoot<qc3PlanePel> here(1, 1, 1, &value.plane0(), &value.plane1(), &value.plane2(), 1);
  const qcPair<long> at = {static_cast<long>(c) + offsetRoot().x(), static_cast<long>(r) + offsetRoot().y()};
  here.copy(here.rect(), *rep(), at, false);
}

qcPelBuffer<unsigned char> qcPelBuffer<qc3PlanePel>::planeBuffer(int index) const {
  if (isBound()) rep()->mutating();
  return plane(index);
}

// --- instances ------------------------------------------------------------------------------------------------------

#define VNXSTD_INSTANTIATE(T)          \
  template class qc_TypedPelBuffer<T>; \
  template class qcPelBuffer_const<T>; \
  template class qcPelBuffer<T>;
VNXSTD_FOR_ARRAY_PELS(VNXSTD_INSTANTIATE)
template class qc_TypedPelBuffer<qc3PlanePel>;
#undef VNXSTD_INSTANTIATE
