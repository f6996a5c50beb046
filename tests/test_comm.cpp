// Connections to other processes, and what crosses them.

#include <chrono>
#include <csignal>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/bytes.h"
#include "support/peer.h"
#include "support/test.h"
#include "vnxstd/comm.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/timer.h"

namespace {

using Dir = qcArchive::Direction;

TEST(Transfer, CarriesObjectsToAnotherProcessAndBack) {
  // The other one sends back what it gets, one message for each, until it is told to stop.
  Peer peer([](qcCommunicator& communicator) {
    const auto out = communicator.archive(Dir::storing, 30, qcArchive::bigEndian);
    out->flush();
    const auto in = communicator.archive(Dir::loading);
    for (;;) {
      std::vector<double> numbers;
      std::wstring text;
      *in || numbers || text;
      *out || numbers || text;
      out->flush();
      if (text == L"stop") return;
    }
  });
  const auto out = peer.end->archive(Dir::storing);
  out->flush();
  const auto in = peer.end->archive(Dir::loading);
  EXPECT_TRUE(in->ordering() == qcArchive::bigEndian && &in->connectedTo() == peer.end.get());
  for (const std::size_t size : {0UL, 1UL, 8190UL, 8191UL, 8192UL, 8193UL, 3000000UL, 5UL}) {
    std::vector<double> numbers(size), back;
    std::iota(numbers.begin(), numbers.end(), 0.5);
    std::wstring text = size == 5 ? L"stop" : L"\u00E4", same;
    *out || numbers || text;
    std::thread sender([&] { out->flush(); });  // both sides send more than the connection holds
    *in || back || same;
    sender.join();
    EXPECT_TRUE(back == numbers && same == text) << size;
  }
  EXPECT_TRUE(peer.end->waitUntilDisconnected(30));
  EXPECT_FALSE(in->isConnected());
}

TEST(Transfer, TimeOutsCoverWholeMessages) {
  auto [mine, other] = qcCommunicator::loopback();
  const auto frame = [](std::uint32_t count, bool last, std::string bytes) {
    const std::uint32_t head = count | (last ? 0x80000000 : 0);
    std::string text;
    for (int i = 0; i < 4; ++i) text.push_back(static_cast<char>(head >> (8 * i)));
    return text + bytes;
  };
  const auto send = [&other = other](const std::string& bytes) {
    other->send(bytes.data(), bytes.size(), qcDeadline());
  };
  send(frame(6, true, {2, 0, 0, 0, 0, 5}));
  const auto in = mine->archive(Dir::loading, 0.05);
  int number = 0;
  *in || number;
  EXPECT_EQ(number, 5);
  // Nothing comes, or the beginning of a notice: one can wait again.
  for (const char* bytes : {"0400", "00C000000000"}) {
    EXPECT_THROW(*in || number, qcTcpip::Timeout);
    send(fromHex(bytes));
  }
  EXPECT_THROW(*in || number, qcTcpip::Timeout);
  const qcDeadline before(qcDeadline::Clock::time_point::min());
  EXPECT_THROW(mine->receive(std::make_unique<char>().get(), 1, before), qcTcpip::Timeout);
  {
    const qcTimeout limit(0.01);
    EXPECT_THROW(*in || number, qcTimeout::Expired);
    EXPECT_THROW(other->waitUntilDisconnected(1000), qcTimeout::Expired);
  }
  {
    qcTimeout limit(1000);
    const std::jthread impatient([&] { limit.cancel(); });
    EXPECT_THROW(other->waitUntilDisconnected(1000), qcTimeout::Cancel);
    in->timeOut(1000);
    EXPECT_THROW(*in || number, qcTimeout::Cancel);
    EXPECT_THROW(other->waitUntilDisconnected(0.001), qcTimeout::Cancel) << "shorter than the looks at the flag";
    EXPECT_TRUE(other->isConnected()) << "no wait";
  }
  in->timeOut(0.05);
  send(frame(4, false, {0, 0, 0, 6}) + frame(4, true, {0, 0, 0, 7}));
  *in || number;
  in->nextMessage();
  EXPECT_EQ(number, 6);
  // A peer that sends a byte now and then does not keep a reader for ever.
  qcTimer watch(true);
  std::jthread trickle([&](const std::stop_token& stop) {
    send(frame(60000, true, {}));
    while (!stop.stop_requested()) {
      send("x");
      qcTimer::sleep(0.005);
    }
  });
  EXPECT_THROW(in->raw(std::make_unique<char[]>(60000).get(), 60000), qcTcpip::Timeout);
  EXPECT_LT(watch.sec(), 30);
  EXPECT_THROW(*in || number, qcTcpip::ConnectionBroken) << "the message cannot be taken up again";
  trickle.request_stop();
  trickle.join();
  // Neither does one that takes nothing.
  const auto out = other->archive(Dir::storing, 0.05);
  EXPECT_THROW(out->raw(std::vector<char>(10000000).data(), 10000000), qcTcpip::Timeout);
  EXPECT_THROW(out->flush(), qcTcpip::ConnectionBroken);
}

TEST(Transfer, MessagesStandAlone) {
  auto [mine, other] = qcCommunicator::loopback();
  const auto out = mine->archive(Dir::storing);
  out->flush();  // the header
  char header[6];
  other->receive(header, 6, qcDeadline(30.0));
  const qcPtrHandle_const<qc2XformBase> shared(new qc2XformLinear);
  std::string messages[2];
  for (std::string& message : messages) {
    *out << shared;
    out->flush();
    message.resize(200);
    other->receive(message.data(), 4, qcDeadline(30.0));
    other->receive(message.data() + 4, static_cast<unsigned char>(message[0]), qcDeadline(30.0));
  }
  EXPECT_EQ(messages[1], messages[0]);
}

TEST(Transfer, WaitingForAMessageKeepsNobodyFromArchiving) {
  auto [mine, other] = qcCommunicator::loopback();
  const auto out = other->archive(Dir::storing, 5);
  out->flush();
  const auto in = mine->archive(Dir::loading, 5);
  std::vector<qcPtrHandle_const<qc2XformBase>> many, loaded;  // more than goes into a frame, or into the connection
  for (int i = 0; i < 5000; ++i) many.emplace_back(new qc2XformLinear);
  const qcPolyline large(std::vector<qcVector<2>>(50000), false);
  std::jthread writer([&] {
    qcTimer::sleep(0.02);
    *out << qcBadPointer() << large << many;
    out->flush();
  });
  qcBadPointer back;
  qcPolyline same;
  EXPECT_NO_THROW(*in >> back >> same >> loaded);
  EXPECT_TRUE(same == large && loaded.size() == many.size());
}

TEST(Transfer, ABrokenMessageLeavesNothingToRead) {
  auto [mine, other] = qcCommunicator::loopback();
  const std::string begun = fromHex("0A000000 02000000000500000000 0A000000 00");  // ends within the second frame
  other->send(begun.data(), begun.size(), qcDeadline());
  const auto in = mine->archive(Dir::loading, 0.01);
  EXPECT_THROW(in->nextMessage(), qcTcpip::Timeout);
  int number = 0;
  EXPECT_THROW(*in || number, qcTcpip::ConnectionBroken);
}

TEST(Transfer, RefusesFramesThatAreNone) {
  // Longer than any frame; empty ones, of which a peer could send any number; calls and replies that are none.
  for (const char* head :
       {"01000180", "00000080", "00000000", "030000C0", "000000C0", "04000040", "010020C0", "040000E0", "01000081"}) {
    auto [mine, other] = qcCommunicator::loopback();
    other->send(fromHex(head).data(), 4, qcDeadline());
    EXPECT_THROW(mine->archive(Dir::loading, 1), qcArchive::BadContent) << head;
    EXPECT_THROW(mine->archive(Dir::loading, 1), qcTcpip::ConnectionBroken);
  }
  EXPECT_THROW(qcCommunicator(-1), qcTcpip::AccessFailed);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (const int end : ends) EXPECT_THROW(qcCommunicator{end}, qcTcpip::AccessFailed);
  for (const int family : {AF_UNIX, AF_INET})
    EXPECT_THROW(qcCommunicator(socket(family, SOCK_STREAM, 0)), qcTcpip::AccessFailed) << "not connected";
}

TEST(Transfer, APeerThatIsGoneRaisesAnErrorAndNoSignal) {
  for (const bool killed : {false, true}) {
    auto [mine, other] = qcCommunicator::loopback();
    const auto out = mine->archive(Dir::storing, 10);
    if (killed) {
      const pid_t child = fork();
      if (child == 0) {
        mine.reset();
        pause();
      }
      other.reset();
      EXPECT_TRUE(out->isConnected());
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    } else {
      other->finishSending();
    }
    EXPECT_TRUE(out->waitUntilDisconnected(30));
    other.reset();
    EXPECT_THROW(out->raw(std::vector<char>(1000000).data(), 1000000), qcTcpip::ConnectionBroken);
    EXPECT_THROW(mine->receive(std::make_unique<char>().get(), 1, qcDeadline()), qcTcpip::ConnectionBroken);
  }
}

TEST(Transfer, SignalsInterruptNothing) {
  struct sigaction action {
  }, before{};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, &before);  // without SA_RESTART
  const itimerval often{{0, 500}, {0, 500}}, never{};
  {
    Peer peer([](qcCommunicator& communicator) {
      qcTimer::sleep(0.05);
      const auto out = communicator.archive(Dir::storing);
      std::vector<double> numbers(200000, 1.5);
      *out || numbers;
      out->flush();
    });
    setitimer(ITIMER_REAL, &often, nullptr);
    std::vector<double> numbers;
    *peer.end->archive(Dir::loading) || numbers;
    EXPECT_EQ(std::accumulate(numbers.begin(), numbers.end(), 0.0), 300000);
    EXPECT_TRUE(peer.end->waitUntilDisconnected(30));
    setitimer(ITIMER_REAL, &never, nullptr);
  }
  sigaction(SIGALRM, &before, nullptr);
}

}  // namespace
