// What fails around the library: each system call and each tagged block of a few passes fails in
// turn, and each wait is interrupted. The build routes the library's calls through here.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include <android-base/stringprintf.h>
#include "blocks/tagged_block.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_list.h"
#include "platform/clock.h"
#include "platform/output.h"
#include "platform/proc_root.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/child.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"
#include "support/record_listener.h"
#include "taskwarden/taskwarden.h"

// Besides errno's: the process ends before its text is delivered, or 80 bytes into it.
static constexpr int kEnds = 0, kEndsSoon = -1;

// The call whose turn it is fails with `error`.
static struct Fault {
  int error = 0, turn = 0;
  bool armed = false;
  std::string call = {}, path = {};  // that failed
  int ended_fd = -1;                 // is of the process that ended

  bool comes(const char* name, const char* on = "") {
    if (!armed || --turn != 0) return false;
    call = name, path = on, errno = error;
    return true;
  }
  bool fails(const char* name, const char* on) { return error > 0 && comes(name, on); }
  bool fails(const char* name, int fd) {
    return fd == ended_fd ? errno = ENOENT, true : fails(name, "");
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
CALL(int, fstat, fd, (int fd, struct stat* to), (fd, to))
CALL(ssize_t, readlinkat, path, (int at, const char* path, char* to, size_t n), (at, path, to, n))
CALL(int, socket, "", (int family, int type, int protocol), (family, type, protocol))
CALL(int, setsockopt, fd, (int fd, int level, int name, const void* value, socklen_t n),
     (fd, level, name, value, n))
CALL(int, connect, fd, (int fd, const sockaddr* to, socklen_t n), (fd, to, n))
CALL(ssize_t, send, fd, (int fd, const void* from, size_t n, int flags), (fd, from, n, flags))

extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd) {  // which closes all the same
  if (fd == fault.ended_fd) fault.ended_fd = -1;
  return __real_close(fd) != 0 || fault.fails("close", "") ? -1 : 0;
}

// What `real` delivers of `size` bytes from `fd`.
template <typename Real>
static long deliver(const char* name, int fd, size_t size, Real real) {
  if (fd == fault.ended_fd) return 0;
  if (!fault.comes(name)) return real(size);
  if (fault.error > 0) return -1;
  fault.ended_fd = fd;
  return fault.error == kEnds ? 0 : real(std::min(size, size_t{80}));
}
extern "C" ssize_t __real_read(int fd, void* to, size_t size);
extern "C" ssize_t __wrap_read(int fd, void* to, size_t size) {
  return deliver("read", fd, size, [=](size_t n) { return __real_read(fd, to, n); });
}
extern "C" long __real_syscall(long call, long a, long b, size_t c, long d, long e, long f);
extern "C" long __wrap_syscall(long call, long a, long b, size_t c, long d, long e, long f) {
  const auto real = [=](size_t n) { return __real_syscall(call, a, b, n, d, e, f); };
  return call == SYS_getdents64 ? deliver("getdents64", static_cast<int>(a), c, real) : real(c);
}

void* real_allocate(uint64_t size) __asm__("__real__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) __asm__("__wrap__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) {
  if (fault.error == ENOMEM && fault.comes("tw_allocate")) return nullptr;
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
using Lines = std::set<std::string>;

// What the fault that has come to pass leaves in the log; none where it is not worth a line.
Lines stated_line() {
  const fs::path path(fault.path);
  const std::string file = path.filename(), error = strerror(fault.error);
  const std::string proc = " proc " + path.parent_path().filename().string() + "'s ";
  const std::string failed = ">> failed to open";
  if (fault.call == "open") {
    if (path == tw_proc_root()) return {failed + " \"proc\": " + error + "\n"};
    if (file == "meminfo" || file == "slabinfo") return {failed + " " + file + "!!\n"};
    if (file == "task") return {failed + proc + "task dir!!\n"};
    if (file != "fd") return {failed + proc + file + "!!\n"};
    return fault.error == EACCES ? Lines{} : Lines{failed + proc + "fd dir: " + error + "\n"};
  }
  if (fault.call == "send") return {"trigger vk service written:18446744073709551615"};
  const bool connects = fault.call == "connect" && !fault.is_harmless();
  return connects || fault.call == "socket" || fault.call == "setsockopt"
             ? Lines{"Fail to connect to socket . return code: -1"}
             : Lines{};
}

// Passes over process file systems, one a pass, of which the first `disturbed` may have a fault.
class Faults : public testing::Test {
 protected:
  Faults() { taskwarden_set_output(hear, this); }
  ~Faults() { taskwarden_set_output(nullptr, nullptr), taskwarden_set_proc_root("/proc"); }

  // Fails each call in each way, one a run; there are `kinds` of them.
  void fail_each(const std::vector<std::string>& roots, size_t disturbed, size_t kinds) {
    const auto descriptors = [] {
      return std::distance(fs::directory_iterator("/proc/self/fd"), {});
    };
    fault = {};
    const Seen usual = run(roots, disturbed);
    std::map<std::string, int> failed;
    for (const int error : {EMFILE, EACCES, EINTR, EIO, ESRCH, ENOMEM, kEnds, kEndsSoon}) {
      for (int turn = 1;; ++turn) {
        fault = Fault{.error = error, .turn = turn};
        const auto before = descriptors();
        const Seen seen = run(roots, disturbed);
        if (fault.call.empty()) break;
        ++failed[fault.call];
        Seen expected = usual;
        auto& [failures, numbers] = expected[faulty_];
        failures.merge(stated_);
        if (error <= 0) failures = seen[faulty_].first;
        if (!fault.is_harmless()) numbers = seen[faulty_].second;
        ASSERT_EQ(seen, expected) << fault.call << ' ' << fault.path << ' ' << error << ' ' << turn;
        ASSERT_EQ(live_blocks, 0);
        ASSERT_EQ(descriptors(), before);
      }
    }
    for (const auto& [call, count] : failed) RecordProperty(call, count);
    EXPECT_EQ(failed.size(), kinds);
  }

 private:
  // What each pass logged as failed, and the table's numbers after it.
  using Seen = std::vector<std::pair<Lines, Lines>>;

  Seen run(const std::vector<std::string>& roots, size_t disturbed) {
    Seen seen;
    tw_process_list* list = fresh_table();
    FakeClock clock;
    for (const std::string& root : roots) {
      taskwarden_set_proc_root(root.c_str());
      clock.advance_ms(4000);
      failures_.clear();
      fault.armed = fault.call.empty() && seen.size() < disturbed;
      const bool scanned = tw_process_list_refresh(list) >= 0;
      tw_system_check_meminfo(nullptr);
      tw_process_entry* cursor = list->head;
      if (scanned) tw_process_list_iterate(list, cursor, INT_MAX, &cursor);
      if (fault.armed && !fault.call.empty()) faulty_ = seen.size(), stated_ = stated_line();
      fault.armed = false;
      // The sizes that maps tell come some visits later than the other numbers.
      seen.emplace_back(failures_, numbers(list, seen.size() + 1 == roots.size()));
    }
    fresh_table();
    while (listener_.next(0) != "(nothing)") {
    }
    return seen;
  }

  static Lines numbers(const tw_process_list* list, bool mapped) {
    Lines lines;
    for (const uint32_t pid : linked_pids(list)) {
      const tw_process_desc& p = list->entries[pid].desc;
      lines.insert(android::base::StringPrintf(
          "%s %c of %d: %d threads, %d of %d files, %lu kB of %lu, heap %lu kB", p.name, p.state,
          p.ppid, p.threads, p.open_files, p.fd_size, p.vm_rss_kb, p.vm_hwm_kb,
          mapped ? p.vss_heap_kb : 0));
    }
    return lines;
  }

  static void hear(void* self, int output, const char*, const char* text, size_t) {
    const bool step = strncmp(text, "socket ", 7) == 0 || strstr(text, "connectting") != nullptr;
    auto& own = *static_cast<Faults*>(self);
    if (output == TASKWARDEN_OUTPUT_LOG && !step) own.failures_.insert(text);
  }

  RecordListener listener_;
  Lines failures_;     // of the pass under way
  size_t faulty_ = 0;  // the pass with the fault, and what it is to log of it
  Lines stated_;
};

TEST_F(Faults, LeaveTheNextPassRight) {
  // Apps that grow twice, the second time while one leaves, one comes and one changes its name.
  interest_builtin_add("app");
  MadeTree trees[3];
  for (int i = 0; i < 3; ++i) {
    MadeTree& tree = trees[i];
    const uint64_t kb = 1000U << i;
    const int grown = 1 + 3 * i, late = i / 2;
    tree.put({400, "app", 1, grown, 2 * grown, 64 * grown, kb, kb});
    tree.put({.pid = 401 + 2 * late});
    tree.put({.pid = 402, .cmdline = late ? "app_renamed" : ""});
    tree.put({.pid = 404, .name = "kworker", .ppid = 2, .fds = 0});
    const std::string area =
        "0-" + std::to_string(grown) + "0000000 rw-p 0 00:00 0 [anon:scudo:primary]\n";
    for (int pid : {400, 401 + 2 * late, 402}) tree.write(std::to_string(pid) + "/maps", area);
    tree.write("400/smaps", area + "Rss: " + std::to_string(kb) + " kB\nPss: 1 kB\nVmFlags: rd\n");
    tree.write("meminfo", "MemFree: 1 kB\nSUnreclaim: 3000000 kB\n");
    tree.write("slabinfo", "dentry 1 2 3 x\n");
  }
  const std::string a = trees[0].root(), b = trees[1].root(), c = trees[2].root();
  fail_each({a, a, b, c, c, c, c}, 4, 13);
}

TEST_F(Faults, LeaveTheNextPassRightOnARealProcess) {
  const Child child("app");
  kill(child.pid(), SIGSTOP);
  waitpid(child.pid(), nullptr, WUNTRACED);
  // Its threads look like processes, and there is one.
  const std::string root = "/proc/" + std::to_string(child.pid()) + "/task";
  fail_each(std::vector(6, root), 3, 7);
}

// The third, a pause, may be woken for nothing: Cycle.DumpsBetweenPassesAndWhilePaused.
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
