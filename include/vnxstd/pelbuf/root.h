// Pixel roots: shared, reference-counted pixel storage.
//
// A root is `height` rows of `width` pels. Rows start `rowUpdate` pels apart, so that each begins at a multiple of
// `alignModulus` bytes; what lies between the rows is padding and means nothing. Roots are reached through counted
// handles, normally those inside pixel buffers, and are destroyed by the last one. The count may change on any thread;
// writing the same pels from two threads is the callers' business.
//
// A root may also live on the other side of a communicator. What is here then is a proxy, without pels of its own: it
// has no rows to point at, and what asks for them throws qcTcpip::NotSupported. Copying to, from and between such roots
// works, and asks the other side for the pels, or sends them, at most 1 MiB at once; errors that it meets there are
// thrown here. What communicator.h says of waits holds for all of this.
//
// A root of width or height 0 is the empty root, with neither rows nor pels. New pels are not cleared: they hold
// whatever the memory held.
//
// Archives keep the alignment, not the distance between rows. So that a few bytes cannot claim much memory, they take
// no root that is nearly all padding: one whose rows, aligned, take more than 64 KiB and more than 256 times the bytes
// of its pels is qcArchive::BadContent, when it is stored as when it is loaded. Below an alignment of 257 there is
// none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/persistent.h"
#include "vnxstd/archive/widths.h"
#include "vnxstd/comm/remote.h"
#include "vnxstd/export.h"
#include "vnxstd/pelbuf/pel.h"
#include "vnxstd/pelspan/pelspan.h"

class qc_RemotePelRoots;
class qc_SlottedPelRoot;

/// A block of rows: its geometry, and the memory unless that belongs to somebody else. Moves, does not copy.
class VNXSTD_EXPORT qc_PelStorage {
 public:
  qc_PelStorage() noexcept = default;
  qc_PelStorage(qc_PelStorage&& other) noexcept { swap(other); }
  qc_PelStorage& operator=(qc_PelStorage&& other) noexcept {
    qc_PelStorage(std::move(other)).swap(*this);
    return *this;
  }
  ~qc_PelStorage();

  /// The geometry of an image, without memory. Throws qcRectErrors::NegativeSize for a negative size,
  /// qcPelFunc::BadParams for an alignment outside 1 to 65536, qcPelFunc::Range when a row does not fit 32 bits.
  qc_PelStorage(long width, long height, unsigned pelSize, long alignModulus);

  /// Takes memory for this geometry; the first pel lies at a multiple of the alignment and of `pelAlignment`. Throws
  /// std::bad_alloc when it is not to be had.
  void allocate(unsigned pelSize, unsigned pelAlignment);
  /// Uses the caller's memory. Throws qcPelFunc::BadParams when `pels` is null or not aligned for its type, or a row is
  /// shorter than the width.
  void adopt(void* pels, long rowUpdate, unsigned pelSize, unsigned pelAlignment);

  void swap(qc_PelStorage& other) noexcept;

  std::int32_t width = 0;
  std::int32_t rowUpdate = 0;
  std::int32_t height = 0;
  std::int32_t alignModulus = 1;
  void* block = nullptr;  // the allocation that is owned, or null
  void* pels = nullptr;   // pel (0, 0)
};

/// A pixel root of any type.
class VNXSTD_EXPORT qc_PelRoot : public qcRepBase, public qcRemoteObject, public virtual qcPersistent {
 public:
  /// The alignment in bytes of new roots that ask for no other. Sums of rows run 10 to 20 % faster than without
  /// alignment, up to 12 % faster than at 16 bytes and as fast as at 32; at 64, where cache lines begin, threads that
  /// write neighbouring rows do not disturb each other either.
  static constexpr long defaultAlignModulus = 64;
  /// The largest alignment that a root can have.
  static constexpr long maxAlignModulus = 65536;

  qc_PelRoot(const qc_PelRoot&) = delete;
  qc_PelRoot& operator=(const qc_PelRoot&) = delete;
  ~qc_PelRoot() override;

  virtual qePelType pelType() const noexcept = 0;

  long width() const noexcept { return storage_.width; }
  long height() const noexcept { return storage_.height; }
  /// Pels from the start of a row to the start of the next; without meaning on the other side of a communicator.
  long rowUpdate() const noexcept { return storage_.rowUpdate; }
  /// Bytes of which the address of every row is a multiple.
  long alignModulus() const noexcept { return storage_.alignModulus; }
  /// The whole root, (0, 0, width, height).
  qcPelRect rect() const { return qcPelRect(width(), height()); }
  /// True when the rectangle lies within the root.
  bool contains(const qcPelRect& rectangle) const { return rect().contains(rectangle); }

  /// How many pels must follow each row of `width` pels of `pelSize` bytes for the next row to be aligned. Throws
  /// qcRectErrors::NegativeSize for a negative width, qcPelFunc::BadParams for a size or an alignment below 1.
  static long padPelsNeeded(long width, unsigned int pelSize, long alignModulus);

  /// Throws qcInvariantFailure when the fields contradict each other.
  virtual void repInvariant() const;

  // Deleting a root gives it back when it belongs to a pool, and destroys it when it does not, whoever deletes it.
  static void operator delete(qc_PelRoot* root, std::destroying_delete_t);
  static void* operator new(std::size_t bytes) { return ::operator new(bytes); }
  static void operator delete(void* memory) noexcept { ::operator delete(memory); }  // of a constructor that threw

 protected:
  explicit qc_PelRoot(qc_PelStorage storage) noexcept : storage_(std::move(storage)) {}
  /// A proxy.
  qc_PelRoot(std::shared_ptr<qc_Link> link, std::uint32_t identity, qc_PelStorage geometry) noexcept
      : qcRemoteObject(std::move(link), identity), storage_(std::move(geometry)) {}
  /// Lets the other side make a root of this geometry, which must have pels, and returns the proxy's base.
  qc_PelRoot(qcCommunicator& communicator, qePelType type, qc_PelStorage geometry);

  /// Stores or loads the pels of a rectangle, row by row and plane by plane, of a root that lives here.
  virtual void transferPels(qcArchive& archive, const qcPelRect& rectangle) = 0;

  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);

  /// The geometry that serialize_ has just read, without memory. The typed level fills it with pels and then makes it
  /// the root's own, so that a load that fails leaves the root as it was.
  qc_PelStorage takeLoaded(unsigned pelSize);

  /// The part of a copy that lies inside both roots.
  struct CopyPart {
    qcPelRect from;
    qcPair<long> to;
  };
  /// Throws qcPel::BadWindow when the copy reaches outside either root, unless it may be clipped.
  CopyPart copyPart(const qcPelRect& rectangle, const qc_PelRoot& to, const qcPair<long>& at, bool clip) const;
  /// Throws qcPel::BadWindow when the rectangle is not inside the root.
  void checkInside(const qcPelRect& rectangle) const;

  qc_PelStorage storage_;

 private:
  friend class qc_RemotePelRoots;
  friend class qc_SlottedPelRoot;

  std::int32_t loadedWidth_ = 0, loadedHeight_ = 0, loadedAlign_ = 1;
  qc_SlottedPelRoot* package_ = nullptr;  // where a pool keeps this root
  std::int32_t remoteCount_ = 0;          // how often the other side counts this proxy
};

/// Throws qcTcpip::NotSupported: there are no pels here to point at.
[[noreturn]] VNXSTD_EXPORT void qf_ThrowRemotePels();

/// A pixel root of pels of type T. Pels lie in memory as qcStoredPel<T>.
template <class T>
class VNXSTD_EXPORT qcPelRoot : public qc_PelRoot {
  static_assert(qcRootPelType<T>, "there are no images of qcPackedRGB15Pel and qcPackedRGB24Pel");

 public:
  using Stored = qcStoredPel<T>;

  /// The empty root.
  qcPelRoot() : qcPelRoot(0, 0) {}
  /// Allocates the pels. Throws qcRectErrors::NegativeSize for a negative size, qcPelFunc::BadParams for an alignment
  /// outside 1 to 65536, qcPelFunc::Range when a row does not fit 32 bits, std::bad_alloc when there is no memory.
  qcPelRoot(long width, long height, long alignModulus = defaultAlignModulus);
  /// Uses the caller's memory, which must outlive the root and is not freed by it. Rows are padded as those of an
  /// allocated root. Throws as above, and qcPelFunc::BadParams when `pels` is null or not aligned for its type.
  qcPelRoot(long width, long height, Stored* pels, long alignModulus);
  /// The same with the caller's own distance between rows, in pels and not less than the width. It is not held against
  /// the alignment.
  qcPelRoot(long width, long height, long rowUpdate, Stored* pels, long alignModulus);
  /// A root on the other side of a communicator, which makes it, with pels of 0, and lets go of it when this proxy goes
  /// or the connection ends. Throws what allocating throws, qcPelFunc::BadParams for a size of 0, and
  /// qcTcpip::AccessFailed when the other side gives no storage for it.
  qcPelRoot(qcCommunicator& communicator, long width, long height, long alignModulus = defaultAlignModulus);

  static qcPersistent* make();
  qePelType pelType() const noexcept override { return qcPelTraits<T>::type; }

  /// Pel (0, 0); pel (x, y) is `rowUpdate() * y + x` pels further. Null for the empty root and for a proxy.
  Stored* pels() noexcept { return static_cast<Stored*>(storage_.pels); }
  const Stored* pels() const noexcept { return static_cast<const Stored*>(storage_.pels); }

  static long padPelsNeeded(long width, long alignModulus) {
    return qc_PelRoot::padPelsNeeded(width, sizeof(Stored), alignModulus);
  }
  using qc_PelRoot::padPelsNeeded;

  /// Copies a rectangle of pels to (at.x, at.y) of `to`, which may be this root, also where both places overlap. With
  /// `clip` the part that lies inside both roots is copied, without it a copy that reaches outside throws
  /// qcPel::BadWindow.
  void copy(const qcPelRect& rectangle, qcPelRoot& to, const qcPair<long>& at, bool clip) const;
  /// A new root with a copy of the rectangle and this root's alignment, of a proxy the usual one. `clip` as above.
  qcPtrHandle<qcPelRoot> copy(const qcPelRect& rectangle, bool clip) const { return copy(rectangle, nullptr, clip); }
  /// The same on the other side of a communicator, unless that is null.
  qcPtrHandle<qcPelRoot> copy(const qcPelRect& rectangle, qcCommunicator* where, bool clip) const;

  /// Reads a rectangle row by row into a vector, which takes its size. Throws qcPel::BadWindow when the rectangle is
  /// not inside the root; cost and memory in proportion to the rectangle.
  void pelsToVect(const qcPelRect& rectangle, std::vector<T>& values) const;
  /// Writes a rectangle row by row from a vector. Throws qcPel::BadWindow as above, qcPelFunc::BadParams when the
  /// vector is not of the rectangle's size, and qcPelFunc::Range for a value that does not fit, before a pel is
  /// written.
  void vectToPels(const qcPelRect& rectangle, const std::vector<T>& values);

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);
  void transferPels(qcArchive& archive, const qcPelRect& rectangle) override;

 private:
  friend class qc_RemotePelRoots;
  explicit qcPelRoot(qc_PelStorage storage) noexcept : qc_PelRoot(std::move(storage)) {}
  qcPelRoot(std::shared_ptr<qc_Link> link, std::uint32_t identity, long width, long height, long alignModulus);
  void vectTransfer(const qcPelRect& rectangle, std::vector<T>& values, bool toRoot);
  Stored* at(long x, long y) const noexcept {
    return static_cast<Stored*>(storage_.pels) + static_cast<std::ptrdiff_t>(rowUpdate()) * y + x;
  }
};

/// A root of three 8-bit planes of the same size, each an image of its own in memory. A plane that another image was
/// loaded into by itself can have rows of its own: rowUpdate and alignModulus are those that the root was made with.
template <>
class VNXSTD_EXPORT qcPelRoot<qc3PlanePel> : public qc_PelRoot {
 public:
  using Stored = qc3PlanePel;
  using Plane = qcPelRoot<unsigned char>;

  qcPelRoot() : qcPelRoot(0, 0) {}
  /// Allocates the planes; throws as the root of 8-bit pels.
  qcPelRoot(long width, long height, long alignModulus = defaultAlignModulus);
  /// Uses the caller's memory for the planes, whose rows start `rowUpdate` pels apart.
  qcPelRoot(long width, long height, long rowUpdate, unsigned char* plane0, unsigned char* plane1,
            unsigned char* plane2, long alignModulus);
  /// As for the other roots.
  qcPelRoot(qcCommunicator& communicator, long width, long height, long alignModulus = defaultAlignModulus);

  static qcPersistent* make();
  qePelType pelType() const noexcept override { return qePelType::ThreePlane; }

  static long padPelsNeeded(long width, long alignModulus) { return Plane::padPelsNeeded(width, alignModulus); }
  using qc_PelRoot::padPelsNeeded;

  /// As for the other roots.
  void copy(const qcPelRect& rectangle, qcPelRoot& to, const qcPair<long>& at, bool clip) const;
  qcPtrHandle<qcPelRoot> copy(const qcPelRect& rectangle, bool clip) const { return copy(rectangle, nullptr, clip); }
  qcPtrHandle<qcPelRoot> copy(const qcPelRect& rectangle, qcCommunicator* where, bool clip) const;
  void pelsToVect(const qcPelRect& rectangle, std::vector<qc3PlanePel>& values) const;
  void vectToPels(const qcPelRect& rectangle, const std::vector<qc3PlanePel>& values);

  void repInvariant() const override;

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);
  void transferPels(qcArchive& archive, const qcPelRect& rectangle) override;

 private:
  friend class qc_RemotePelRoots;
  template <class T>
  friend class qcPelBuffer_const;
  template <class T>
  friend class qcPelBuffer;

  qcPelRoot(std::shared_ptr<qc_Link> link, std::uint32_t identity, long width, long height, long alignModulus);
  void vectTransfer(const qcPelRect& rectangle, std::vector<qc3PlanePel>& values, bool toRoot);
  /// Null in a proxy.
  Plane* plane(int index) const { return planes_[index].rep(); }

  qcPtrHandle<Plane> planes_[3];
};

#define VNXSTD_DECLARE(T) extern template class qcPelRoot<T>;
VNXSTD_FOR_ARRAY_PELS(VNXSTD_DECLARE)
#undef VNXSTD_DECLARE
