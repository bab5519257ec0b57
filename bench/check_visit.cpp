// Holds the ordinary visit to what it may ask of the kernel and of the heap: ten system calls, and
// two strings for a long command line; where visits keep what did not run, one call. Exits with 1
// where it asks for more. No time is measured.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "child_table.h"
#include "inspect/open_files_count.h"
#include "population.h"
#include "proctable/kept_visits.h"
#include "proctable/storage.h"
#include "proctable/table_notes.h"

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
const std::string kRead = "open read open read close close open stat ";
const std::string kReadListing = kRead + "list list stat close ";

// What the visits of a process that sleeps may ask for.
struct Kind {
  const char* what;
  bool only_what_ran;
  std::string begin;  // of each
  int readings;       // out of kVisits
};
const Kind kKinds[] = {{"A visit", false, "access ", kVisits},
                       {"A visit of only what ran", true, "clock ", kVisits / TW_READING_RHYTHM}};

// Looks at `pid` until a visit is an ordinary one, then kVisits times under trace, a getppid(2)
// after each, and once more under another name. Exits with 1 if a visit allocates too much.
[[noreturn]] void visit(pid_t pid, bool only_what_ran) {
  prepare_library();
  ChildTable table({&pid, 1});
  table.visit_only_what_ran(only_what_ran);
  size_t most = 0;
  // Whatever the pid, two listings follow.
  tw_process_note_of(tw_process_list_create(), static_cast<uint32_t>(pid))->files.visits =
      TW_FD_LISTING_RHYTHM / 2;
  ptrace(PTRACE_TRACEME);
  raise(SIGSTOP);
  for (int i = 0; i < kVisits; ++i) {
    const size_t before = allocations;
    table.visit_all();
    most = std::max(most, allocations - before);
    syscall(SYS_getppid);
  }
  tw_process_entry& entry = tw_process_list_create()->entries[pid];
  strcpy(entry.desc.name, "another");
  entry.baseline_taken = false;  // else a kept visit finds no fault with it
  table.visit_all();
  _exit(most > kMostAllocations);
}

// The calls of each visit of `tracee`, which is stopped; `*status` is how it ended.
std::vector<std::string> calls_of_visits(pid_t tracee, int* status) {
  const std::map<uint64_t, std::string> kNames = {
#ifdef SYS_access
      {SYS_access, "access"},
#endif
      {SYS_faccessat, "access"},    {SYS_openat, "open"},     {SYS_read, "read"},
      {SYS_close, "close"},         {SYS_newfstatat, "stat"}, {SYS_fstat, "stat"},
      {SYS_getdents64, "list"},     {SYS_readlinkat, "link"}, {SYS_lseek, "seek"},
      {SYS_clock_gettime, "clock"}, {SYS_write, "write"},     {SYS_fcntl, "fcntl"},
      {SYS_ioctl, "ioctl"}};
  std::vector<std::string> calls(1);
  ptrace(PTRACE_SETOPTIONS, tracee, nullptr, PTRACE_O_TRACESYSGOOD);
  while (ptrace(PTRACE_SYSCALL, tracee, nullptr, nullptr) == 0 && waitpid(tracee, status, 0) > 0 &&
         WIFSTOPPED(*status)) {
    __ptrace_syscall_info call = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, tracee, sizeof(call), &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) {
      continue;
    }
    // Clocks of processes have negative ids; others need no call of the kernel's, or are the
    // slice's.
    const bool is_other_clock =
        call.entry.nr == SYS_clock_gettime && static_cast<int32_t>(call.entry.args[0]) >= 0;
    const auto name = kNames.find(call.entry.nr);
    calls.back() += name != kNames.end() && !is_other_clock ? name->second + " " : "";
    if (call.entry.nr == SYS_getppid) {
      calls.emplace_back();
    }
  }
  return calls;
}

bool check(const Kind& kind) {
  const Population child(plain_shapes(1));
  const pid_t tracee = fork();
  if (tracee == 0) {
    visit(child.pids()[0], kind.only_what_ran);
  }
  int status = 0;
  waitpid(tracee, &status, 0);
  const std::vector<std::string> visits = calls_of_visits(tracee, &status);
  bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!ok) {
    std::printf("%s allocates more than %zu times, or did not end.\n", kind.what, kMostAllocations);
  }
  const std::string plain = kind.begin + kRead + "close ", listing = kind.begin + kReadListing;
  int readings = 0, listings = 0;
  for (size_t i = 0; i + 1 < visits.size(); ++i) {
    listings += visits[i] == listing;
    readings += visits[i] == listing || visits[i] == plain;
    if (visits[i] != plain && visits[i] != listing &&
        !(kind.only_what_ran && visits[i] == kind.begin)) {
      std::printf("%s, number %zu, made other calls: %s\n", kind.what, i, visits[i].c_str());
      ok = false;
    }
  }
  if (visits.size() != kVisits + 1 || readings != kind.readings || listings != 2 ||
      !visits.back().starts_with(listing)) {
    std::printf("%s: %zu of them, %d readings, %d listings, the last: %s\n", kind.what,
                visits.size(), readings, listings, visits.back().c_str());
    ok = false;
  }
  if (ok) {
    std::printf(
        "%s: %d of %d make %zu system calls (%s), the others %d; at most %zu allocations.\n",
        kind.what, readings, kVisits,
        static_cast<size_t>(std::count(plain.begin(), plain.end(), ' ')), plain.c_str(),
        kind.only_what_ran ? 1 : 0, kMostAllocations);
  }
  return ok;
}

}  // namespace

int main() {
  struct stat descriptors;
  if (stat("/proc/self/fd", &descriptors) != 0 || descriptors.st_size == 0) {
    std::puts("Descriptor directories have no sizes on this kernel: nothing to check.");
    return 0;
  }
  bool ok = true;
  for (const Kind& kind : kKinds) {
    ok &= check(kind);
  }
  return ok ? 0 : 1;
}
