// What fails around the library: each system call and each tagged block of a few passes fails in
// turn, and each wait is interrupted. The build routes the library's calls through here.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <climits>
#include <cstring>
#include <functional>
#include <set>

#include <android-base/stringprintf.h>
#include "blocks/tagged_block.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_list.h"
#include "platform/clock.h"
#include "platform/output.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/child.h"
#include "support/world.h"
#include "taskwarden/taskwarden.h"

// The call whose turn it is fails with `error`.
static struct Fault {
  int error = 0, turn = 0;
  bool armed = false;
  std::string call = {}, path = {};  // that failed

  bool fails(const char* name, const char* on = "") {
    if (!armed || --turn != 0) return false;
    call = name, path = on, errno = error;
    return true;
  }
  bool is_harmless() const {  // the call is made again, or has done its work
    return call == "close" || (error == EINTR && (call == "read" || call == "connect"));
  }
} fault;
static int live_blocks = 0;
static std::function<void()> on_wait;  // in place of each wait, which is then interrupted

#define CALL(result, name, on, parameters, arguments)             \
  extern "C" result __real_##name parameters;                     \
  extern "C" result __wrap_##name parameters {                    \
    return fault.fails(#name, on) ? -1 : __real_##name arguments; \
  }
CALL(int, open, path, (const char* path, int flags, int mode), (path, flags, mode))
CALL(int, openat, path, (int at, const char* path, int flags, int mode), (at, path, flags, mode))
CALL(int, access, path, (const char* path, int mode), (path, mode))
CALL(int, fstat, "", (int fd, struct stat* to), (fd, to))
CALL(ssize_t, read, "", (int fd, void* to, size_t n), (fd, to, n))
CALL(ssize_t, readlinkat, path, (int at, const char* path, char* to, size_t n), (at, path, to, n))
CALL(int, socket, "", (int family, int type, int protocol), (family, type, protocol))
CALL(int, setsockopt, "", (int fd, int level, int name, const void* value, socklen_t n),
     (fd, level, name, value, n))
CALL(int, connect, "", (int fd, const sockaddr* to, socklen_t n), (fd, to, n))
CALL(ssize_t, send, "", (int fd, const void* from, size_t n, int flags), (fd, from, n, flags))
// Directories are listed with it.
CALL(long, syscall, "", (long call, long a, void* b, size_t c), (call, a, b, c))

extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd) {  // which closes all the same
  return __real_close(fd) != 0 || fault.fails("close") ? -1 : 0;
}

void* real_allocate(uint64_t size) __asm__("__real__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) __asm__("__wrap__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) {
  if (fault.error == ENOMEM && fault.fails("tw_allocate")) return nullptr;
  ++live_blocks;
  return real_allocate(size);
}
tw_alloc_hdr* real_release(void* block) __asm__("__real__Z10tw_releasePv");
tw_alloc_hdr* wrapped_release(void* block) __asm__("__wrap__Z10tw_releasePv");
tw_alloc_hdr* wrapped_release(void* block) {
  live_blocks -= tw_check(block) != nullptr;
  return real_release(block);
}

#define WAIT(name, parameters, arguments)                                    \
  extern "C" int __real_##name parameters;                                   \
  extern "C" int __wrap_##name parameters {                                  \
    return on_wait ? on_wait(), errno = EINTR, -1 : __real_##name arguments; \
  }
WAIT(poll, (pollfd * fds, nfds_t count, int timeout), (fds, count, timeout))
WAIT(select, (int n, fd_set* r, fd_set* w, fd_set* e, timeval* timeout), (n, r, w, e, timeout))

namespace {

namespace fs = std::filesystem;

// Whether the fault that has come to pass is worth a line in the log. What a process may close or
// end at any time is none, nor a directory of descriptors that may not be read. Not every root has
// a meminfo.
bool is_told() {
  static const std::set<std::string> kTold = {"open", "send", "connect", "socket", "setsockopt"};
  const bool silent = (fault.error == EACCES && fault.path.ends_with("/fd")) ||
                      fault.path.ends_with("/meminfo") || fault.is_harmless();
  return kTold.contains(fault.call) && !silent;
}

// Passes over process file systems, one a pass, of which the first `disturbed` may have a fault:
// how many lines they logged, and the table's numbers in the end.
using Outcome = std::pair<int, std::set<std::string>>;
Outcome run(const std::vector<std::string>& roots, size_t disturbed) {
  tw_process_list* list = fresh_table();
  FakeClock clock;
  Outcome outcome = {};
  taskwarden_set_output(
      [](void* count, int output, const char*, const char* text, size_t) {
        const bool step = strncmp(text, "socket ", 7) == 0 || strstr(text, "connectting") ||
                          strstr(text, "meminfo");
        *static_cast<int*>(count) += output == TASKWARDEN_OUTPUT_LOG && !step;
      },
      &outcome.first);
  for (size_t i = 0; i < roots.size(); ++i) {
    taskwarden_set_proc_root(roots[i].c_str());
    clock.advance_ms(4000);
    fault.armed = fault.call.empty() && i < disturbed;
    const bool scanned = tw_process_list_refresh(list) >= 0;
    tw_system_check_meminfo(nullptr);
    tw_process_entry* cursor = list->head;
    if (scanned) tw_process_list_iterate(list, cursor, INT_MAX, &cursor);
    fault.armed = false;
  }
  for (const uint32_t pid : linked_pids(list)) {
    const tw_process_desc& p = list->entries[pid].desc;
    outcome.second.insert(android::base::StringPrintf(
        "%s %c of %d: %d threads, %d of %d files, %lu kB of %lu, heap %lu kB", p.name, p.state,
        p.ppid, p.threads, p.open_files, p.fd_size, p.vm_rss_kb, p.vm_hwm_kb, p.vss_heap_kb));
  }
  fresh_table();
  taskwarden_set_output(nullptr, nullptr);
  return outcome;
}

// Fails each call in each way, one a run; there are `kinds` of them.
void fail_each(const std::vector<std::string>& roots, size_t disturbed, size_t kinds) {
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
  };
  RecordListener listener;
  fault = {};
  const auto [lines, numbers] = run(roots, disturbed);
  std::set<std::string> failed;
  for (const int error : {EMFILE, EACCES, EINTR, EIO, ESRCH, ENOMEM}) {
    for (int turn = 1;; ++turn) {
      fault = Fault{.error = error, .turn = turn};
      const auto before = descriptors();
      const Outcome outcome = run(roots, disturbed);
      while (listener.next(0) != "(nothing)") continue;
      if (fault.call.empty()) break;
      failed.insert(fault.call);
      ASSERT_EQ(outcome, Outcome(lines + is_told(), numbers))
          << fault.call << ' ' << fault.path << ' ' << error << ' ' << turn;
      ASSERT_TRUE(live_blocks == 0 && descriptors() == before);
    }
  }
  EXPECT_EQ(failed.size(), kinds);
}

TEST(Faults, LeaveTheNextPassRight) {
  // Apps that grow twice, the second time while one leaves, one comes and one changes its name.
  interest_builtin_add("app");
  MadeTree trees[3];
  for (int i = 0; i < 3; ++i) {
    MadeTree& tree = trees[i];
    const uint64_t kb = 1000U << i;
    const int grown = 1 + 3 * i, late = i / 2;
    const int other = 401 + 2 * late;
    tree.put({400, "app", 1, grown, 2 * grown, 64 * grown, kb, kb});
    tree.put({.pid = other});
    tree.put({.pid = 402, .cmdline = late ? "app_renamed" : ""});
    tree.put({.pid = 404, .name = "kworker", .ppid = 2, .fds = 0});
    const std::string area = made_area("[anon:scudo:primary]", kb * 100);
    for (int pid : {400, other, 402}) tree.write(std::to_string(pid) + "/maps", area);
    tree.write("400/smaps", area + "Rss: " + std::to_string(kb) + " kB\nPss: 1 kB\nVmFlags: rd\n");
    tree.write("meminfo", "MemFree: 1 kB\nSUnreclaim: 3000000 kB\n");
    tree.write("slabinfo", "dentry 1 2 3 x\n");
  }
  const std::string a = trees[0].root(), b = trees[1].root(), c = trees[2].root();
  fail_each({a, a, b, c, c, c, c}, 4, 13);
}

TEST(Faults, LeaveTheNextPassRightOnARealProcess) {
  const Child child("app");
  kill(child.pid(), SIGSTOP);
  waitpid(child.pid(), nullptr, WUNTRACED);
  // Its threads look like processes, and there is one.
  const std::string root = "/proc/" + std::to_string(child.pid()) + "/task";
  fail_each(std::vector(6, root), 3, 7);
}

// The third, a pause, may be woken for nothing: Cycle.PausesAndDumpsAtAPassesEndOnly.
TEST(Waits, BearInterruptions) {
  int waits = 0;
  on_wait = [&] { ++waits; };
  EXPECT_TRUE(tw_rest(1, 500000) == -1 && waits == 1);

  // Output to a full pipe that somebody made non-blocking.
  int ends[2];
  char bytes[1 << 16];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  const unique_fd out(ends[0]), in(ends[1]), standard_output(dup(1));
  while (write(in.get(), bytes, sizeof(bytes)) > 0) {
  }
  on_wait = [&] { EXPECT_TRUE(++waits < 4 || read(out.get(), bytes, sizeof(bytes)) > 0); };
  dup2(in.get(), 1);
  tw_output_report("whole");
  dup2(standard_output.get(), 1);
  on_wait = nullptr;
  EXPECT_TRUE(read(out.get(), bytes, sizeof(bytes)) == 5 && std::string(bytes, 5) == "whole");
}

}  // namespace
