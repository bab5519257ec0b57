#include "platform/process_calls.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/kcmp.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <string_view>

#include "platform/small_file.h"
#include "platform/text_field.h"

namespace {

// MAKE_PROCESS_CPUCLOCK(pid, CPUCLOCK_SCHED) of the kernel's include/linux/posix-timers_types.h,
// which clock_getcpuclockid(3) forms as well, but with a call to see whether the process exists.
clockid_t cpu_clock_of(uint32_t pid) {
  constexpr uint32_t kPidShift = 3;
  constexpr uint32_t kScheduled = 2;
  return static_cast<clockid_t>(~pid << kPidShift | kScheduled);
}

bool share(uint32_t pid, uint32_t other, int what) {
  return ::syscall(SYS_kcmp, static_cast<pid_t>(pid), static_cast<pid_t>(other), what, 0, 0) == 0;
}

// The numbers behind `key`, a line's beginning in `text`.
std::string_view value_of_line(std::string_view text, std::string_view key) {
  const size_t at = text.find(key);
  if (at == text.npos) {
    return {};
  }
  text.remove_prefix(at + key.size());
  return text.substr(0, text.find('\n'));
}

}  // namespace

CpuClock tw_read_cpu_clock(uint32_t pid, uint64_t* ns) {
  constexpr uint64_t kNanoseconds = 1'000'000'000;
  timespec time;
  if (::clock_gettime(cpu_clock_of(pid), &time) != 0) {
    return errno == EINVAL ? CpuClock::kGone : CpuClock::kUnreadable;
  }
  *ns = static_cast<uint64_t>(time.tv_sec) * kNanoseconds + static_cast<uint64_t>(time.tv_nsec);
  return CpuClock::kRead;
}

bool tw_share_state(uint32_t pid, uint32_t other) {
  return share(pid, other, KCMP_FILES) || share(pid, other, KCMP_VM);
}

bool tw_is_on_procfs(const char* path) {
  struct statfs file_system;
  return ::statfs(path, &file_system) == 0 && file_system.f_type == PROC_SUPER_MAGIC;
}

bool tw_has_own_pids(const char* root) {
  if (!tw_is_on_procfs(root)) {
    return false;
  }
  char path[256];
  append_cut(path, append_cut(path, 0, root), "/self/status");
  char text[4096];
  const ssize_t length = tw_read_small_file(AT_FDCWD, path, 0, text, sizeof(text));
  if (length <= 0) {
    return false;
  }
  // "NSpid:", and behind a tab each the pids from the file system's namespace to our own.
  const std::string_view pids = value_of_line({text, static_cast<size_t>(length)}, "\nNSpid:\t");
  int32_t pid = 0;
  const auto end = std::from_chars(pids.data(), pids.data() + pids.size(), pid).ptr;
  return end == pids.data() + pids.size() && pid == ::getpid();
}
