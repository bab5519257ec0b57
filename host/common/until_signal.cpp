#include "host/common/until_signal.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <atomic>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/unique_fd.h"

namespace host {
namespace {

struct Job {
  std::function<int()> work;
  std::atomic<int> result{0};
  unique_fd done{::eventfd(0, EFD_CLOEXEC)};  // readable once `result` is set
};

}  // namespace

sigset_t signal_set(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) {
    sigaddset(&set, signal);
  }
  return set;
}

void block_signals(std::initializer_list<int> others) {
  sigset_t set = signal_set(others);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

int run_until_signal(std::function<int()> work) {
  const auto job = std::make_shared<Job>();
  job->work = std::move(work);
  const sigset_t ends = signal_set({SIGINT, SIGTERM});
  const unique_fd signals(::signalfd(-1, &ends, SFD_CLOEXEC));
  if (!job->done.ok() || !signals.ok()) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
  }
  // The thread holds the job for as long as it runs, which may be past the end of main().
  std::thread([job] {
    job->result = job->work();
    ::eventfd_write(job->done.get(), 1);
  }).detach();
  pollfd awaited[] = {{job->done.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
  while (::poll(awaited, 2, -1) <= 0) {
  }
  return awaited[0].revents != 0 ? job->result.load() : 0;
}

}  // namespace host
