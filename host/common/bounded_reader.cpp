#include "host/common/bounded_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <optional>

#include "platform/unique_fd.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

// How long a killed child may take to end.
constexpr std::chrono::milliseconds kDeathPatience{100};
constexpr int kAnswerFd = 3;

std::mutex mutex;
std::vector<pid_t> left_behind;

void reap_left_behind() {
  std::erase_if(left_behind, [](pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; });
}

bool may_start() {
  const std::lock_guard lock(mutex);
  reap_left_behind();
  return left_behind.size() < kMostLeftBehind;
}

void leave_behind(pid_t child) {
  const std::lock_guard lock(mutex);
  left_behind.push_back(child);
}

// Whoever waits for the end of a pipe or a terminal, or for a socket's name, must not have to wait
// for a child that hangs.
void keep_only(int fd) {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int standard = 0; standard < kAnswerFd; ++standard) {
    null >= 0 ? ::dup2(null, standard) : ::close(standard);
  }
  if (fd != kAnswerFd) {
    ::dup2(fd, kAnswerFd);  // which may be where the null device is
  }
  ::close_range(kAnswerFd + 1, ~0U, 0);
}

void tell(std::string_view part) {
  while (!part.empty()) {
    const ssize_t n = ::write(kAnswerFd, part.data(), part.size());
    if (n < 0 && errno != EINTR) {
      ::_exit(EIO);
    }
    part.remove_prefix(n > 0 ? static_cast<size_t>(n) : 0);
  }
}

using Work = std::function<int(const Tell& tell)>;

[[noreturn]] void answer(int fd, pid_t parent, const Work& work) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) {
    ::_exit(EIO);
  }
  keep_only(fd);
  int result = EIO;
  try {
    result = work(tell);
  } catch (...) {
  }
  ::_exit(result);
}

// The exit status of `child`, once it has ended; none when it has not at `deadline`.
std::optional<int> end_of(pid_t child, Clock::time_point deadline) {
  constexpr timespec kTick = {.tv_sec = 0, .tv_nsec = 500'000};
  int status = 0;
  pid_t ended;
  while ((ended = ::waitpid(child, &status, WNOHANG)) == 0 && Clock::now() < deadline) {
    ::nanosleep(&kTick, nullptr);
  }
  return ended == 0 ? std::nullopt : std::optional(ended == child ? status : -1);
}

// Takes from `fd` until its end, `deadline`, or `most` bytes. True at the end.
bool take(int fd, size_t most, Clock::time_point deadline, std::string* text) {
  char chunk[65536];
  while (text->size() < most) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd awaited = {fd, POLLIN, 0};
    if (left.count() <= 0) {
      return false;
    }
    if (::poll(&awaited, 1, static_cast<int>(left.count())) > 0) {
      const ssize_t n = ::read(fd, chunk, std::min(sizeof(chunk), most - text->size()));
      if (n == 0) {
        return true;
      }
      text->append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
    }
  }
  return false;
}

// Goes before the text of each file.
struct FileHead {
  int32_t error;
  uint32_t size;
};

}  // namespace

FileText answer_within(std::chrono::milliseconds patience, size_t most, const Work& work) {
  const Clock::time_point deadline = Clock::now() + patience;
  if (!may_start()) {
    return {EBUSY};
  }
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return {errno};
  }
  const unique_fd from_child(ends[0]);
  unique_fd to_us(ends[1]);
  const pid_t us = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) {
    answer(to_us.get(), us, work);
  }
  if (child < 0) {
    return {errno};
  }
  to_us.reset();
  FileText answered;
  const bool whole = take(from_child.get(), most, deadline, &answered.text);
  std::optional<int> status;
  if (whole) {
    status = end_of(child, deadline);
  }
  if (status) {
    const int result = WIFEXITED(*status) ? WEXITSTATUS(*status) : EIO;
    answered.error = result == 0 && answered.text.empty() ? ENODATA : result;
    return answered;
  }
  // It has said all that was asked for, or is late.
  answered.error = answered.text.size() < most ? ETIMEDOUT : 0;
  ::kill(child, SIGKILL);
  if (!end_of(child, Clock::now() + kDeathPatience)) {
    leave_behind(child);
  }
  return answered;
}

std::vector<FileText> read_files_within(const std::vector<std::string>& paths, size_t most,
                                        std::chrono::milliseconds patience) {
  const FileText answered = answer_within(patience, SIZE_MAX, [&](const Tell& tell) {
    for (const std::string& path : paths) {
      const FileText file = read_file(path, most, 0);
      const FileHead head = {file.error, static_cast<uint32_t>(file.text.size())};
      tell({reinterpret_cast<const char*>(&head), sizeof(head)});
      tell(file.text);
    }
    return 0;
  });
  std::vector<FileText> files;
  std::string_view rest = answered.text;
  FileHead head;
  while (files.size() < paths.size() && rest.size() >= sizeof(head)) {
    memcpy(&head, rest.data(), sizeof(head));
    rest.remove_prefix(sizeof(head));
    if (rest.size() < head.size) {
      break;
    }
    files.push_back({head.error, std::string(rest.substr(0, head.size))});
    rest.remove_prefix(head.size);
  }
  files.resize(paths.size(), {answered.error != 0 ? answered.error : EIO});
  return files;
}

std::vector<pid_t> children_left_behind() {
  const std::lock_guard lock(mutex);
  reap_left_behind();
  return left_behind;
}

void adopt_children(const std::vector<pid_t>& children) {
  const std::lock_guard lock(mutex);
  left_behind.insert(left_behind.end(), children.begin(), children.end());
}

}  // namespace host
