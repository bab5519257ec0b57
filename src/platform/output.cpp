#include "platform/output.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

#include "taskwarden/taskwarden.h"

namespace {

// Trivially destructible, so that a host which exits while the cycle runs finds them in order.
std::mutex output_mutex;
taskwarden_output_fn output_sink = nullptr;
void* output_context = nullptr;

// Keeps a SIGPIPE that this thread's writes raise from reaching the host: blocked meanwhile, and
// taken off the queue again unless it was pending before. The signal is thread-directed (pipe(7)).
class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigemptyset(&sigpipe_);
    sigaddset(&sigpipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &sigpipe_, &old_mask_);
  }
  ~SigpipeGuard() {
    if (raised_ && !was_pending_) {
      const timespec at_once = {0, 0};
      while (sigtimedwait(&sigpipe_, nullptr, &at_once) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
  }
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;

  void note_error(int error) { raised_ = raised_ || error == EPIPE; }

 private:
  sigset_t sigpipe_;
  sigset_t old_mask_;
  bool was_pending_ = false;
  bool raised_ = false;
};

// One writev for the whole text where the kernel takes it whole, and as many as it needs else.
void write_whole(int fd, iovec* parts, int count) {
  SigpipeGuard guard;
  while (count > 0) {
    const ssize_t n = ::writev(fd, parts, count);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      guard.note_error(errno);
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

void tw_output_report(std::string_view text) {
  const std::lock_guard lock(output_mutex);
  if (output_sink != nullptr) {
    output_sink(output_context, TASKWARDEN_OUTPUT_REPORT, nullptr, text.data(), text.size());
    return;
  }
  iovec parts[] = {part(text)};
  write_whole(STDOUT_FILENO, parts, 1);
}

void tw_output_log(const char* tag, std::string_view text) {
  const std::lock_guard lock(output_mutex);
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
  const std::lock_guard lock(output_mutex);
  output_sink = sink;
  output_context = context;
}
