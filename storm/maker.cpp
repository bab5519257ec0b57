#include "maker.h"

#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <stdexcept>

namespace {

// Each byte heard is a step to be made, or the end of all, and is sent back.
[[noreturn]] void obey(int fd, std::vector<std::function<void()>> steps) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  int status = 0;
  try {
    char order;
    for (size_t next = 0; read(fd, &order, 1) == 1; ++next) {
      if (next < steps.size()) {
        steps[next]();
      } else {
        steps.clear();
      }
      if (write(fd, &order, 1) != 1) {
        break;
      }
    }
    steps.clear();
  } catch (const std::exception& error) {
    fprintf(stderr, "%s\n", error.what());
    status = 1;
    steps.clear();
  }
  _exit(status);
}

}  // namespace

Maker::Maker(std::vector<std::function<void()>> steps) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::runtime_error("socketpair");
  }
  told_.reset(ends[0]);
  const timeval patience = {.tv_sec = 300, .tv_usec = 0};
  setsockopt(told_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  unique_fd obeys(ends[1]);
  pid_ = fork();
  if (pid_ < 0) {
    throw std::runtime_error("fork");
  }
  if (pid_ == 0) {
    told_.reset();
    obey(obeys.get(), std::move(steps));
  }
}

Maker::~Maker() {
  told_.reset();
  waitpid(pid_, nullptr, 0);
}

void Maker::step() {
  char order = 0;
  if (send(told_.get(), &order, 1, MSG_NOSIGNAL) != 1 || read(told_.get(), &order, 1) != 1) {
    throw std::runtime_error("the weather was not made");
  }
}
