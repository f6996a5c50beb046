#include "vnxstd/pelbuf/root.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <numeric>
#include <type_traits>

#include "std/archive/found.h"
#include "std/pelbuf/remoteroots.h"
#include "std/pelbuf/slottedroot.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/comm/communicator.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/except/failure.h"
#include "vnxstd/except/pelerrors.h"
#include "zrtsys/memory.h"

namespace {

void convertStatus(long code) {
  if (code == zrtsys::outOfMemory) throw std::bad_alloc();
  if (code == zrtsys::badArgument) throw qcPelFunc::BadParams();
}

struct ConverterRegistration {
  ConverterRegistration() { qfRegisterExceptionConverter(zrtsys::facility, &convertStatus); }
};
const ConverterRegistration converterRegistered;

constexpr char kSource[] = "std/pelbuf/pbuf_com";

// Bits of the flags word: each says that one pel value follows, which nobody needs any more.
constexpr std::uint32_t kFirstPelFollows = 2, kSecondPelFollows = 4;

std::uint64_t product(std::int32_t a, std::int32_t b) {
  return static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b);
}

// Saturates, so that a size beyond 64 bits is one that nobody can deliver.
std::uint64_t bytesOf(std::uint64_t pels, std::uint64_t pelSize) {
  return pels > std::numeric_limits<std::uint64_t>::max() / pelSize ? std::numeric_limits<std::uint64_t>::max()
                                                                    : pels * pelSize;
}

/// The place along one axis that a copy starts at, or a length of 0.
struct Stretch {
  qcInt64 from, to, length;
};

// [from, from + length) of a source axis goes to `to` of a destination axis; what lies outside either is cut off.
Stretch clipped(qcInt64 from, qcInt64 length, qcInt64 sourceSize, qcInt64 to, qcInt64 targetSize) {
  // Positions far outside all act alike; near ones leave room for sums.
  to = std::clamp<qcInt64>(to, -(qcInt64{1} << 40), qcInt64{1} << 40);
  const qcInt64 shift = to - from;
  const qcInt64 low = std::max({from, qcInt64{0}, -shift});
  const qcInt64 high = std::min({from + length, sourceSize, targetSize - shift});
  return {low, low + shift, std::max<qcInt64>(high - low, 0)};
}

}  // namespace

// --- storage --------------------------------------------------------------------------------------------------------

qc_PelStorage::qc_PelStorage(long w, long h, unsigned pelSize, long align) {
  if (w < 0 || h < 0) throw qcRectErrors::NegativeSize();
  if (align < 1 || align > qc_PelRoot::maxAlignModulus) throw qcPelFunc::BadParams();
  alignModulus = static_cast<std::int32_t>(align);
  const std::int32_t rowWidth = qf_PelCoord(w), rows = qf_PelCoord(h);
  if (w == 0 || h == 0) return;
  rowUpdate = qf_PelCoord(qcInt64{w} + qc_PelRoot::padPelsNeeded(w, pelSize, align));
  width = rowWidth;
  height = rows;
}

qc_PelStorage::~qc_PelStorage() { zrtsys::free(block); }

void qc_PelStorage::allocate(unsigned pelSize, unsigned pelAlignment) {
  if (width == 0) return;
  const auto modulus = std::lcm<std::uint64_t>(static_cast<std::uint64_t>(alignModulus), pelAlignment);
  qfThrowExceptionOnFailure(zrtsys::allocate(bytesOf(product(rowUpdate, height), pelSize), modulus, &block, &pels));
}

void qc_PelStorage::adopt(void* callersPels, long callersRowUpdate, unsigned pelSize, unsigned pelAlignment) {
  if (width == 0) return;
  if (!callersPels || reinterpret_cast<std::uintptr_t>(callersPels) % pelAlignment != 0 || callersRowUpdate < width) {
    throw qcPelFunc::BadParams();
  }
  rowUpdate = qf_PelCoord(callersRowUpdate);
  if (bytesOf(product(rowUpdate, height), pelSize) > static_cast<std::uint64_t>(PTRDIFF_MAX)) {
    throw qcPelFunc::BadParams();
  }
  pels = callersPels;
}

void qc_PelStorage::swap(qc_PelStorage& other) noexcept {
  std::swap(width, other.width);
  std::swap(rowUpdate, other.rowUpdate);
  std::swap(height, other.height);
  std::swap(alignModulus, other.alignModulus);
  std::swap(block, other.block);
  std::swap(pels, other.pels);
}

// --- the untyped root -----------------------------------------------------------------------------------------------

qc_PelRoot::qc_PelRoot(qcCommunicator& communicator, qePelType type, qc_PelStorage geometry)
    : qcRemoteObject(communicator.link(), geometry.width == 0
                                              ? throw qcPelFunc::BadParams()
                                              : qf_RPCPelRootMake(*communicator.link(), type, geometry.width,
                                                                  geometry.height, geometry.alignModulus)),
      storage_(std::move(geometry)) {
  try {
    qf_AddRemotePelRoot(*this);
  } catch (...) {
    qf_RPCPelRootChangeRefCount(*link(), remoteIdentity(), -1);
    throw;
  }
}

qc_PelRoot::~qc_PelRoot() {
  if (isRemote()) qf_RemoveRemotePelRoot(*this);
}

void qf_ThrowRemotePels() { throw qcTcpip::NotSupported(); }

void qc_PelRoot::operator delete(qc_PelRoot* root, std::destroying_delete_t) {
  if (root->package_) {
    root->package_->giveBack();
    return;
  }
  void* const whole = dynamic_cast<void*>(root);
  root->~qc_PelRoot();
  ::operator delete(whole);
}

long qc_PelRoot::padPelsNeeded(long width, unsigned int pelSize, long alignModulus) {
  if (width < 0) throw qcRectErrors::NegativeSize();
  if (pelSize == 0 || alignModulus < 1) throw qcPelFunc::BadParams();
  // Rows are aligned when they are a multiple of this many pels long.
  const qcInt64 step = qcInt64{alignModulus} / std::gcd(qcInt64{pelSize}, qcInt64{alignModulus});
  return static_cast<long>((step - width % step) % step);
}

void qc_PelRoot::repInvariant() const {
  if (isRemote() && (storage_.width < 1 || storage_.block || storage_.pels)) throw qcInvariantFailure();
  const bool isSound = storage_.width == 0 ? storage_.height == 0 && storage_.rowUpdate == 0
                                           : storage_.width > 0 && storage_.height > 0 &&
                                                 storage_.rowUpdate >= storage_.width && storage_.alignModulus > 0;
  if (!isSound) throw qcInvariantFailure();
}

void qc_PelRoot::checkInside(const qcPelRect& rectangle) const {
  if (!contains(rectangle)) throw qcPel::BadWindow();
}

qc_PelRoot::CopyPart qc_PelRoot::copyPart(const qcPelRect& rectangle, const qc_PelRoot& to, const qcPair<long>& at,
                                          bool clip) const {
  const Stretch x = clipped(rectangle.x0(), rectangle.width(), width(), at.x(), to.width());
  const Stretch y = clipped(rectangle.y0(), rectangle.height(), height(), at.y(), to.height());
  const bool isInside = contains(rectangle) && at.x() >= 0 && at.x() <= to.width() - rectangle.width() && at.y() >= 0 &&
                        at.y() <= to.height() - rectangle.height();
  if (!isInside && !clip) throw qcPel::BadWindow();
  if (x.length == 0 || y.length == 0) return {};
  return {qcPelRect(static_cast<long>(x.from), static_cast<long>(y.from), static_cast<long>(x.length),
                    static_cast<long>(y.length)),
          {static_cast<long>(x.to), static_cast<long>(y.to)}};
}

void qc_PelRoot::dispatchSerialize(qcArchive& archive) { serializeLevel(archive, this, 0, &qc_PelRoot::serialize_); }

void qc_PelRoot::serialize_(qcArchive& archive, unsigned char version) {
  qf_CheckErrorVersion(version, typeid(qc_PelRoot));
  qcPersistent::dispatchSerialize(archive);
  std::int32_t size[3] = {storage_.width, storage_.height, storage_.alignModulus};
  archive || size[0] || size[1] || size[2];
  if (archive.isStoring()) return;
  if (size[0] < 0 || size[1] < 0 || size[2] < 1 || size[2] > maxAlignModulus) {
    throw archive.located(qcArchive::BadContent(kSource, 211), "a size and an alignment of rows",
                          qf_Found(size[0], size[1], size[2]));
  }
  loadedWidth_ = size[0];
  loadedHeight_ = size[1];
  loadedAlign_ = size[2];
}

qc_PelStorage qc_PelRoot::takeLoaded(unsigned pelSize) {
  if (isRemote()) qf_ThrowRemotePels();
  // Windows onto this root rely on its size.
  const bool isEmpty = loadedWidth_ == 0 || loadedHeight_ == 0;
  if (refc() > 0 && width() != 0 && (isEmpty || loadedWidth_ != width() || loadedHeight_ != height())) {
    throw qcArchive::BadContent(kSource, 224);
  }
  if (!isEmpty && qcInt64{loadedWidth_} + padPelsNeeded(loadedWidth_, pelSize, loadedAlign_) > INT32_MAX) {
    throw qcArchive::BadContent(kSource, 227);
  }
  return qc_PelStorage(loadedWidth_, loadedHeight_, pelSize, loadedAlign_);
}

// --- roots of pels in one array -------------------------------------------------------------------------------------

namespace {

template <class T>
using Element = typename qcPelTraits<T>::Element;

/// The optional pel values of the flags word are read and dropped.
template <class T>
void flagsWord(qcArchive& archive) {
  std::uint32_t flags = 0;
  archive || flags;
  if ((flags & ~(kFirstPelFollows | kSecondPelFollows)) != 0) {
    throw archive.located(qcArchive::BadContent(kSource, 243), "known flags", std::to_string(flags));
  }
  for (const std::uint32_t bit : {kFirstPelFollows, kSecondPelFollows}) {
    Element<T> dropped[qcPelTraits<T>::elements];
    if (flags & bit) archive.block(dropped, qcPelTraits<T>::elements);
  }
}

/// Stores or loads all pels; rows that follow each other without padding go as one block.
template <class T>
void pelRows(qcArchive& archive, const qc_PelStorage& storage) {
  const bool isOneRow = storage.rowUpdate == storage.width;
  const auto pelsInRow = static_cast<std::size_t>(storage.width);
  const auto rows = static_cast<std::size_t>(storage.height);
  const std::size_t elements = (isOneRow ? pelsInRow * rows : pelsInRow) * qcPelTraits<T>::elements;
  for (std::size_t row = 0; row < (isOneRow ? std::min<std::size_t>(rows, 1) : rows); ++row) {
    auto* const pels = static_cast<qcStoredPel<T>*>(storage.pels) + row * static_cast<std::size_t>(storage.rowUpdate);
    archive.block(reinterpret_cast<Element<T>*>(pels), elements);
  }
}

/// Loads pels from a medium that cannot tell how many bytes it has: memory grows with what arrives, and the image is
/// made of it at the end.
template <class T>
void loadGrowing(qcArchive& archive, qc_PelStorage& storage) {
  constexpr std::size_t kFirstPiece = std::size_t{1} << 20;
  const auto total = product(storage.width, storage.height) * qcPelTraits<T>::elements;
  std::vector<Element<T>> arrived;
  while (arrived.size() < total) {
    const std::size_t done = arrived.size();
    const auto piece = std::min<std::uint64_t>(total - done, std::max(kFirstPiece, done));
    arrived.resize(done + static_cast<std::size_t>(piece));
    archive.block(arrived.data() + done, static_cast<std::size_t>(piece));
  }
  storage.allocate(sizeof(qcStoredPel<T>), alignof(qcStoredPel<T>));
  const auto rowBytes = static_cast<std::uint64_t>(storage.width) * sizeof(qcStoredPel<T>);
  qfThrowExceptionOnFailure(zrtsys::copyRect(
      storage.pels, static_cast<std::int64_t>(storage.rowUpdate) * static_cast<std::int64_t>(sizeof(qcStoredPel<T>)),
      arrived.data(), static_cast<std::int64_t>(rowBytes), rowBytes, static_cast<std::uint64_t>(storage.height)));
}

/// Refuses a geometry that is nearly all padding, by which a few bytes would claim much memory.
void checkPadding(const qc_PelStorage& geometry, unsigned pelSize) {
  constexpr std::uint64_t kFreePadding = 65536, kPaddingFactor = 256;  // one row of any alignment is free
  const std::uint64_t pelBytes = bytesOf(product(geometry.width, geometry.height), pelSize);
  const std::uint64_t paddedBytes = bytesOf(product(geometry.rowUpdate, geometry.height), pelSize);
  if (paddedBytes > kFreePadding && paddedBytes / kPaddingFactor > pelBytes) throw qcArchive::BadContent(kSource, 292);
}

/// Takes memory for the geometry in `storage` and loads the pels, believing no size that the medium cannot back.
template <class T>
void loadPels(qcArchive& archive, qc_PelStorage& storage) {
  const std::uint64_t pels = product(storage.width, storage.height);
  const std::uint64_t pelBytes = bytesOf(pels, sizeof(qcStoredPel<T>));
  archive.countElements(pels, sizeof(qcStoredPel<T>));
  const qcInt64 remaining = archive.remaining();
  if (remaining >= 0 && pelBytes > static_cast<std::uint64_t>(remaining)) {
    throw archive.located(qcArchive::Eof(kSource, 291), std::to_string(pelBytes) + " bytes of pels",
                          std::to_string(remaining));
  }
  checkPadding(storage, sizeof(qcStoredPel<T>));
  if (remaining < 0) {
    loadGrowing<T>(archive, storage);
  } else {
    storage.allocate(sizeof(qcStoredPel<T>), alignof(qcStoredPel<T>));
    pelRows<T>(archive, storage);
  }
}

/// A copy of a rectangle here, or on the other side of a communicator.
template <class T>
qcPtrHandle<qcPelRoot<T>> copied(const qcPelRoot<T>& root, const qcPelRect& rectangle, qcCommunicator* where) {
  using Root = qcPelRoot<T>;
  const qcPelRect part = root.rect().overlaps(rectangle) ? qcPelRect(root.rect() & rectangle) : qcPelRect();
  const long align = root.isRemote() ? qc_PelRoot::defaultAlignModulus : root.alignModulus();
  const qcPtrHandle<Root> result(where && !part.isNull() ? new Root(*where, part.width(), part.height(), align)
                                                         : new Root(part.width(), part.height(), align));
  root.copy(part, *result, {0, 0}, false);
  return result;
}

/// Pels of a proxy to or from a vector, by way of a root that lives here.
template <class T>
void vectTransferred(qcPelRoot<T>& proxy, const qcPelRect& rectangle, std::vector<T>& values, bool toRoot) {
  if (!toRoot) {
    const auto copy = proxy.copy(rectangle, false);
    return copy->pelsToVect(copy->rect(), values);
  }
  qcPelRoot<T> here(rectangle.width(), rectangle.height());
  here.vectToPels(here.rect(), values);
  here.copy(here.rect(), proxy, rectangle.ul(), false);
}

}  // namespace

template <class T>
qcPelRoot<T>::qcPelRoot(long width, long height, long alignModulus)
    : qcPelRoot(qc_PelStorage(width, height, sizeof(Stored), alignModulus)) {
  storage_.allocate(sizeof(Stored), alignof(Stored));
}

template <class T>
qcPelRoot<T>::qcPelRoot(long width, long height, Stored* pels, long alignModulus)
    : qcPelRoot(qc_PelStorage(width, height, sizeof(Stored), alignModulus)) {
  storage_.adopt(pels, storage_.rowUpdate, sizeof(Stored), alignof(Stored));
}

template <class T>
qcPelRoot<T>::qcPelRoot(long width, long height, long rowUpdate, Stored* pels, long alignModulus)
    : qcPelRoot(qc_PelStorage(width, height, sizeof(Stored), alignModulus)) {
  storage_.adopt(pels, rowUpdate, sizeof(Stored), alignof(Stored));
}

template <class T>
qcPelRoot<T>::qcPelRoot(qcCommunicator& communicator, long width, long height, long alignModulus)
    : qc_PelRoot(communicator, qcPelTraits<T>::type, qc_PelStorage(width, height, sizeof(Stored), alignModulus)) {}

template <class T>
qcPelRoot<T>::qcPelRoot(std::shared_ptr<qc_Link> link, std::uint32_t identity, long width, long height,
                        long alignModulus)
    : qc_PelRoot(std::move(link), identity, qc_PelStorage(width, height, sizeof(Stored), alignModulus)) {}

template <class T>
qcPersistent* qcPelRoot<T>::make() {
  return new qcPelRoot;
}

template <class T>
void qcPelRoot<T>::copy(const qcPelRect& rectangle, qcPelRoot& to, const qcPair<long>& at, bool clip) const {
  const CopyPart part = copyPart(rectangle, to, at, clip);
  if (part.from.isNull()) return;
  if (isRemote() || to.isRemote()) return qf_RPCPelRootCopy(*this, part.from, to, part.to);
  to.mutating();
  constexpr auto pelSize = static_cast<std::int64_t>(sizeof(Stored));
  qfThrowExceptionOnFailure(zrtsys::copyRect(to.at(part.to.x(), part.to.y()), to.rowUpdate() * pelSize,
                                             this->at(part.from.x0(), part.from.y0()), rowUpdate() * pelSize,
                                             static_cast<std::uint64_t>(part.from.width()) * sizeof(Stored),
                                             static_cast<std::uint64_t>(part.from.height())));
}

template <class T>
qcPtrHandle<qcPelRoot<T>> qcPelRoot<T>::copy(const qcPelRect& rectangle, qcCommunicator* where, bool clip) const {
  if (!clip) checkInside(rectangle);
  return copied(*this, rectangle, where);
}

template <class T>
void qcPelRoot<T>::vectTransfer(const qcPelRect& rectangle, std::vector<T>& values, bool toRoot) {
  vectTransferred(*this, rectangle, values, toRoot);
}

template <class T>
void qcPelRoot<T>::transferPels(qcArchive& archive, const qcPelRect& rectangle) {
  if (archive.isLoading()) mutating();
  qc_PelStorage part;
  part.width = static_cast<std::int32_t>(rectangle.width());
  part.height = static_cast<std::int32_t>(rectangle.height());
  part.rowUpdate = storage_.rowUpdate;
  part.pels = at(rectangle.x0(), rectangle.y0());
  pelRows<T>(archive, part);
}

template <class T>
void qcPelRoot<T>::pelsToVect(const qcPelRect& rectangle, std::vector<T>& values) const {
  checkInside(rectangle);
  if (isRemote()) return const_cast<qcPelRoot*>(this)->vectTransfer(rectangle, values, false);  // only reads
  std::vector<T> result;
  if (!rectangle.isNull()) {
    result.reserve(static_cast<std::size_t>(rectangle.width()) * static_cast<std::size_t>(rectangle.height()));
    for (long y = rectangle.y0(); y < rectangle.y1(); ++y) {
      const Stored* const row = at(rectangle.x0(), y);
      for (long x = 0; x < rectangle.width(); ++x) result.push_back(qcPelTraits<T>::load(row[x]));
    }
  }
  values.swap(result);
}

template <class T>
void qcPelRoot<T>::vectToPels(const qcPelRect& rectangle, const std::vector<T>& values) {
  checkInside(rectangle);
  if (values.size() !=
      product(static_cast<std::int32_t>(rectangle.width()), static_cast<std::int32_t>(rectangle.height()))) {
    throw qcPelFunc::BadParams();
  }
  if (rectangle.isNull()) return;
  if (isRemote()) return vectTransfer(rectangle, const_cast<std::vector<T>&>(values), true);  // reads the values
  if constexpr (!std::is_same_v<T, Stored>) {
    for (const T& value : values) qcPelTraits<T>::store(value);  // throws before a pel is written
  }
  mutating();
  auto value = values.begin();
  for (long y = rectangle.y0(); y < rectangle.y1(); ++y) {
    Stored* const row = at(rectangle.x0(), y);
    for (long x = 0; x < rectangle.width(); ++x) row[x] = qcPelTraits<T>::store(*value++);
  }
}

template <class T>
void qcPelRoot<T>::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qcPelRoot::serialize_);
}

template <class T>
void qcPelRoot<T>::serialize_(qcArchive& archive, unsigned char version) {
  qf_CheckErrorVersion(version, typeid(qcPelRoot));
  const qcPtrHandle<qcPelRoot> here = archive.isStoring() && isRemote() ? copy(rect(), false) : nullptr;
  if (archive.isStoring()) {  // what no reader would take; memory of the caller's can have other rows than readers make
    checkPadding(qc_PelStorage(width(), height(), sizeof(Stored), alignModulus()), sizeof(Stored));
  }
  qc_PelRoot::dispatchSerialize(archive);
  if (archive.isStoring()) {
    flagsWord<T>(archive);
    pelRows<T>(archive, here ? here->storage_ : storage_);
    return;
  }
  qc_PelStorage loaded = takeLoaded(sizeof(Stored));
  flagsWord<T>(archive);
  loadPels<T>(archive, loaded);
  storage_.swap(loaded);
}

// --- the root of three planes ---------------------------------------------------------------------------------------

qcPelRoot<qc3PlanePel>::qcPelRoot(long width, long height, long alignModulus)
    : qc_PelRoot(qc_PelStorage(width, height, 1, alignModulus)) {
  for (auto& plane : planes_) plane = new Plane(width, height, alignModulus);
}

qcPelRoot<qc3PlanePel>::qcPelRoot(long width, long height, long rowUpdate, unsigned char* plane0, unsigned char* plane1,
                                  unsigned char* plane2, long alignModulus)
    : qc_PelRoot(qc_PelStorage(width, height, 1, alignModulus)),
      planes_{new Plane(width, height, rowUpdate, plane0, alignModulus),
              new Plane(width, height, rowUpdate, plane1, alignModulus),
              new Plane(width, height, rowUpdate, plane2, alignModulus)} {
  storage_.rowUpdate = static_cast<std::int32_t>(planes_[0]->rowUpdate());
}

qcPelRoot<qc3PlanePel>::qcPelRoot(qcCommunicator& communicator, long width, long height, long alignModulus)
    : qc_PelRoot(communicator, qePelType::ThreePlane, qc_PelStorage(width, height, 1, alignModulus)) {}

qcPelRoot<qc3PlanePel>::qcPelRoot(std::shared_ptr<qc_Link> link, std::uint32_t identity, long width, long height,
                                  long alignModulus)
    : qc_PelRoot(std::move(link), identity, qc_PelStorage(width, height, 1, alignModulus)) {}

qcPersistent* qcPelRoot<qc3PlanePel>::make() { return new qcPelRoot; }

void qcPelRoot<qc3PlanePel>::repInvariant() const {
  qc_PelRoot::repInvariant();
  if (isRemote()) return;
  for (const auto& plane : planes_) {
    plane->repInvariant();
    if (plane->rect() != rect()) throw qcInvariantFailure();
  }
}

void qcPelRoot<qc3PlanePel>::copy(const qcPelRect& rectangle, qcPelRoot& to, const qcPair<long>& at, bool clip) const {
  const CopyPart part = copyPart(rectangle, to, at, clip);  // a plane by itself may have pels that the image has not
  if (part.from.isNull()) return;
  if (isRemote() || to.isRemote()) return qf_RPCPelRootCopy(*this, part.from, to, part.to);
  to.mutating();
  for (int i = 0; i < 3; ++i) plane(i)->copy(part.from, *to.plane(i), part.to, false);
}

qcPtrHandle<qcPelRoot<qc3PlanePel>> qcPelRoot<qc3PlanePel>::copy(const qcPelRect& rectangle, qcCommunicator* where,
                                                                 bool clip) const {
  if (!clip) checkInside(rectangle);
  return copied(*this, rectangle, where);
}

void qcPelRoot<qc3PlanePel>::vectTransfer(const qcPelRect& rectangle, std::vector<qc3PlanePel>& values, bool toRoot) {
  vectTransferred(*this, rectangle, values, toRoot);
}

void qcPelRoot<qc3PlanePel>::transferPels(qcArchive& archive, const qcPelRect& rectangle) {
  if (archive.isLoading()) mutating();
  for (const auto& plane : planes_) {
    if (!plane->contains(rectangle)) throw qcPel::BadWindow();  // a plane can be loaded by itself
    qc_RemotePelRoots::transferPels(*plane, archive, rectangle);
  }
}

void qcPelRoot<qc3PlanePel>::pelsToVect(const qcPelRect& rectangle, std::vector<qc3PlanePel>& values) const {
  checkInside(rectangle);
  if (isRemote()) return const_cast<qcPelRoot*>(this)->vectTransfer(rectangle, values, false);  // only reads
  std::vector<unsigned char> planes[3];
  for (int i = 0; i < 3; ++i) plane(i)->pelsToVect(rectangle, planes[i]);
  std::vector<qc3PlanePel> result(planes[0].size());
  for (std::size_t i = 0; i < result.size(); ++i) result[i] = {planes[0][i], planes[1][i], planes[2][i]};
  values.swap(result);
}

void qcPelRoot<qc3PlanePel>::vectToPels(const qcPelRect& rectangle, const std::vector<qc3PlanePel>& values) {
  checkInside(rectangle);
  if (isRemote())
    return vectTransfer(rectangle, const_cast<std::vector<qc3PlanePel>&>(values), true);  // reads the values
  std::vector<unsigned char> planes[3];
  for (auto& plane : planes) plane.resize(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    planes[0][i] = values[i].plane0();
    planes[1][i] = values[i].plane1();
    planes[2][i] = values[i].plane2();
  }
  mutating();
  for (int i = 0; i < 3; ++i) plane(i)->vectToPels(rectangle, planes[i]);
}

void qcPelRoot<qc3PlanePel>::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qcPelRoot::serialize_);
}

void qcPelRoot<qc3PlanePel>::serialize_(qcArchive& archive, unsigned char version) {
  qf_CheckErrorVersion(version, typeid(qcPelRoot));
  // The planes of an empty image can be loaded by themselves.
  const auto checkSize = [](const Plane& plane, long width, long height) {
    if (plane.width() != width || plane.height() != height) throw qcArchive::BadContent(kSource, 462);
  };
  if (archive.isStoring()) {
    const qcPtrHandle<qcPelRoot> here = isRemote() ? copy(rect(), false) : nullptr;
    const auto& stored = here ? here->planes_ : planes_;
    for (const auto& plane : stored) checkSize(*plane, width(), height());  // what no reader would take
    qc_PelRoot::dispatchSerialize(archive);
    flagsWord<qc3PlanePel>(archive);
    for (const auto& plane : stored) archive || *plane;
    return;
  }
  qc_PelRoot::dispatchSerialize(archive);
  flagsWord<qc3PlanePel>(archive);
  qc_PelStorage loaded = takeLoaded(1);
  qcPtrHandle<Plane> planes[3];
  for (auto& plane : planes) {
    plane = new Plane;
    archive || *plane;
    checkSize(*plane, loaded.width, loaded.height);
  }
  storage_.swap(loaded);
  for (int i = 0; i < 3; ++i) planes_[i] = planes[i];
}

// --- instances ------------------------------------------------------------------------------------------------------

#define VNXSTD_INSTANTIATE(T) template class qcPelRoot<T>;
VNXSTD_FOR_ARRAY_PELS(VNXSTD_INSTANTIATE)
#undef VNXSTD_INSTANTIATE

namespace {

template <class... T>
struct RootRegistration {
  RootRegistration() {
    qc_Instantiator(typeid(qc_PelRoot), nullptr);
    (qc_Instantiator(typeid(qcPelRoot<T>), &qcPelRoot<T>::make), ...);
  }
};

const RootRegistration<unsigned char, signed char, unsigned short, short, unsigned long, long, float, double,
                       qcPair<long>, qcPair<float>, qcPackedRGB16Pel, qcPackedRGB32Pel, qc3PlanePel>
    registered;

}  // namespace
