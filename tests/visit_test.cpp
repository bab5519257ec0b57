// What an ordinary visit asks of the kernel and of the heap, and when descriptors are listed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cstdlib>
#include <future>
#include <map>

#include "inspect/open_files.h"
#include "proctable/inspection.h"
#include "support/captured_output.h"
#include "support/child.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"

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

// Whether descriptor directories tell their count on this kernel.
static bool sizes_count() {
  struct stat fds;
  return stat("/proc/self/fd", &fds) == 0 && fds.st_size > 0;
}

// Visits the one process of a fresh table, past its baseline and out of the ranks.
class Visits {
 public:
  explicit Visits(pid_t pid) : list_(fresh_table()), entry_(&list_->entries[pid]) {
    entry_->pid = static_cast<uint32_t>(pid);
    list_->head = entry_;
    list_->count = 1;
    snprintf(entry_->desc.name, sizeof(entry_->desc.name), "<dummy>");
  }
  void next() {
    clock_.advance_ms(2000);
    list_->remaining = 1;
    tw_process_entry* cursor;
    tw_process_list_iterate(list_, list_->head, 60, &cursor);
    entry_->interested = false;
  }
  tw_process_entry* operator->() { return entry_; }

 private:
  FakeClock clock_;
  tw_process_list* list_;
  tw_process_entry* entry_;
};

// The calls of each of `count` visits to `child`, made in a process of their own under trace, and
// of one more that begins with its becoming another program.
static std::vector<std::string> calls_of_visits(Child& child, int count) {
  const std::map<uint64_t, std::string> kNames = {
#ifdef SYS_access
      {SYS_access, "access"},
#endif
      {SYS_faccessat, "access"}, {SYS_openat, "open"},     {SYS_read, "read"},
      {SYS_close, "close"},      {SYS_newfstatat, "stat"}, {SYS_fstat, "stat"},
      {SYS_getdents64, "list"},  {SYS_readlinkat, "link"}, {SYS_lseek, "seek"},
      {SYS_write, "write"},      {SYS_fcntl, "fcntl"},     {SYS_ioctl, "ioctl"}};
  const pid_t tracee = fork();
  if (tracee == 0) {
    CapturedOutput output;
    Visits visits(child.pid());
    ptrace(PTRACE_TRACEME);
    raise(SIGSTOP);
    for (int i = 0; i < count; ++i) visits.next(), syscall(SYS_getppid);
    child.command("exec renamed");
    visits.next();
    _exit(0);
  }
  std::vector<std::string> calls(1);
  int status;
  waitpid(tracee, &status, 0);
  ptrace(PTRACE_SETOPTIONS, tracee, nullptr, PTRACE_O_TRACESYSGOOD);
  while (ptrace(PTRACE_SYSCALL, tracee, nullptr, nullptr) == 0 && waitpid(tracee, &status, 0) > 0 &&
         WIFSTOPPED(status)) {
    __ptrace_syscall_info call = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, tracee, sizeof(call), &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    const auto name = kNames.find(call.entry.nr);
    if (name != kNames.end()) calls.back() += name->second + " ";
    if (call.entry.nr == SYS_getppid) calls.emplace_back();
  }
  return calls;
}

TEST(OwnProcess, AsksTheKernelForNoMoreThanThis) {
  if (!sizes_count()) GTEST_SKIP() << "descriptor directories have no sizes here";
  Child child("a name too long for a short string");
  const std::string start =
      "access open read open read close close open stat ";  // status around the command line
  int listed = 0;
  const auto visits = calls_of_visits(child, 3 + 2 * int{TW_FD_LISTING_RHYTHM});
  EXPECT_EQ(visits[0], start + "list list stat close ");
  for (size_t i = 3; i < visits.size() - 1; ++i) {  // the baseline is taken
    const bool lists = visits[i] == visits[0];
    EXPECT_EQ(visits[i], lists ? visits[0] : start + "close ") << i;
    listed += lists;
  }
  EXPECT_EQ(listed, 2);
  EXPECT_TRUE(visits.back().ends_with(visits[0])) << visits.back();
}

TEST(Visit, AllocatesAtMostTwoStrings) {
  CapturedOutput output;
  Child child("a name too long for a short string");
  Visits visits(child.pid());
  for (int i = 0; i < 3; ++i) visits.next();
  EXPECT_TRUE(visits->baseline_taken);
  for (int i = 0; i < 40; ++i) {
    const size_t before = allocations;
    visits.next();
    EXPECT_LE(allocations - before, 2U);
  }
}

TEST(Recount, FollowsTheDescriptors) {
  CapturedOutput output;
  tw_fd_listing last = {};
  tw_process_desc desc = {};
  const auto count = [&] {
    tw_process_recount_openfiles(getpid(), &desc, &last);
    return desc.open_files;
  };
  const int before = count();
  unique_fd listener(socket(AF_UNIX, SOCK_STREAM, 0)), client(socket(AF_UNIX, SOCK_STREAM, 0));
  EXPECT_EQ(count(), before + 2);
  client.reset();
  EXPECT_EQ(count(), before + 1);
  client.reset(socket(AF_UNIX, SOCK_STREAM, 0));
  EXPECT_EQ(count(), before + 2);

  // A call that waits has its descriptor's number already: in the size, not in the listing.
  sockaddr_un address = {AF_UNIX, ""};  // a name of the kernel's choice
  socklen_t length = sizeof(sa_family_t);
  bind(listener.get(), reinterpret_cast<sockaddr*>(&address), length);
  length = sizeof(address);
  getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length);
  listen(listener.get(), 1);
  auto accepted = std::async(std::launch::async, accept, listener.get(), nullptr, nullptr);
  struct stat now = {};
  while (sizes_count() && now.st_size < before + 2) stat("/proc/self/fd", &now);
  EXPECT_EQ(count(), before + 2);
  connect(client.get(), reinterpret_cast<sockaddr*>(&address), length);
  const unique_fd connection(accepted.get());
  for (uint32_t i = 0; i < TW_FD_LISTING_RHYTHM; ++i) count();
  EXPECT_EQ(count(), before + 3);

  // The sizes of other file systems say nothing: each visit lists.
  MadeTree tree({{.pid = getpid(), .fds = 3}});
  last = {};
  EXPECT_EQ(count(), 3);
  tree.put({.pid = getpid(), .fds = 4});
  EXPECT_EQ(count(), 4);
}
