// Holds the ordinary visit to what it may ask of the kernel and of the heap: ten system calls, and
// two strings for a long command line. Exits with 1 where it asks for more. No time is measured.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "child_table.h"
#include "inspect/open_files_count.h"
#include "population.h"
#include "proctable/storage.h"

static size_t allocations = 0;
void* operator new(size_t size) {
  ++allocations;
  return malloc(size);
}
void operator delete(void* block) noexcept {
  free(block);
}
void operator delete(void* block, size_t) noexcept {
  free(block);
}

namespace {

constexpr size_t kMostAllocations = 2;
constexpr int kVisits = 2 * int{TW_FD_LISTING_RHYTHM};
// The status around the command line, then the size of the descriptor directory.
const std::string kStart = "access open read open read close close open stat ";
const std::string kPlain = kStart + "close ";
const std::string kListing = kStart + "list list stat close ";

// Looks at `pid` until a visit is an ordinary one, then kVisits times under trace, a getppid(2)
// after each, and once more under another name. Exits with 1 if a visit allocates too much.
[[noreturn]] void visit(pid_t pid) {
  prepare_library();
  ChildTable table({&pid, 1});
  size_t most = 0;
  ptrace(PTRACE_TRACEME);
  raise(SIGSTOP);
  for (int i = 0; i < kVisits; ++i) {
    const size_t before = allocations;
    table.visit_all();
    most = std::max(most, allocations - before);
    syscall(SYS_getppid);
  }
  strcpy(tw_process_list_create()->entries[pid].desc.name, "another");
  table.visit_all();
  _exit(most > kMostAllocations);
}

// The calls of each visit of `tracee`, which is stopped; `*status` is how it ended.
std::vector<std::string> calls_of_visits(pid_t tracee, int* status) {
  const std::map<uint64_t, std::string> kNames = {
#ifdef SYS_access
      {SYS_access, "access"},
#endif
      {SYS_faccessat, "access"}, {SYS_openat, "open"},     {SYS_read, "read"},
      {SYS_close, "close"},      {SYS_newfstatat, "stat"}, {SYS_fstat, "stat"},
      {SYS_getdents64, "list"},  {SYS_readlinkat, "link"}, {SYS_lseek, "seek"},
      {SYS_write, "write"},      {SYS_fcntl, "fcntl"},     {SYS_ioctl, "ioctl"}};
  std::vector<std::string> calls(1);
  ptrace(PTRACE_SETOPTIONS, tracee, nullptr, PTRACE_O_TRACESYSGOOD);
  while (ptrace(PTRACE_SYSCALL, tracee, nullptr, nullptr) == 0 && waitpid(tracee, status, 0) > 0 &&
         WIFSTOPPED(*status)) {
    __ptrace_syscall_info call = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, tracee, sizeof(call), &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) {
      continue;
    }
    const auto name = kNames.find(call.entry.nr);
    calls.back() += name != kNames.end() ? name->second + " " : "";
    if (call.entry.nr == SYS_getppid) {
      calls.emplace_back();
    }
  }
  return calls;
}

}  // namespace

int main() {
  struct stat descriptors;
  if (stat("/proc/self/fd", &descriptors) != 0 || descriptors.st_size == 0) {
    std::puts("Descriptor directories have no sizes on this kernel: nothing to check.");
    return 0;
  }
  const Population child(plain_shapes(1));
  const pid_t tracee = fork();
  if (tracee == 0) {
    visit(child.pids()[0]);
  }
  int status = 0;
  waitpid(tracee, &status, 0);
  const std::vector<std::string> visits = calls_of_visits(tracee, &status);
  bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!ok) {
    std::printf("A visit allocates more than %zu times, or did not end.\n", kMostAllocations);
  }
  int listings = 0;
  for (size_t i = 0; i + 1 < visits.size(); ++i) {
    listings += visits[i] == kListing;
    if (visits[i] != kPlain && visits[i] != kListing) {
      std::printf("Visit %zu made other calls: %s\n", i, visits[i].c_str());
      ok = false;
    }
  }
  if (visits.size() != kVisits + 1 || listings != 2 || !visits.back().starts_with(kListing)) {
    std::printf("%zu visits, %d listings, the last: %s\n", visits.size(), listings,
                visits.back().c_str());
    ok = false;
  }
  if (ok) {
    std::printf("A visit: 10 system calls (%s), at most %zu allocations.\n", kPlain.c_str(),
                kMostAllocations);
  }
  return ok ? 0 : 1;
}
