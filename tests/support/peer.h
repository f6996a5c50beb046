// Another process at the other end of a connection.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include "support/test.h"
#include "vnxstd/comm/communicator.h"

/// It does its work and goes; what its work throws, or false, fails the test.
class Peer {
 public:
  explicit Peer(const std::function<void(qcCommunicator&)>& work) {
    auto [mine, other] = qcCommunicator::loopback();
    process_ = fork();
    if (process_ == 0) {
      mine.reset();
      int status = 0;
      try {
        work(*other);
        if (testing::Test::HasFailure()) status = 2;
      } catch (const qcException& error) {
        std::cerr << typeid(error).name() << " in the other process\n";
        status = 1;
      }
      other.reset();
      _exit(status);
    }
    end = std::move(mine);
  }
  ~Peer() {
    end.reset();
    int status = 0;
    waitpid(process_, &status, 0);
    EXPECT_EQ(status, 0);
  }

  std::unique_ptr<qcCommunicator> end;

 private:
  pid_t process_;
};
