#include "platform/output.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "platform/locks.h"
#include "taskwarden/taskwarden.h"

namespace {

// Under Lock::kOutput. Trivially destructible, so that a host which exits while the cycle runs
// finds them in order.
taskwarden_output_fn output_sink = nullptr;
void* output_context = nullptr;

// Keeps the signal that a failing write raises from reaching the host: SIGPIPE with EPIPE, SIGXFSZ
// with EFBIG (write(2)). Both are blocked meanwhile, and the one raised is taken off this thread's
// queue again unless it was pending before.
class WriteSignalGuard {
 public:
  WriteSignalGuard() {
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGPIPE);
    sigaddset(&both, SIGXFSZ);
    sigpending(&pending_before_);
    pthread_sigmask(SIG_BLOCK, &both, &old_mask_);
  }
  ~WriteSignalGuard() { pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr); }
  WriteSignalGuard(const WriteSignalGuard&) = delete;
  WriteSignalGuard& operator=(const WriteSignalGuard&) = delete;

  void failed_with(int error) const {
    const int raised = error == EPIPE ? SIGPIPE : error == EFBIG ? SIGXFSZ : 0;
    if (raised == 0 || sigismember(&pending_before_, raised) == 1) {
      return;
    }
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, raised);
    const timespec at_once = {0, 0};
    while (sigtimedwait(&one, nullptr, &at_once) < 0 && errno == EINTR) {
    }
  }

 private:
  sigset_t pending_before_;
  sigset_t old_mask_;
};

// One writev for the whole text where the kernel takes it whole, and as many as it needs else.
void write_whole(int fd, iovec* parts, int count) {
  const WriteSignalGuard guard;
  while (count > 0) {
    const ssize_t n = ::writev(fd, parts, count);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      if (errno == EAGAIN) {
        // Somebody who shares the pipe or terminal made it non-blocking.
        pollfd room = {.fd = fd, .events = POLLOUT, .revents = 0};
        ::poll(&room, 1, -1);
        continue;
      }
      guard.failed_with(errno);
      return;
    }
    size_t done = static_cast<size_t>(n);
    while (count > 0 && done >= parts->iov_len) {
      done -= parts->iov_len;
      ++parts;
      --count;
    }
    if (count > 0) {
      parts->iov_base = static_cast<char*>(parts->iov_base) + done;
      parts->iov_len -= done;
    }
  }
}

iovec part(std::string_view text) {
  return {const_cast<char*>(text.data()), text.size()};
}

}  // namespace

// A sink's own calls into the library would come back to it: what they say is dropped.
void tw_output_report(std::string_view text) {
  if (tw_holds(Lock::kOutput)) {
    return;
  }
  const LockGuard lock(Lock::kOutput);
  if (output_sink != nullptr) {
    output_sink(output_context, TASKWARDEN_OUTPUT_REPORT, nullptr, text.data(), text.size());
    return;
  }
  iovec parts[] = {part(text)};
  write_whole(STDOUT_FILENO, parts, 1);
}

void tw_output_log(const char* tag, std::string_view text) {
  if (tw_holds(Lock::kOutput)) {
    return;
  }
  const LockGuard lock(Lock::kOutput);
  if (output_sink != nullptr) {
    output_sink(output_context, TASKWARDEN_OUTPUT_LOG, tag, text.data(), text.size());
    return;
  }
  const bool ended = !text.empty() && text.back() == '\n';
  iovec parts[] = {part("E/"), part(tag != nullptr ? tag : ""), part(": "), part(text),
                   part(ended ? "" : "\n")};
  write_whole(STDERR_FILENO, parts, 5);
}

void taskwarden_set_output(taskwarden_output_fn sink, void* context) {
  if (tw_holds(Lock::kOutput)) {
    return;
  }
  const LockGuard lock(Lock::kOutput);
  output_sink = sink;
  output_context = context;
}
