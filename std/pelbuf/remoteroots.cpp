#include "std/pelbuf/remoteroots.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

#include "vnxstd/archive/memory.h"
#include "vnxstd/comm/communicator.h"
#include "vnxstd/comm/transfer.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/except/pelerrors.h"

namespace {

constexpr char kSource[] = "std/pelbuf/remoteroots";

// Calls. Numbers that are not here are refused.
constexpr unsigned char kRead = 1, kWrite = 2, kMake = 3, kChangeCount = 4;

// Pels in one call, in bytes: what a call may be long leaves room for the rest.
constexpr long kMostInTile = 1 << 20;

// What an image that the peer makes counts for at least, since it takes memory beside its pels.
constexpr qcUInt64 kLeastImage = 1024;

struct FactoryRegistration {
  FactoryRegistration() {
    qc_CallService::factory = [](qc_Link& link) -> std::shared_ptr<qc_CallService> {
      return std::make_shared<qc_RemotePelRoots>(link);
    };
  }
};
const FactoryRegistration factoryRegistered;

/// Calls then(type_identity) with the pel type. Throws qcArchive::BadType for a number of which there are no images.
template <class Then>
auto withPelType(qePelType type, Then&& then) {
  std::invoke_result_t<Then, std::type_identity<unsigned char>> result{};
  const auto attempt = [&]<class T>(std::type_identity<T> t) {
    if (type != qcPelTraits<T>::type) return false;
    result = then(t);
    return true;
  };
  const auto any = [&]<class... T>(std::type_identity<T>... t) { return (attempt(t) || ...); };
#define VNXSTD_TYPE(T) std::type_identity<T>(),
  if (!any(VNXSTD_FOR_ARRAY_PELS(VNXSTD_TYPE) std::type_identity<qc3PlanePel>())) {
    throw qcArchive::BadType(kSource, 54);
  }
#undef VNXSTD_TYPE
  return result;
}

long pelSize(qePelType type) {
  return withPelType(type, []<class T>(std::type_identity<T>) { return static_cast<long>(sizeof(qcStoredPel<T>)); });
}

/// A rectangle of a root, as calls name it.
struct Place {
  std::uint32_t identity = 0;
  unsigned char type = 0;
  std::int32_t x = 0, y = 0, width = 0, height = 0;

  qcArchive& fields(qcArchive& archive) { return archive || identity || type || x || y || width || height; }
  bool isSmall() const {
    return width > 0 && height > 0 && qcInt64{width} * height <= kMostInTile / pelSize(static_cast<qePelType>(type));
  }
  qcInt64 bytes() const { return qcInt64{width} * height * pelSize(static_cast<qePelType>(type)); }
};

/// Calls work(part, place) for parts of a rectangle that fit a call each.
template <class Work>
void forTiles(const qc_PelRoot& remote, const qcPelRect& rectangle, Work&& work) {
  const long most = kMostInTile / pelSize(remote.pelType());
  const long width = std::min(rectangle.width(), most), height = std::max(most / width, 1L);
  for (long y = 0; y < rectangle.height(); y += height) {
    for (long x = 0; x < rectangle.width(); x += width) {
      const qcPelRect part(x, y, std::min(width, rectangle.width() - x), std::min(height, rectangle.height() - y));
      Place place{remote.remoteIdentity(),
                  static_cast<unsigned char>(remote.pelType()),
                  static_cast<std::int32_t>(rectangle.x0() + x),
                  static_cast<std::int32_t>(rectangle.y0() + y),
                  static_cast<std::int32_t>(part.width()),
                  static_cast<std::int32_t>(part.height())};
      work(part, place);
    }
  }
}

qcPelRect moved(const qcPelRect& part, long x, long y) {
  return {part.x0() + x, part.y0() + y, part.width(), part.height()};
}

}  // namespace

// --- calls ----------------------------------------------------------------------------------------------------------

void qf_RPCPelRootChangeRefCount(qc_Link& link, std::uint32_t identity, std::int32_t change) {
  qcMemoryArchive call(qcArchive::littleEndian, false);
  unsigned char what = kChangeCount;
  call || what || identity || change;
  link.post(call.bytes());
}

std::uint32_t qf_RPCPelRootMake(qc_Link& link, qePelType type, long width, long height, long alignModulus) {
  qcMemoryArchive call(qcArchive::littleEndian, false);
  unsigned char what = kMake, number = static_cast<unsigned char>(type);
  call || what || number || width || height || alignModulus;
  const std::vector<char> bytes = link.call(call.bytes(), true);
  qcMemoryArchive reply(bytes.data(), static_cast<long>(bytes.size()), false);
  bool isGood = false;
  std::uint32_t identity = 0;
  reply || isGood || identity;
  return identity;
}

void qf_RPCPelRootCopy(const qc_PelRoot& from, const qcPelRect& rectangle, qc_PelRoot& to, const qcPair<long>& at) {
  if (from.isRemote() && to.isRemote()) {  // which may be the same root
    const auto between = qc_RemotePelRoots::makeLocal(from.pelType(), rectangle.width(), rectangle.height(), 1);
    qf_RPCPelRootCopy(from, rectangle, *between, {0, 0});
    qf_RPCPelRootCopy(*between, between->rect(), to, at);
    return;
  }
  if (from.isRemote()) {
    forTiles(from, rectangle, [&](const qcPelRect& part, Place& place) {
      qcMemoryArchive call(qcArchive::littleEndian, false);
      unsigned char what = kRead;
      call || what;
      place.fields(call);
      const std::vector<char> bytes = qc_RemotePelRoots::linkOf(from).call(call.bytes());
      qcMemoryArchive reply(bytes.data(), static_cast<long>(bytes.size()), false);
      bool isGood = false;
      reply || isGood;
      if (reply.remaining() != place.bytes()) throw qcArchive::BadContent(kSource, 133);
      qc_RemotePelRoots::transferPels(to, reply, moved(part, at.x(), at.y()));
    });
  } else {
    auto& source = const_cast<qc_PelRoot&>(from);  // storing changes nothing
    forTiles(to, qcPelRect(at.x(), at.y(), rectangle.width(), rectangle.height()),
             [&](const qcPelRect& part, Place& place) {
               qcMemoryArchive call(qcArchive::littleEndian, false);
               unsigned char what = kWrite;
               call || what;
               place.fields(call);
               qc_RemotePelRoots::transferPels(source, call, moved(part, rectangle.x0(), rectangle.y0()));
               qc_RemotePelRoots::linkOf(to).call(call.bytes());
             });
  }
}

void qc_RemotePelRoots::answer(qcArchive& call, qcArchive& reply) {
  unsigned char what = 0;
  call || what;
  if (what == kRead || what == kWrite) {
    answerPels(what == kWrite, call, reply);
  } else if (what == kMake) {
    unsigned char type = 0;
    std::int32_t width = 0, height = 0, alignModulus = 0;
    call || type || width || height || alignModulus;
    std::uint32_t identity = makeForPeer(static_cast<qePelType>(type), width, height, alignModulus);
    reply || identity;
  } else if (what == kChangeCount) {
    readChange(call);
  } else {
    throw qcTcpip::NotSupported();
  }
}

void qc_RemotePelRoots::notice(qcArchive& call) {
  unsigned char what = 0;
  call || what;
  if (what != kChangeCount) throw qcTcpip::NotSupported();
  readChange(call);
}

void qc_RemotePelRoots::undo(qcArchive& reply) {
  std::uint32_t identity = 0;
  reply || identity;
  qf_RPCPelRootChangeRefCount(link_, identity, -1);
}

void qc_RemotePelRoots::readChange(qcArchive& call) {
  std::uint32_t identity = 0;
  std::int32_t change = 0;
  call || identity || change;
  changeCount(identity, change);
}

void qc_RemotePelRoots::answerPels(bool isWritten, qcArchive& call, qcArchive& reply) {
  Place place;
  place.fields(call);
  const auto root = find(place.identity);
  if (static_cast<unsigned char>(root->pelType()) != place.type) throw qcRemoteObject::ObjectMismatch();
  if (!place.isSmall()) throw qcPelFunc::BadParams();
  const qcPelRect rectangle(place.x, place.y, place.width, place.height);
  if (!root->contains(rectangle)) throw qcPel::BadWindow();
  if (isWritten && call.remaining() != place.bytes()) throw qcArchive::BadContent(kSource, 181);
  if (!root->isRemote()) {
    root->transferPels(isWritten ? call : reply, rectangle);
    return;
  }
  const auto between = makeLocal(root->pelType(), place.width, place.height, 1);
  if (isWritten) {
    between->transferPels(call, between->rect());
    qf_RPCPelRootCopy(*between, between->rect(), *root, rectangle.ul());
  } else {
    qf_RPCPelRootCopy(*root, rectangle, *between, {0, 0});
    between->transferPels(reply, between->rect());
  }
}

// --- roots of this side ---------------------------------------------------------------------------------------------

std::shared_ptr<qc_RemotePelRoots> qc_RemotePelRoots::of(qc_Link& link) {
  auto service = link.lastService();
  if (!service) service = link.service();
  if (!service) throw qcTcpip::ConnectionBroken();
  return std::static_pointer_cast<qc_RemotePelRoots>(std::move(service));
}

// Under the lock.
std::uint32_t qc_RemotePelRoots::enter(qc_PelRoot& root, qcUInt64 bytes) {
  do {
    ++lastNumber_;
  } while (lastNumber_ == 0 || lent_.contains(lastNumber_));
  const auto number = numbers_.emplace(&root, lastNumber_).first;
  try {
    lent_.emplace(lastNumber_, Lent{&root, 1, bytes});
  } catch (...) {
    numbers_.erase(number);
    throw;
  }
  return lastNumber_;
}

std::uint32_t qc_RemotePelRoots::lend(qc_PelRoot& root) {
  const std::lock_guard guard(mutex_);
  const auto known = numbers_.find(&root);
  if (known == numbers_.end()) return enter(root, 0);
  ++lent_.find(known->second)->second.count;
  return known->second;
}

qcPtrHandle<qc_PelRoot> qc_RemotePelRoots::find(std::uint32_t identity) {
  const std::lock_guard guard(mutex_);
  const auto lent = lent_.find(identity);
  if (lent == lent_.end()) throw qcArchive::NotFound(kSource, 224);
  return lent->second.root;
}

qcPtrHandle<qc_PelRoot> qc_RemotePelRoots::takeBack(std::uint32_t identity) {
  qcPtrHandle<qc_PelRoot> root = find(identity);
  changeCount(identity, -1);
  return root;
}

void qc_RemotePelRoots::changeCount(std::uint32_t identity, std::int32_t change) {
  qcPtrHandle<qc_PelRoot> last;  // goes after the lock
  const std::lock_guard guard(mutex_);
  const auto lent = lent_.find(identity);
  if (lent == lent_.end()) return;
  lent->second.count += change;
  if (lent->second.count > 0) return;
  last = lent->second.root;
  madeBytes_ -= lent->second.bytes;
  numbers_.erase(last.rep());
  lent_.erase(lent);
}

qcPtrHandle<qc_PelRoot> qc_RemotePelRoots::makeLocal(qePelType type, long width, long height, long alignModulus) {
  using Root = qcPtrHandle<qc_PelRoot>;
  return withPelType(type, [&]<class T>(std::type_identity<T>) -> Root {
    auto* const root = new qcPelRoot<T>(width, height, alignModulus);
    Root result(root);
    const auto clear = [](auto& flat) {
      using Pel = std::remove_pointer_t<decltype(flat.pels())>;
      const auto pels = static_cast<std::size_t>(flat.rowUpdate()) * static_cast<std::size_t>(flat.height());
      std::fill_n(flat.pels(), pels, Pel());
    };
    if constexpr (std::is_same_v<T, qc3PlanePel>) {
      for (int i = 0; i < 3; ++i) clear(*root->plane(i));
    } else {
      clear(*root);
    }
    return result;
  });
}

std::uint32_t qc_RemotePelRoots::makeForPeer(qePelType type, long width, long height, long alignModulus) {
  if (width < 1 || height < 1) throw qcPelFunc::BadParams();
  const auto size = static_cast<unsigned>(pelSize(type));
  const qc_PelStorage geometry(width, height, type == qePelType::ThreePlane ? 1 : size, alignModulus);
  const auto rowBytes = static_cast<qcUInt64>(geometry.rowUpdate) * size, rows = static_cast<qcUInt64>(height);
  qcUInt64 bytes = 0;
  {
    const std::lock_guard guard(mutex_);
    const qcUInt64 most = link_.peerStorage.load();
    const qcUInt64 left = most > madeBytes_ ? most - madeBytes_ : 0;
    if (left < kLeastImage || rows > left / rowBytes) throw qcTcpip::AccessFailed();
    bytes = std::max(rowBytes * rows, kLeastImage);
    madeBytes_ += bytes;
  }
  try {
    const auto root = makeLocal(type, width, height, alignModulus);
    const std::lock_guard guard(mutex_);
    return enter(*root, bytes);
  } catch (...) {
    const std::lock_guard guard(mutex_);
    madeBytes_ -= bytes;
    throw;
  }
}

// --- roots of the other side ----------------------------------------------------------------------------------------

qcPtrHandle<qc_PelRoot> qc_RemotePelRoots::proxy(const std::shared_ptr<qc_Link>& link, std::uint32_t identity,
                                                 long width, long height, qePelType type) {
  using Root = qcPtrHandle<qc_PelRoot>;
  Root known;
  const std::lock_guard guard(mutex_);
  const auto found = proxies_.find(identity);
  if (found != proxies_.end() && qcRepBase::refIncIfOwned(found->second)) {
    known = Root(found->second, qc_AdoptCount());
    ++known->remoteCount_;
    if (known->width() != width || known->height() != height) throw qcRemoteObject::ObjectMismatch();
    return known;
  }
  try {
    known = withPelType(type, [&]<class T>(std::type_identity<T>) -> Root {
      return new qcPelRoot<T>(link, identity, width, height, 1);
    });
  } catch (...) {
    qf_RPCPelRootChangeRefCount(*link, identity, -1);
    throw;
  }
  known->remoteCount_ = 1;
  proxies_[identity] = known.rep();  // also in the place of one that is being destroyed
  return known;
}

void qc_RemotePelRoots::add(qc_PelRoot& proxy) {
  const std::lock_guard guard(mutex_);
  proxies_[proxy.remoteIdentity()] = &proxy;
  proxy.remoteCount_ = 1;
}

std::int32_t qc_RemotePelRoots::remove(const qc_PelRoot& proxy) noexcept {
  const std::lock_guard guard(mutex_);
  const auto found = proxies_.find(proxy.remoteIdentity());
  if (found != proxies_.end() && found->second == &proxy) proxies_.erase(found);
  return proxy.remoteCount_;
}

qcPtrHandle<qc_PelRoot> qf_GetRemotePelRoot(const std::shared_ptr<qc_Link>& link, std::uint32_t identity, long width,
                                            long height, qePelType type) {
  return qc_RemotePelRoots::of(*link)->proxy(link, identity, width, height, type);
}

void qf_AddRemotePelRoot(qc_PelRoot& proxy) { qc_RemotePelRoots::of(qc_RemotePelRoots::linkOf(proxy))->add(proxy); }

void qf_RemoveRemotePelRoot(qc_PelRoot& proxy) noexcept {
  try {
    qc_Link& link = qc_RemotePelRoots::linkOf(proxy);
    // Also when the connection has ended: whoever still uses the table must not find the proxy there.
    const auto roots = std::static_pointer_cast<qc_RemotePelRoots>(link.lastService());
    const std::int32_t count = roots ? roots->remove(proxy) : 0;
    if (count > 0) qf_RPCPelRootChangeRefCount(link, proxy.remoteIdentity(), -count);
  } catch (const qcException&) {  // the peer forgets when the connection ends
  } catch (const std::bad_alloc&) {
  }
}

void qf_TransferPelRoot(qcTransferArchive& archive, qcPtrHandle<qc_PelRoot>& root, qePelType type) {
  const std::shared_ptr<qc_Link>& link = archive.connectedTo().link();
  bool isBound = !root.isNull();
  bool isWritersOwn = isBound && !(root->isRemote() && &qc_RemotePelRoots::linkOf(*root) == link.get());
  std::uint32_t identity = 0;
  std::int32_t width = 0, height = 0;
  std::shared_ptr<qc_CallService> service;
  if (archive.isStoring() && isBound) {
    width = static_cast<std::int32_t>(root->width());
    height = static_cast<std::int32_t>(root->height());
    if (!isWritersOwn) {
      // One of the counts of this side goes with the message, so that the root is there when it is loaded.
      identity = root->remoteIdentity();
      qf_RPCPelRootChangeRefCount(*link, identity, 1);
    } else if (width != 0) {
      identity = qc_RemotePelRoots::of(*link)->lend(*root);
    }
  }
  try {
    archive || isBound || isWritersOwn;
    if (archive.isLoading()) service = link->lastService();  // which goes with the last byte of the frame
    archive || identity || width || height;
  } catch (...) {  // a reference that does not get there whole counts for nothing
    if (archive.isStoring() && identity != 0) {
      const auto roots = std::static_pointer_cast<qc_RemotePelRoots>(link->lastService());
      if (!isWritersOwn) {
        qf_RPCPelRootChangeRefCount(*link, identity, -1);
      } else if (roots) {
        roots->changeCount(identity, -1);
      }
    }
    throw;
  }
  if (archive.isStoring()) return;
  if (!isBound) {
    root = nullptr;
  } else if (!isWritersOwn) {
    root = qc_RemotePelRoots::of(*link)->takeBack(identity);
    if (root->width() != width || root->height() != height) throw qcRemoteObject::ObjectMismatch();
  } else if (width == 0 && height == 0) {
    root = qc_RemotePelRoots::makeLocal(type, 0, 0, 1);
  } else if (width < 1 || height < 1) {
    throw qcArchive::BadContent(kSource, 362);
  } else {
    root = qf_GetRemotePelRoot(link, identity, width, height, type);
  }
}
