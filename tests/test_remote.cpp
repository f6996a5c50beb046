// Images on the other side of a connection.

#include <netinet/in.h>
#include <sys/socket.h>

#include "support/bytes.h"
#include "support/peer.h"
#include "support/test.h"
#include "vnxstd/archive/memory.h"
#include "vnxstd/comm/transfer.h"
#include "vnxstd/except.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/timer.h"

namespace {

using Dir = qcArchive::Direction;
using Grey = qcPelBuffer<unsigned char>;

template <class T>
qcPelBuffer<T> noise(long width, long height, unsigned seed = 1) {
  qcPelBuffer<T> image(width, height);
  std::mt19937 random(seed);
  std::vector<qcStoredPel<T>> pels(static_cast<std::size_t>(width * height));
  for (auto& pel : pels) {
    if constexpr (std::is_floating_point_v<T>) {
      pel = static_cast<T>(random());
    } else {  // any bits are a pel, of pairs of floats these
      for (std::size_t i = 0; i < sizeof pel; ++i)
        reinterpret_cast<unsigned char*>(&pel)[i] = static_cast<unsigned char>(random() % 100);
    }
  }
  image.copyFromBuffer(pels.data());
  return image;
}

template <class T>
bool sameBytes(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b) {
  const auto n = static_cast<std::size_t>(a.width() * a.height());
  std::vector<qcStoredPel<T>> x(n), y(n);
  a.copyToBuffer(x.data()), b.copyToBuffer(y.data());
  return a.size() == b.size() && std::memcmp(x.data(), y.data(), n * sizeof x[0]) == 0;
}

std::string nameOf(const qcException& error) { return qcDevEnv::canonicalTypeName(typeid(error).name()); }

using Ends = std::pair<std::unique_ptr<qcCommunicator>, std::unique_ptr<qcCommunicator>>;

Ends overTcp() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0), first = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof address;
  auto* const at = reinterpret_cast<sockaddr*>(&address);
  EXPECT_TRUE(bind(listener, at, size) == 0 && listen(listener, 1) == 0 && getsockname(listener, at, &size) == 0 &&
              connect(first, at, size) == 0);
  const int second = accept(listener, nullptr, nullptr);
  close(listener);
  return {std::make_unique<qcCommunicator>(first), std::make_unique<qcCommunicator>(second)};
}

/// Both ends of a connection within this thread, and an image that one has lent to the other.
struct Pair {
  explicit Pair(Ends ends = qcCommunicator::loopback()) {
    std::tie(owner, user) = std::move(ends);
    out = owner->archive(Dir::storing), back = user->archive(Dir::storing);
    out->flush(), back->flush();
    in = user->archive(Dir::loading), home = owner->archive(Dir::loading);
  }
  Grey lend(Grey& image) {
    Grey proxy;
    *out || image;
    out->flush();
    *in || proxy;
    return proxy;
  }
  std::unique_ptr<qcCommunicator> owner, user;
  std::unique_ptr<qcTransferArchive> out, back, in, home;
};

// --- two processes --------------------------------------------------------------------------------------------------

template <class T>
class RemoteImage : public testing::Test {};
using Types = testing::Types<unsigned char, signed char, unsigned short, short, unsigned long, long, float, double,
                             qcPair<long>, qcPair<float>, qcPackedRGB16Pel, qcPackedRGB32Pel, qc3PlanePel>;
TYPED_TEST_SUITE(RemoteImage, Types);

TYPED_TEST(RemoteImage, IsReadAndWrittenByAnotherProcessAndComesHome) {
  using Image = qcPelBuffer<TypeParam>;
  // Wider than high, and more than goes into a call at once.
  constexpr long kWidth = 1500, kHeight = 1100;
  const auto written = noise<TypeParam>(kWidth, kHeight, 7);
  Peer peer([&](qcCommunicator& communicator) {
    const auto in = communicator.archive(Dir::loading), out = communicator.archive(Dir::storing);
    Image image;
    *in || image;
    Image copy = qfPelCopy(image, nullptr), small = image;
    small.subWindow(1, 2, 3, 4);
    Image line = image, nothing, alone(communicator, 2, 2);
    line.subWindow(4, 0, 0, 3);
    line.copyToBuffer(nullptr), qfPelCopy(line, nothing);
    qfPelNoShare(alone);
    EXPECT_FALSE(alone.isRemote()) << "the other side could write it";
    std::vector<TypeParam> values;
    small.rep()->pelsToVect(small.windowRoot(), values);
    if constexpr (!std::is_same_v<TypeParam, qc3PlanePel>) {
      EXPECT_EQ(image.get(image.offset().x() + 3, image.offset().y() + 5), copy.get(14, 27));
      EXPECT_THROW(image.pointToPel(image.offset()), qcTcpip::NotSupported);
      EXPECT_THROW(image.pointToRow(image.offset().y()), qcTcpip::NotSupported);
    }
    std::reverse(values.begin(), values.end());
    image.rep()->vectToPels(small.windowRoot(), values);
    image.put(13, 29, values[0]);
    *out || image || copy;  // the copy is one of this side
    out->flush();
    Image target = written;
    Image moved = qfPelMove(written, &communicator);  // to the other side
    *out || moved;
    out->flush();
    EXPECT_TRUE(moved.isRemote() && sameBytes<TypeParam>(moved, written));
    out->reserve8();
  });
  Image image = noise<TypeParam>(kWidth + 20, kHeight + 20);
  const Image expected = qfPelCopy(image);
  std::vector<TypeParam> values;
  expected.rep()->pelsToVect(qcPelRect(11, 22, 3, 4), values);
  std::reverse(values.begin(), values.end());
  expected.rep()->vectToPels(qcPelRect(11, 22, 3, 4), values);
  expected.put(12, 27, values[0]);
  peer.end->peerStorage(50'000'000);
  image.subWindow(10, 20, kWidth, kHeight);
  const Image before = qfPelCopy(image);
  image.offset(11, 22);
  image.clientFromImageXform(qcXform<2>(qcMatrix<2>(2, 0, 0, 3), {4, 5}));
  const auto out = peer.end->archive(Dir::storing);
  *out || image;
  out->flush();
  const auto in = peer.end->archive(Dir::loading);
  Image back, copy, moved;
  *in || back || copy;  // answers what the other one asks meanwhile
  EXPECT_TRUE(back == image && back.rep() == image.rep() &&
              back.clientFromImageXform() == image.clientFromImageXform());
  EXPECT_TRUE(copy.isRemote() && copy.refc() == 1);
  Image fetched;
  qfPelCopy(copy, fetched);
  EXPECT_TRUE(sameBytes<TypeParam>(fetched, before));
  image.setEntire();
  EXPECT_TRUE(sameBytes<TypeParam>(expected, image));
  *in || moved;
  EXPECT_TRUE(!moved.isRemote() && sameBytes<TypeParam>(moved, written));
  in->reserve8();
}

// --- who holds what -------------------------------------------------------------------------------------------------

TEST(RemoteRoots, AreHeldAsLongAsThePeerHasThem) {
  Pair pair;
  Grey image = noise<unsigned char>(30, 20), other(3, 3), empty, pointless(0, 0);
  Grey first = pair.lend(image), second = pair.lend(image), third = pair.lend(other);
  EXPECT_TRUE(first.rep() == second.rep() && first.sharesPels(second) && third.rep() != first.rep());
  EXPECT_TRUE(first.rep()->communicator() == pair.user.get() && first.size() == image.size());
  first.repInvariant();
  EXPECT_FALSE(pair.lend(empty).isBound());
  EXPECT_TRUE(pair.lend(pointless).isBound() && !pair.lend(pointless).isRemote());
  EXPECT_EQ(image.refc(), 2);
  first.setUnbound();
  pair.owner->serve(0);
  EXPECT_EQ(image.refc(), 2);
  // Sent back and let go of before it is loaded.
  *pair.back || second || second;
  second.setUnbound();
  pair.back->flush();
  pair.owner->serve(0);
  EXPECT_EQ(image.refc(), 2);
  Grey back;
  *pair.home || back;
  EXPECT_TRUE(back == image);
  back.setUnbound();
  EXPECT_EQ(image.refc(), 2) << "one reference is on its way yet";
  *pair.home || back;
  back.setUnbound();
  EXPECT_EQ(image.refc(), 1);
  EXPECT_EQ(other.refc(), 2);
  pair.user.reset();
  EXPECT_TRUE(pair.owner->serve(30));
  EXPECT_EQ(other.refc(), 1) << "the peer has gone";
  EXPECT_THROW(third.get(0, 0), qcTcpip::ConnectionBroken);
  EXPECT_EQ(third.rep()->communicator(), nullptr);
  EXPECT_THROW(*pair.out || image, qcTcpip::ConnectionBroken);
}

TEST(RemoteRoots, OfOtherConnectionsArePassedOn) {
  Pair near, far;
  Grey image = noise<unsigned char>(9, 7);
  Grey middle = near.lend(image), end = far.lend(middle);
  qcTimeout limit(1000);
  std::jthread serving([&] { near.owner->serve(5); }), passing([&] { far.owner->serve(5); });
  EXPECT_TRUE(end.isRemote() && sameBytes<unsigned char>(end, image));
  end.put(3, 4, 77);
  EXPECT_EQ(image.get(3, 4), 77);
  near.user.reset(), far.user.reset();
}

TEST(RemoteRoots, AreMadeWithinTheStorageThatIsGiven) {
  Pair pair;
  std::jthread serving([&] { pair.owner->serve(30); });
  EXPECT_THROW(Grey(*pair.user, 1, 1), qcTcpip::AccessFailed);
  pair.owner->peerStorage(2 * 64 * 50);
  for (int round = 0; round < 3; ++round) {  // what is let go of is free again
    const Grey first(*pair.user, 10, 50), second(*pair.user, 64, 50);
    EXPECT_TRUE(first.get(9, 49) == 0 && second.get(0, 0) == 0);
    EXPECT_THROW(Grey(*pair.user, 1, 1), qcTcpip::AccessFailed);
  }
  {
    std::vector<Grey> small;
    for (int i = 0; i < 6; ++i) small.emplace_back(*pair.user, 1, 1);
    EXPECT_THROW(Grey(*pair.user, 1, 1), qcTcpip::AccessFailed) << "an image is more than its pels";
  }
  for (const long size : {0L, -1L}) EXPECT_THROW(Grey(*pair.user, size, 5), qcException);
  EXPECT_THROW(Grey(*pair.user, INT32_MAX - 64, INT32_MAX), qcTcpip::AccessFailed);
  const Grey local = noise<unsigned char>(8, 8), there = qfPelCopy(local, pair.user.get());
  EXPECT_TRUE(there.isRemote() && qfPelMove(there, pair.user.get()) == there && qfPelMove(local, nullptr) == local);
  Grey here = noise<unsigned char>(8, 8, 5), part = there;
  part.subWindow(0, 0, 8, 4);
  qfPelMove(here, part);
  Grey shifted = there;
  shifted.subWindow(0, 2, 8, 6);
  shifted.offset(0, 0);
  qfPelMove(there, shifted);  // within one root over there
  for (long y = 0; y < 8; ++y) {
    const long from = y < 2 ? y : y - 2;
    EXPECT_EQ(there.get(5, y), from < 4 ? here.get(5, from) : local.get(5, from)) << y;
  }
  // Functions that need addresses refuse; archives of other kinds store the pels.
  Grey result;
  EXPECT_THROW(qfPelAdd(there, local, result), qcTcpip::NotSupported);
  EXPECT_THROW(qfPelSet(there, static_cast<unsigned char>(1)), qcTcpip::NotSupported);
  EXPECT_FALSE(result.isBound());
  qcMemoryArchive archive(qcArchive::littleEndian, true);
  const auto start = archive.tell();
  archive << there;
  archive.seek(start);
  archive.mode(qcArchive::loading);
  archive >> result;
  EXPECT_TRUE(!result.isRemote() && sameBytes<unsigned char>(result, there));
  EXPECT_THROW(archive >> *there.rep(), qcException);
  EXPECT_TRUE(sameBytes<unsigned char>(result, there));
  pair.user.reset();
}

// --- waits ----------------------------------------------------------------------------------------------------------

TEST(RemoteRoots, CallsThatNobodyAnswersTimeOutAndLaterOnesWork) {
  Pair pair;
  Grey image = noise<unsigned char>(2000, 1200), proxy = pair.lend(image);
  for (const double seconds : {0.01, 0.0, -1.0, std::nan("")}) {
    pair.user->timeOut(seconds);
    EXPECT_THROW(proxy.get(1, 2), qcTcpip::Timeout);
    EXPECT_THROW(qfPelCopy(image, pair.user.get()), qcTcpip::Timeout);
  }
  pair.user->timeOut(30);
  {
    const qcTimeout limit(0.01);
    EXPECT_THROW(qfPelCopy(proxy), qcTimeout::Expired);
  }
  int answer = 5;
  *pair.out || answer;  // a message that comes before the pels
  pair.out->flush();
  std::jthread serving([&] { EXPECT_TRUE(pair.owner->serve(30)); });
  EXPECT_TRUE(sameBytes<unsigned char>(proxy, image)) << "late answers are dropped";
  *pair.in || answer;
  pair.user.reset();
}

TEST(RemoteRoots, ThreadsOfBothSidesSendMoreThanTheConnectionHolds) {
  Pair pair;
  Grey mine = noise<unsigned char>(2000, 2000), yours = noise<unsigned char>(2000, 2000, 2), other;
  const Grey proxy = pair.lend(mine);
  *pair.back || yours;
  pair.back->flush();
  *pair.home || other;
  std::atomic<int> done{0};
  const auto exchange = [&](const Grey& remote, const Grey& local, qcCommunicator& end, auto& out, auto& in) {
    const Grey written = noise<unsigned char>(2000, 2000, 3);
    EXPECT_TRUE(sameBytes<unsigned char>(qfPelCopy(remote), local));
    std::vector<unsigned char> stored(3000000, 7), loaded;
    *out || stored;
    out->flush();
    *in || loaded;
    EXPECT_TRUE(loaded == stored);
    written.rep()->copy(written.rep()->rect(), *remote.rep(), {0, 0}, false);
    for (++done; done < 2;) end.serve(0.01);
    EXPECT_TRUE(sameBytes<unsigned char>(written, local));
  };
  std::jthread there([&] { exchange(proxy, mine, *pair.user, pair.back, pair.in); });
  exchange(other, yours, *pair.owner, pair.out, pair.home);
}

TEST(RemoteRoots, WhatComesTooLateOrNotAtAllIsNotKept) {
  Pair pair;
  pair.owner->peerStorage(1024);
  pair.user->timeOut(0.01);
  EXPECT_THROW(Grey(*pair.user, 64, 16), qcTcpip::Timeout);
  for (auto* end : {pair.owner.get(), pair.user.get(), pair.owner.get()}) end->serve(0.01);
  std::jthread serving([&] { EXPECT_TRUE(pair.owner->serve(30)); });
  pair.user->timeOut(30);
  EXPECT_TRUE(Grey(*pair.user, 64, 16).isRemote()) << "the storage is free again";
  pair.user.reset();
  Pair stuck;
  Grey image(3, 3), later(3, 3);
  EXPECT_THROW(stuck.user->send(std::vector<char>(50000000).data(), 50000000, qcDeadline(0.0)), qcTcpip::Timeout);
  stuck.back->timeOut(0);
  *stuck.back || image;
  EXPECT_THROW(stuck.back->flush(), qcTcpip::Timeout);
  EXPECT_THROW(*stuck.back || later, qcTcpip::ConnectionBroken);
  EXPECT_EQ(later.refc(), 1);
}

TEST(RemoteRoots, ThreadsShareAConnection) {
  Pair pair;
  Grey mine = noise<unsigned char>(300, 10), yours = noise<unsigned char>(300, 10, 2), back;
  Grey proxy = pair.lend(mine), other;
  *pair.back || yours;
  pair.back->flush();
  *pair.home || other;
  std::vector<std::jthread> threads;
  for (const auto& [remote, local] : {std::pair(proxy, mine), std::pair(other, yours)}) {
    for (int id = 0; id < 3; ++id) {
      threads.emplace_back([remote = remote, local = local, id] {
        for (long i = 0; i < 300; ++i) EXPECT_EQ(remote.get(i, id), local.get(i, id));
      });
    }
  }
  threads.emplace_back([&] {
    for (int i = 0; i < 200; ++i) {
      Grey image(3, 3);
      *pair.out || image;
      pair.out->flush();
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < 200; ++i) {
      Grey image;
      *pair.in || image;
      EXPECT_EQ(image.width(), 3);
    }
  });
  threads.emplace_back([&] { pair.owner->serve(1); });
  threads.emplace_back([&] { pair.user->serve(1); });
  threads.clear();
}

TEST(RemoteRoots, WhatASideLeavesWhenItsTimeIsUpIsSentByAnother) {
  Pair pair;
  Grey image = noise<unsigned char>(1000, 1000), proxy = pair.lend(image);
  pair.user->timeOut(0);
  EXPECT_THROW(qfPelCopy(proxy), qcTcpip::Timeout);  // has asked
  std::jthread brief([&] { EXPECT_FALSE(pair.owner->serve(0.1)); });
  std::vector<char> reply(1000011);
  pair.user->receive(reply.data(), 1, qcDeadline(30.0));
  std::jthread steady([&] { EXPECT_TRUE(pair.owner->serve(30)); });
  brief.join();
  EXPECT_NO_THROW(pair.user->receive(reply.data(), 1000010, qcDeadline(5.0)));
  pair.user.reset();
}

TEST(RemoteRoots, WhatWasFlushedOutlivesTheSenderOverTcp) {
  Pair pair(overTcp());
  Grey image(8, 8);
  pair.lend(image);  // and lets go of it, which the owner does not read
  std::vector<double> sent(15000, 1.5), come;
  *pair.out || sent;
  pair.out->flush();
  pair.out.reset(), pair.home.reset(), pair.owner.reset();
  EXPECT_NO_THROW(*pair.in || come);
  EXPECT_TRUE(come == sent);
}

TEST(RemoteRoots, ConnectionsAndTimeMayEndWhileAnAnswerIsUnderWay) {
  Pair near, far;
  Grey image(4, 4), middle = near.lend(image), end = far.lend(middle);
  char call[32];
  far.user->timeOut(5);
  {
    const std::jthread passing([&] {
      const qcTimeout limit(0.02);
      EXPECT_THROW(far.owner->serve(30), qcTimeout::Expired);
    });
    EXPECT_THROW(end.get(0, 0), qcTcpip::Timeout) << "of the side between";
  }
  std::jthread passing([&serving = *far.owner] { EXPECT_TRUE(serving.serve(30)); });
  std::jthread asking([&] { EXPECT_THROW(end.get(0, 0), qcTcpip::ConnectionBroken); });
  for (int passedOn = 0; passedOn < 2; ++passedOn) near.owner->receive(call, 32, qcDeadline(30.0));
  far.out.reset(), far.home.reset(), far.owner.reset();
  near.owner->finishSending();
}

TEST(RemoteRoots, OfASideThatHasGoneDoNotEndTheConnectionThatPassedThemOn) {
  Pair near, far;
  Grey image(4, 4), middle = near.lend(image), end = far.lend(middle);
  near.owner->finishSending();
  const std::jthread passing([&] { EXPECT_TRUE(far.owner->serve(30)); });
  EXPECT_THROW(end.get(0, 0), qcTcpip::AccessFailed);
  far.user->finishSending();
}

TEST(RemoteRoots, OfOneCalibrationAreLoadedMessageByMessage) {
  Pair pair;
  Grey first(4, 4), come;
  first.clientFromImageXform(qcXform<2>(qcMatrix<2>(2, 0, 0, 3), {4, 5}));
  for (const bool isSkipped : {false, true, false, false}) {
    Grey frame(4, 4);
    frame.copyXforms(first);
    int number = 0;
    *pair.out || number || frame;
    pair.out->flush();
    *pair.in || number;
    come = Grey();
    isSkipped ? pair.in->nextMessage() : static_cast<void>(*pair.in || come);
    EXPECT_TRUE(isSkipped || come.clientFromImageXform() == first.clientFromImageXform());
  }
}

TEST(RemoteRoots, ComeAndComeHomeInAMessageThatWasReceivedBeforeTheEnd) {
  Pair pair, other;
  Grey image(9, 9), home, come;
  int number = 0;
  Grey proxy = pair.lend(image);
  *pair.back || number || proxy;
  *other.out || number || image;
  pair.back->flush(), other.out->flush();
  pair.user->finishSending(), other.owner->finishSending();
  *pair.home || number;
  for (auto* end : {pair.owner.get(), other.user.get()}) EXPECT_TRUE(end->serve(30));
  *pair.home || home;
  *other.in || number || come;
  EXPECT_TRUE(home.rep() == image.rep() && come.isRemote());
  other.owner.reset();
  EXPECT_THROW(*pair.home || home, qcTcpip::ConnectionBroken);
  home = Grey();
  EXPECT_EQ(image.rep()->refc(), 1) << "what was lent is let go of";
}

// --- what comes from a peer that means no good ----------------------------------------------------------------------

/// A call as bytes.
template <class... Fields>
std::string callOf(Fields... fields) {
  qcMemoryArchive body(qcArchive::littleEndian, false);
  ((body || fields), ...);
  const auto bytes = body.bytes();
  std::string frame = fromHex("00000000 01000000") + std::string(bytes.begin(), bytes.end());
  const auto count = static_cast<std::uint32_t>(frame.size() - 4) | 0xC0000000u;
  for (unsigned i = 0; i < 4; ++i) frame[i] = static_cast<char>(count >> (8 * i));
  return frame;
}

/// Sends a call; the class of the error that comes back, nothing for none.
template <class... Fields>
std::string ask(qcCommunicator& end, Fields... fields) {
  const std::string frame = callOf(fields...);
  end.send(frame.data(), frame.size(), qcDeadline(30.0));
  unsigned char head[4];
  end.receive(reinterpret_cast<char*>(head), 4, qcDeadline(30.0));
  EXPECT_EQ(head[3], 0xA0);
  std::string reply(head[0] + head[1] * 256u + head[2] * 65536u, 0);
  end.receive(reply.data(), reply.size(), qcDeadline(30.0));
  qcMemoryArchive archive(reply.data() + 4, static_cast<long>(reply.size()) - 4, false);
  bool isGood = false;
  archive || isGood;
  if (isGood) return "";
  std::unique_ptr<qcException> error;
  archive || error;
  return nameOf(*error);
}

TEST(RemoteRoots, NothingIsGivenThatWasNotLent) {
  auto [mine, other] = qcCommunicator::loopback();
  Grey image = noise<unsigned char>(5, 4), secret = noise<unsigned char>(5, 4, 3);
  const Grey before = qfPelCopy(image);
  {
    auto [third, fourth] = qcCommunicator::loopback();
    const auto out = third->archive(Dir::storing);
    *out || secret || image || secret;  // over another connection
    const auto lends = mine->archive(Dir::storing);
    *lends || image;
    lends->flush();
    std::jthread serving([&m = *mine] { EXPECT_TRUE(m.serve(30)); });
    char message[1024];
    other->receive(message, 4, qcDeadline(30.0));
    other->receive(message, static_cast<unsigned char>(message[0]) + 256u * static_cast<unsigned char>(message[1]),
                   qcDeadline(30.0));
    using U8 = unsigned char;
    const auto read = [&o = *other](std::uint32_t identity, int type, int x, int y, int w, int h) {
      return ask(o, U8{1}, identity, static_cast<U8>(type), x, y, w, h);
    };
    EXPECT_EQ(read(1, 1, 0, 0, 5, 4), "");
    image.put(0, 0, 7), image.put(1, 0, 9);
    const std::string call = fromHex("1C0000C0 05000000 0201 01 01000000 01 0000000000000000 0200000001000000");
    other->send(call.data(), call.size(), qcDeadline(30.0));
    std::string reply(13, 0);
    other->receive(reply.data(), reply.size(), qcDeadline(30.0));
    EXPECT_EQ(reply, fromHex("090000A0 05000000 020101 0709"));
    for (const std::uint32_t identity : {0u, 2u, 3u, 0x80000000u, 0xFFFFFFFFu})
      EXPECT_EQ(read(identity, 1, 0, 0, 1, 1), "qcArchive::NotFound");
    for (const int type : {0, 2, 3, 8, 11, 15, 16, 255})
      EXPECT_EQ(read(1, type, 0, 0, 1, 1), "qcRemoteObject::ObjectMismatch");
    for (const auto& [x, y, w, h] : {std::array{4, 0, 2, 1},
                                     {0, 4, 1, 1},
                                     {-1, 0, 1, 1},
                                     {0, -1, 1, 1},
                                     {INT_MAX, INT_MAX, 1, 1},
                                     {INT_MAX, 0, 2, 1},
                                     {INT_MIN, 0, 1, 1}})
      EXPECT_NE(read(1, 1, x, y, w, h), "") << x << " " << y;
    for (const auto& [w, h] :
         {std::array{0, 1}, {1, 0}, {-1, -1}, {INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}, {1 << 16, 17}})
      EXPECT_EQ(read(1, 1, 0, 0, w, h), "qcPelFunc::BadParams") << w;
    const auto write = [&o = *other](auto... pels) { return ask(o, U8{2}, 1u, U8{1}, 1, 1, 2, 1, pels...); };
    EXPECT_EQ(write(U8{1}), "qcArchive::BadContent");
    EXPECT_EQ(write(U8{1}, U8{2}, U8{3}), "qcArchive::BadContent");
    EXPECT_EQ(ask(*other, U8{3}, U8{1}, 8, 8, 1), "qcTcpip::AccessFailed");
    EXPECT_EQ(ask(*other, U8{3}, U8{11}, 8, 8, 1), "qcArchive::BadType");
    EXPECT_EQ(ask(*other, U8{9}), "qcTcpip::NotSupported");
    EXPECT_EQ(ask(*other, U8{1}, 1u), "qcArchive::Eof");
    EXPECT_EQ(ask(*other), "qcArchive::Eof");
    image.put(0, 0, before.get(0, 0)), image.put(1, 0, before.get(1, 0));
    EXPECT_TRUE(sameBytes<unsigned char>(image, before));
    EXPECT_EQ(ask(*other, U8{4}, 1u, INT_MIN), "") << "hands back more than it has";
    EXPECT_EQ(read(1, 1, 0, 0, 5, 4), "qcArchive::NotFound");
    other.reset();
  }
  EXPECT_EQ(image.refc(), 1);
}

TEST(RemoteRoots, PeersThatAskEachOtherThroughThisSideEndSoon) {
  Pair first, second;  // each lends an image that is passed on to the other one
  Grey mine(4, 4), yours(4, 4), proxies[] = {first.lend(mine), second.lend(yours)};
  *first.back || proxies[1];
  *second.back || proxies[0];
  first.back->flush(), second.back->flush();
  const auto flood = [](qcCommunicator& end) {
    const std::string call = callOf(static_cast<unsigned char>(1), 1u, static_cast<unsigned char>(1), 0, 0, 1, 1);
    std::string many;
    for (int i = 0; i < 1000; ++i) many += call;
    return std::array{std::jthread([&end, many] {
                        try {
                          for (;;) end.send(many.data(), many.size(), qcDeadline(30.0));
                        } catch (const qcTcpip::ConnectionBroken&) {
                        }
                      }),
                      std::jthread([&end] {
                        char bytes[64];
                        EXPECT_THROW(for (;;) end.receive(bytes, sizeof bytes, qcDeadline(30.0)),
                                     qcTcpip::ConnectionBroken);
                      })};
  };
  const auto one = flood(*first.owner), other = flood(*second.owner);
  for (auto* pair : {&first, &second}) pair->user->timeOut(0.5);
  EXPECT_FALSE(first.user->serve(0.1));
  first.user.reset(), second.user.reset();
}

TEST(RemoteRoots, SecondRepliesChangeNothing) {
  Pair pair;
  Grey image(9, 9), proxy = pair.lend(image);
  std::jthread serving([&] { EXPECT_TRUE(pair.user->serve(30)); }), answering([&] {
    for (int round = 0; round < 500; ++round) {
      std::string call(32, 0), replies;
      pair.owner->receive(call.data(), 32, qcDeadline(30.0));
      for (const char* pel : {"01", "02"})
        replies += fromHex("080000A0") + call.substr(4, 4) + fromHex("020101") + fromHex(pel);
      pair.owner->send(replies.data(), replies.size(), qcDeadline(30.0));
    }
    pair.owner->finishSending();
  });
  for (int round = 0; round < 500; ++round) EXPECT_EQ(proxy.get(0, 0), 1);
}

TEST(RemoteRoots, BadNoticesWaitForNoObject) {
  qcMemoryArchive object(qcArchive::littleEndian, false);
  object << qcBadPointer();
  std::string bytes(object.bytes().begin() + 2, object.bytes().end());  // behind the header
  for (const std::string& call : {callOf(), callOf('\1'), callOf('\4', 1), callOf('\x9')}) {
    const std::string notice = call.substr(0, 4) + std::string(4, 0) + call.substr(8);
    Pair pair;
    std::jthread serving([&] { EXPECT_TRUE(pair.user->serve(30)); }), hostile([&] {
      const std::string first = fromHex("03000000") + bytes.substr(0, 3);
      pair.owner->send(first.data(), first.size(), qcDeadline(30.0));
      qcTimer::sleep(0.02);  // until the object waits for its rest
      pair.owner->send(notice.data(), notice.size(), qcDeadline(30.0));
      pair.out->raw(bytes.data() + 3, 4);
      pair.out->flush();
      pair.owner->finishSending();
    });
    qcBadPointer back;
    qcTimer::sleep(0.01);  // until the other one reads
    EXPECT_NO_THROW(*pair.in >> back);
  }
}

class Flushing : public qcPersistent {
 public:
  static qcPersistent* make() { return new Flushing; }
  long number = 0;

 protected:
  void dispatchSerialize(qcArchive& archive) override {
    archive.sync();
    archive || number;
  }
};

const qc_Instantiator flushingRegistered(typeid(Flushing), &Flushing::make);

// What storing throws, and loading, when another message follows, which must come as it is.
template <class Value>
std::string sentOver(Value& sent, Value& come) {
  Pair pair;
  int next = 0;
  const auto tried = [](qcArchive& archive, Value& value) {
    try {
      archive || value;
    } catch (const qcException& error) {
      return nameOf(error);
    }
    return std::string();
  };
  const std::string stored = tried(*pair.out, sent);
  pair.out->flush();
  *pair.out << 11;
  pair.out->flush();
  const std::string loaded = tried(*pair.in, come);
  *pair.in || next;
  EXPECT_EQ(next, 11);
  return stored + ' ' + loaded;
}

TEST(RemoteRoots, ValuesLieInOneMessageAlsoWhenTheirStoreFails) {
  for (const long number : {7L, 5'000'000'000L}) {  // which goes into four bytes, or not
    const std::string expected = number == 7 ? " " : "qcArchive::BadContent qcArchive::Eof";
    Flushing sent, come;
    sent.number = number;
    EXPECT_EQ(sentOver(sent, come), expected);
    EXPECT_EQ(come.number, number == 7 ? 7 : 0);
    std::vector<long> numbers{1, 2, number}, comeNumbers;
    EXPECT_EQ(sentOver(numbers, comeNumbers), expected);
    EXPECT_EQ(comeNumbers, number == 7 ? numbers : (std::vector<long>{1, 2}));
    std::pair<int, long> pair{1, number}, comePair;
    EXPECT_EQ(sentOver(pair, comePair), expected);
    qcPair<long> both(1, number), comeBoth;
    EXPECT_EQ(sentOver(both, comeBoth), expected);
  }
}

TEST(RemoteRoots, FloodsAndOtherThreadsProlongNoWait) {
  auto [going, asking] = qcCommunicator::loopback();
  std::jthread serving([&end = *going] { EXPECT_TRUE(end.serve(1e9)); });
  EXPECT_EQ(ask(*asking), "qcArchive::Eof");
  going.reset();
  auto [mine, other] = qcCommunicator::loopback();
  std::string flood;
  for (int i = 0; i < 100; ++i) flood += fromHex("040000A0 09000000");  // replies that nobody waits for
  other->send(flood.data(), flood.size(), qcDeadline(30.0));
  other.reset();
  EXPECT_FALSE(mine->serve(0)) << "has not come to the end";
  EXPECT_TRUE(mine->serve(30));
}

TEST(RemoteRoots, ReferencesThatMakeNoSenseAreRefused) {
  struct Reference {
    bool isBound, isWritersOwn;
    std::uint32_t identity;
    int width, height;
  };
  Pair pair;
  Grey image(4, 4);
  Grey proxy = pair.lend(image);
  const auto load = [&](Reference r, int right) {
    unsigned char version = 3;
    qcPelRect window(right, right == 0 ? 0 : 1);
    int zero = 0;
    qc2XformCache identity;
    *pair.out || version || static_cast<qcRectangle<long>&>(window) || zero || zero || identity;
    *pair.out || r.isBound || r.isWritersOwn || r.identity || r.width || r.height;
    pair.out->flush();
    Grey buffer = proxy;
    std::string error;
    try {
      *pair.in || buffer;
      if (buffer.isBound() && !buffer.isRemote()) return std::string("here");
    } catch (const qcException& thrown) {
      error = nameOf(thrown);
      EXPECT_TRUE(buffer == proxy);
    }
    return error;
  };
  EXPECT_EQ(load({true, true, 1, 4, 4}, 4), "");
  EXPECT_EQ(load({true, true, 1, 4, 5}, 1), "qcRemoteObject::ObjectMismatch");
  EXPECT_EQ(load({true, true, 9, 4, 4}, 5), "qcArchive::BadContent");
  for (const int bad : {-1, 0, INT_MIN}) EXPECT_EQ(load({true, true, 9, bad, 4}, 1), "qcArchive::BadContent");
  EXPECT_EQ(load({true, true, 9, INT_MAX, INT_MAX}, 4), "") << "takes no memory";
  EXPECT_EQ(load({true, false, 1, 4, 4}, 4), "qcArchive::NotFound") << "nothing was lent in this direction";
  EXPECT_EQ(load({true, true, 0, 0, 0}, 0), "here");
  // An image of another type under the same number, and one of any type.
  qcPelBuffer<float> floats;
  *pair.out || image || image;
  pair.out->flush();
  EXPECT_THROW(*pair.in || floats, qcArchive::BadType);
  qc_PelBuffer any;
  EXPECT_NO_THROW(*pair.in || any);
  Grey unknown(2, 2);
  *pair.out || unknown;
  pair.out->flush();
  EXPECT_THROW(*pair.in || any, qcArchive::BadType);
  pair.owner->serve(0.05);
  EXPECT_EQ(unknown.refc(), 1) << "given back";
}

}  // namespace
