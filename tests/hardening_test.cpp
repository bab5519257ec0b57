// What tries to freeze, bloat or silence the library, or to have it harm its host.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "audit/audit_event_handler.h"
#include "audit/event_ids.h"
#include "inspect/inventory_budget.h"
#include "inspect/open_files.h"
#include "inspect/status.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_list.h"
#include "platform/clock.h"
#include "platform/socket_wait.h"
#include "proctable/pool.h"
#include "proctable/scan.h"
#include "report/event_record.h"
#include "report/event_socket.h"
#include "support/captured_output.h"
#include "support/fake_clock.h"
#include "support/made_tree.h"
#include "support/own_network.h"
#include "support/record_listener.h"
#include "support/world.h"
#include "taskwarden/taskwarden.h"

namespace {

using namespace std::chrono_literals;
using testing::ExitedWithCode;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

size_t kb_of(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    size_t kb = 0;
    if (word == key + ":" && status >> kb) return kb;
  }
  return 0;
}

// One process in `step` comes, is visited and goes, up to the highest pid there can be.
void go_once_round(const tw_process_pool& pool, uint32_t step) {
  for (uint32_t pid = 300; pid < pool.slots; pid += step) {
    pool.entries[pid].pid = pid;
    pool.notes[pid].known = 1;
    pool.entries[pid] = {};
    pool.notes[pid] = {};
    tw_process_pool_give_back(pool, pid);
  }
}

TEST(OwnProcess, TableGivesItsMemoryBack) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer keeps memory of its own for each page";
  const tw_process_pool pool = tw_process_pool_reserve(UINT64_MAX);
  ASSERT_EQ(pool.slots, TW_LARGEST_PID_LIMIT);
  pool.entries[5050].pid = 5050;
  const size_t before = kb_of("VmRSS");
  go_once_round(pool, 100);
  EXPECT_LE(kb_of("VmRSS"), before + 4096);
  EXPECT_EQ(pool.entries[5050].pid, 5050U);
  EXPECT_EQ(pool.entries[5051].pid, 0U);
}

TEST(OwnProcess, TableIsNotLockedWithItsHost) {
  if (mlockall(MCL_FUTURE) != 0) GTEST_SKIP() << "memory may not be locked here";
  munlockall();
  EXPECT_EXIT(
      {
        mlockall(MCL_FUTURE);
        const size_t host = kb_of("VmLck");
        const tw_process_pool pool = tw_process_pool_reserve(UINT64_MAX);
        const size_t start = kb_of("VmLck") - host;
        mlock(pool.entries, 1 << 20);
        pool.entries[1000].pid = 1;
        go_once_round(pool, 1000);
        _exit(pool.slots == TW_LARGEST_PID_LIMIT && start < 1024 && kb_of("VmLck") < host + 1024
                  ? 7
                  : 1);
      },
      ExitedWithCode(7), "");
}

TEST(Hardening, ALackOfDescriptorsDoesNotEndTheCycle) {
  tw_process_list* list = fresh_table();
  MadeTree tree({{.pid = 300, .ppid = 2}});
  // A sanitizer needs descriptors to look at who is told of an event: no ranking raises any.
  ProcessCollector* const ranking = std::exchange(list->native_collector, nullptr);
  FakeClock clock;
  CapturedOutput output;
  rlimit whole = {};
  getrlimit(RLIMIT_NOFILE, &whole);
  clock.steps_ms.assign(100, 1);
  uint32_t seen = 0;
  clock.on_rest = [&] {
    const rlimit none = {0, whole.rlim_max};
    if (clock.rests_ms.size() == 1) {
      tree.put({.pid = 301, .ppid = 2});
      setrlimit(RLIMIT_NOFILE, &none);
    } else if (clock.rests_ms.size() == 3) {
      seen = list->count;
      EXPECT_EQ(tw_process_list_refresh(list), -1);
      setrlimit(RLIMIT_NOFILE, &whole);
      std::filesystem::remove_all(tree.root());
    }
  };
  EXPECT_EQ(taskwarden_start(), TASKWARDEN_CANNOT_READ);
  EXPECT_EQ(seen, 2U);
  list->native_collector = ranking;
}

TEST(Hardening, DevicesAmongTheFilesHoldNothingUp) {
  fresh_table();
  MadeTree tree({{.pid = 300}});
  CapturedOutput output;
  const auto replace = [&](const std::string& file, const char* device) {
    tree.remove(file);
    const std::string path = tree.root() / file;
    device == nullptr ? mkfifo(path.c_str(), 0600) : symlink(device, path.c_str());
  };
  tw_process_desc desc = {};
  for (const char* device : {static_cast<const char*>(nullptr), "/dev/zero", "/dev/tty"}) {
    for (const char* file : {"300/status", "300/cmdline", "meminfo", "300/fd"})
      replace(file, device);
    tw_process_check_status(300, &desc);
    tw_process_check_openfiles(300, &desc, nullptr);
    tw_system_check_meminfo(nullptr);
    tree.put({.pid = 300});
    replace("300/cmdline", device);
    tw_process_check_status(300, &desc);
    EXPECT_STREQ(desc.name, "app#300");
  }
}

TEST(Hardening, NoDescriptorOfOursIsAStandardOne) {
  own_network();
  const RecordListener listener;
  EXPECT_EXIT(
      {
        for (int fd : {0, 1, 2}) close(fd);
        bool clear = true;
        taskwarden_set_output(
            [](void* to, int, const char*, const char*, size_t) {
              for (int fd : {0, 1, 2}) *static_cast<bool*>(to) &= fcntl(fd, F_GETFD) == -1;
            },
            &clear);
        reportEvent(1, 2, "e", "n", "");
        tw_process_desc desc = {};
        tw_process_check_status(getpid(), &desc);
        tw_process_check_openfiles(getpid(), &desc, nullptr);
        const int fd = setupConnection();
        _exit(clear && fd > 2 && desc.threads > 0 && desc.open_files > 0 ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

TEST(Hardening, ACancellationActsInTheRest) {
  CapturedOutput output;
  taskwarden_set_proc_root("/proc/self/task");
  for (int i = 0; i < 40; ++i) {
    pthread_t cycle;
    pthread_create(
        &cycle, nullptr, [](void*) -> void* { return taskwarden_start(), nullptr; }, nullptr);
    taskwarden_progress progress = {};
    progress.size = sizeof(progress);
    do taskwarden_get_progress(&progress);
    while (progress.is_running == 0);
    EXPECT_EQ(taskwarden_start(), TASKWARDEN_IS_RUNNING);
    pthread_cancel(cycle);
    void* end = nullptr;
    pthread_join(cycle, &end);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    taskwarden_get_progress(&progress);
    EXPECT_EQ(progress.is_running, 0);
  }
  taskwarden_set_proc_root("/proc");
}

// What a forked child does: it calls whatever takes any thread, and ends.
[[noreturn]] void call_and_end() {
  alarm(100);
  taskwarden_notify(1);
  taskwarden_notify(0);
  taskwarden_request_dump();
  interest_builtin_add("nobody");
  taskwarden_spare(1, 1, 0);
  taskwarden_set_output(nullptr, nullptr);
  _exit(7);
}

void expect_to_end(pid_t child) {
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

TEST(Hardening, AForkedChildsCallsReturn) {
  std::atomic<bool> ended = false;
  taskwarden_set_output([](void*, int, const char*, const char*, size_t) {}, nullptr);
  std::jthread calling[3];
  for (auto& thread : calling) {
    thread = std::jthread([&ended] {
      while (!ended) taskwarden_notify(0), interest_builtin_add("nobody");
    });
  }
  for (int i = 0; i < 41; ++i) {
    const pid_t child = fork();
    if (child == 0) call_and_end();
    expect_to_end(child);
  }
  ended = true;
  for (auto& thread : calling) thread.join();
  // From inside a sink, where a sanitizer tells of locks in an order that one thread alone may
  // take.
  if (kSanitized) return;
  pid_t child = -1;
  taskwarden_set_output(
      [](void* to, int, const char*, const char*, size_t) {
        *static_cast<pid_t*>(to) = fork();
        if (*static_cast<pid_t*>(to) == 0) call_and_end();
      },
      &child);
  interest_builtin_add("nobody");
  taskwarden_set_output(nullptr, nullptr);
  expect_to_end(child);
}

TEST(Hardening, SignalsAtAnyRateLeaveRests) {
  struct sigaction nothing = {};
  nothing.sa_handler = [](int) {};
  sigaction(SIGALRM, &nothing, nullptr);
  const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  std::string rests;
  for (int i = 0; i < 8; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    rests += tw_rest(0, 200000) == 0 ? "whole " : "short ";
    EXPECT_TRUE(i < 5 || std::chrono::steady_clock::now() - begin >= 200ms);
  }
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_EQ(rests, "short short short short short whole whole whole ");
  EXPECT_EQ(tw_rest(0, 1), 0);  // undisturbed: the next may be short again
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(tw_rest(9, 0), -1);
  setitimer(ITIMER_REAL, &never, nullptr);
}

TEST(Hardening, APassWaitsForNoServiceLongerThanStated) {
  own_network();
  CapturedOutput output;
  auto listener = std::make_unique<RecordListener>(0);
  const auto lost = [](int records) {
    const auto before = tw_records_so_far();
    for (int i = 0; i < records; ++i) reportEvent(1, 2, "e", "n", "");
    return tw_records_so_far().lost - before.lost;
  };
  EXPECT_EQ(lost(1), 0U);  // fills its queue
  tw_begin_waits_of_pass(true);
  EXPECT_EQ(tw_wait_left_us(), 50000);
  EXPECT_EQ(lost(1), 1U);
  EXPECT_EQ(tw_wait_left_us(), 0);
  EXPECT_EQ(lost(60), 60U);
  output.log();
  lost(1);
  EXPECT_EQ(output.log(),
            "|taskwarden  client socket connectting|Fail to connect to socket . return code: -1");
  listener = nullptr;
  tw_begin_waits_of_pass(true);
  listener = std::make_unique<RecordListener>();
  EXPECT_EQ(lost(3), 0U);
  tw_spend_wait(70000, false);
  EXPECT_LE(tw_wait_left_us(), 30000);
  tw_begin_waits_of_pass(false);
  tw_spend_wait(70000, true);
  EXPECT_EQ(tw_wait_left_us(), 50000);
}

TEST(Hardening, OnlyNamedUsersReceive) {
  if (getuid() != 0) GTEST_SKIP() << "another user's service takes root";
  EXPECT_EXIT(
      {
        own_network();
        CapturedOutput output;
        std::ignore = seteuid(65534);  // the listener's credentials are those of its listen(2)
        RecordListener listener;
        std::ignore = seteuid(0);
        const auto sent = [&] {
          reportEvent(1, 2, "e", "n", "");
          return listener.next(0).starts_with("1@@2@@");
        };
        const uint32_t nobody = 65534;
        bool right = sent();
        taskwarden_limit_receivers(nullptr, 0);
        right &= !sent() && output.log().find("return code: -1") != std::string::npos;
        right &= taskwarden_limit_receivers(&nobody, 17) == -1 && !sent();
        right &= taskwarden_limit_receivers(&nobody, 1) == 0 && sent();
        _exit(right ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

TEST(Hardening, ASparedProcessGoesByItsShortName) {
  MadeTree tree({{.pid = 300, .name = "short", .cmdline = "long"}});
  tree.write("300/stat", "300 () S 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 42");
  const auto name = [] {
    tw_process_desc desc = {};
    tw_process_check_status(300, &desc);
    return std::string(desc.name);
  };
  const std::tuple<uint64_t, int, const char*> rows[] = {
      {41, 1, "long#300"},                         // another process that had the pid
      {42, 1, "short#300"}, {42, 1, "short#300"},  // once more is no more
      {41, 0, "short#300"}, {42, 0, "long#300"},  {42, 0, "long#300"}};
  for (const auto& [start, spared, wanted] : rows) {
    EXPECT_EQ(taskwarden_spare(300, start, spared), 0);
    EXPECT_EQ(name(), wanted);
  }
  const uint32_t user = geteuid();
  const std::tuple<uint32_t, int, const char*> users[] = {
      {user + 1, 1, "long#300"},  {user, 1, "short#300"},
      {user, 0, "long#300"},      {TASKWARDEN_EVERYBODY, 1, "short#300"},
      {user + 1, 0, "short#300"}, {TASKWARDEN_EVERYBODY, 0, "long#300"}};
  for (const auto& [uid, spared, wanted] : users) {
    EXPECT_EQ(taskwarden_spare_user(uid, spared), 0);
    EXPECT_EQ(name(), wanted) << uid;
  }
  for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(taskwarden_spare_user(i, 1), 0);
  EXPECT_EQ(taskwarden_spare_user(16, 1), -1);
  for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(taskwarden_spare_user(i, 0), 0);
  for (uint32_t i = 0; i < 64; ++i) EXPECT_EQ(taskwarden_spare(i, 1, 1), 0);
  EXPECT_EQ(taskwarden_spare(64, 1, 1), -1);
  for (uint32_t i = 0; i < 64; ++i) EXPECT_EQ(taskwarden_spare(i, 1, 0), 0);
}

TEST(Hardening, ProgressTellsWhatIsRead) {
  fresh_table();
  MadeTree tree({{.pid = 300}});
  tree.write("300/status", "Name:");
  std::string seen;
  taskwarden_set_output(
      [](void* to, int, const char*, const char*, size_t) {
        taskwarden_progress progress = {};
        progress.size = sizeof(progress);
        taskwarden_get_progress(&progress);
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const int64_t age = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
        *static_cast<std::string*>(to) += std::to_string(progress.reads) + "/" +
                                          std::to_string(progress.reads_pid) +
                                          (age - progress.reads_since_ms < 60000 ? " " : "old ");
      },
      &seen);
  tw_process_desc desc;
  tw_process_check_status(300, &desc);
  tw_process_check_status(301, &desc);
  interest_builtin_add("nobody");
  taskwarden_set_output(nullptr, nullptr);
  EXPECT_EQ(seen, "4/300 4/300 4/301 0/0 ");
}

TEST(Hardening, InventoriesStayWithinTheirBudget) {
  own_network();
  fresh_table();
  MadeTree tree({{.pid = 9, .fds = 0}, {.pid = 8, .fds = 0}});
  CapturedOutput output;
  taskwarden_limit_inventories(100000);
  const auto raise = [&](uint32_t pid, tw_process_entry* entry) {
    entry->pid = pid;
    snprintf(entry->desc.name, sizeof(entry->desc.name), "p#%u", pid);
    AuditEvent event = {
        .id = Event_OpenFileAmount, .source = AUDIT_SOURCE_PROCENTRY, .data = entry};
    AuditEventHandler().onEventIncoming(&event);
    return output.report();
  };
  const auto open = [&](int pid, int from, int to, const std::string& name) {
    for (int i = from; i < to; ++i)
      tree.link(std::to_string(pid) + "/fd/" + std::to_string(i),
                name.ends_with('%') ? name + std::to_string(i) + std::string(200, 'x') : name);
  };
  tw_process_entry large = {}, small = {};
  open(8, 0, 12, "/few");
  raise(8, &small);
  open(9, 0, 30, "/most");
  open(9, 30, 500, "/odd%");
  const std::string first = raise(9, &large);
  EXPECT_NE(first.find("under other names, which are not kept: 0 more\n"), first.npos) << first;
  open(9, 500, 520, "/most");
  open(9, 520, 560, "/new");
  open(9, 560, 600, "/odd%");
  const std::string second = raise(9, &large);
  for (const char* line :
       {"\t \"/most\" added: 20\n", "\t \"/new\" added: 39\n", "which are not kept: "})
    EXPECT_NE(second.find(line), second.npos) << line << second;
  // What was small is whole.
  open(8, 12, 20, "/other");
  EXPECT_TRUE(raise(8, &small).ends_with("newly opened:\n\t \"/other\" added: 8\n"));
  AuditEvent end = {.id = Event_ProcExited, .source = AUDIT_SOURCE_PROCENTRY, .data = &large};
  AuditEventHandler().onEventIncoming(&end);
  end.data = &small;
  AuditEventHandler().onEventIncoming(&end);
  taskwarden_limit_inventories(0);
}

}  // namespace
