// What observers get: of every kind of event what the log says, of the table what was read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cstring>
#include <fstream>
#include <set>
#include <stdexcept>
#include <thread>

#include "audit/poll.h"
#include "inspect/start_time.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/captured_output.h"
#include "support/child.h"
#include "support/fake_clock.h"
#include "support/made_tree.h"
#include "support/own_network.h"
#include "support/telling.h"
#include "support/world.h"
#include "taskwarden/observers.h"

namespace {

using Texts = std::vector<std::string>;

// Takes every event while it lives, and holds what it was told against the log.
class Observed {
 public:
  explicit Observed(int flags = TASKWARDEN_WITH_TEXT) {
    EXPECT_EQ(taskwarden_observe_events(take, this, flags), 0);
  }
  ~Observed() { taskwarden_observe_events(nullptr, nullptr, 0); }

  // The log has each text of the events since the last call, and nothing else.
  void expect_told(std::string log) {
    for (const std::string& text : std::exchange(texts_, {})) {
      const size_t at = log.find(text);
      ASSERT_NE(at, log.npos) << text << "is not in:\n" << log;
      log.erase(at, text.size());
    }
    EXPECT_EQ(log, "");
  }

  std::set<int32_t> ids;
  std::map<uint32_t, uint64_t> starts;
  std::string lives;  // ends and changes of name, rankings' comings and goings
  int lost = 0;

 private:
  static void take(void* self, const taskwarden_event* event) {
    auto& own = *static_cast<Observed*>(self);
    ASSERT_EQ(event->size, sizeof(*event));
    ASSERT_EQ(event->id, event->kind->id);
    own.ids.insert(event->id);
    own.lost += event->record == TASKWARDEN_RECORD_LOST;
    if (event->pid != 0) own.starts[event->pid] = event->start_time;
    const EventTexts texts = texts_of(*event);
    own.texts_.insert(own.texts_.end(), {texts.raised, texts.explained});
    if (event->id != 769 && event->id != 770 && event->id != 513) return;
    own.lives += std::to_string(event->id) + text_of(event->process);
    for (size_t i = 0; i < event->row_count; ++i) {
      const taskwarden_event_row& row = event->rows[i];
      if (row.kind == TASKWARDEN_ROW_NEW_NAME) own.lives += ">" + text_of(row.name);
      if (row.kind == TASKWARDEN_ROW_CAME) own.lives += "+" + text_of(row.name);
      if (row.kind == TASKWARDEN_ROW_WENT) own.lives += "-" + text_of(row.name);
    }
    own.lives += " ";
  }

  Texts texts_;
};

void pass(FakeClock& clock, tw_process_list* list) {
  clock.advance_ms(3000);
  tw_process_list_refresh(list);
  for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, 1 << 20, &at);
}

// A child of the demonstration, which leaks once for each order.
class DemoChild {
 public:
  explicit DemoChild(const std::string& kind) {
    int ends[2];
    pass_low_pids();
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    orders_.reset(ends[1]);
    const unique_fd input(ends[0]);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(input.get(), 0);
      execl(TASKWARDEN_PROGRAM, ("demo-" + kind).c_str(), "demo-child", kind.c_str(), nullptr);
      _exit(127);
    }
  }
  ~DemoChild() { kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0); }
  pid_t pid() const { return pid_; }
  void leak() {
    std::ignore = write(orders_.get(), "", 1);
    settle();
  }
  // Returns when it has taken its order and waits for the next: in read(2), on descriptor 0.
  void settle() const {
    int untaken = 1;
    while (untaken > 0) ioctl(orders_.get(), FIONREAD, &untaken);
    const std::string path = "/proc/" + std::to_string(pid_) + "/syscall";
    for (std::string words; !words.starts_with(std::to_string(SYS_read) + " 0x0 ");) {
      std::ifstream file(path);
      std::getline(file, words);
    }
  }

 private:
  pid_t pid_ = -1;
  unique_fd orders_;
};

}  // namespace

TEST(OwnProcess, LeaksReachTheObserverAsTheLogSaysThem) {
  if (access("/proc/self/syscall", R_OK) != 0) GTEST_SKIP() << "no /proc/PID/syscall here";
  own_network();
  interest_builtin_add("demo-shared");
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput output;
  Observed observed;
  std::vector<std::unique_ptr<DemoChild>> children;
  for (const char* kind : {"threads", "sockets", "pipes", "files", "memory", "shared", "rename"}) {
    children.push_back(std::make_unique<DemoChild>(kind));
    children.back()->settle();
  }
  for (int i = 0; i < 3; ++i) pass(clock, list);
  for (int round = 0; round < 3; ++round) {
    for (auto& child : children) child->leak();
    pass(clock, list);
    pass(clock, list);
  }
  for (const auto& child : children) {
    const auto pid = static_cast<uint32_t>(child->pid());
    EXPECT_EQ(observed.starts[pid], tw_read_start_time(pid));
    EXPECT_NE(observed.starts[pid], 0U);
  }
  const auto ended = children.back()->pid();
  children.clear();
  pass(clock, list);
  observed.expect_told(output.report());
  EXPECT_GT(observed.lost, 0);
  for (const int id : {513, 769, 770, 1024, 1280, 1281, 1536})
    EXPECT_TRUE(observed.ids.contains(id)) << id;
  const std::string pid = "#" + std::to_string(ended) + " ";
  EXPECT_NE(observed.lives.find("demo-renamed" + pid), std::string::npos) << observed.lives;
  EXPECT_NE(observed.lives.find("770demo-rename#" + std::to_string(ended) + ">demo-renamed" + pid),
            std::string::npos);
}

TEST(Observer, SaysOfAMadeSystemWhatTheLogSays) {
  own_network();
  interest_builtin_add("app");
  MadeTree tree;
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput output;
  Observed observed;
  tree.put({.pid = 400, .name = "zygote", .ppid = 1});
  tree.write("slabinfo", "dentry 3 3 100 1\n");
  tree.write("meminfo", "MemFree: 5 kB\nMemAvailable: 6 kB\nSUnreclaim: 2097152 kB\n");
  tree.write("400/stat", "400 (a) b) S 1" + std::string(36, ' ') + "\n");
  for (int i = 0; i < 6; ++i) {
    tree.put({.pid = 401 + i, .ppid = 400, .rss = 10, .hwm = 10});
    tree.write(std::to_string(401 + i) + "/stat",
               std::to_string(401 + i) + " (a) 7 (b)) S 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 " +
                   std::to_string(7000 + i) + " 1 2\n");
  }
  const char* const names[] = {"[anon:dalvik-", "[anon:libc_malloc]", "/dev/ashmem", "/dev/kgsl",
                               "/dmabuf:"};
  for (const char* end : {"1000", "2000", "9000"}) {
    std::string maps;
    for (const char* name : names)
      maps += std::string("0-") + end + "000 rw-p 0 0:0 0 " + name + "\n";
    tree.write("401/maps", maps);
    tw_system_check_meminfo(nullptr);
    pass(clock, list);
    pass(clock, list);
  }
  list->count = 3000, list->runtime_count = list->native_count = 501, list->kthread_count = 1001;
  tw_event_poll_process_list(list);
  list->runtime_count = list->native_count = list->kthread_count = 0;
  tw_event_poll_process_list(list);
  observed.expect_told(output.report());
  EXPECT_EQ(observed.starts[401], 7000U);
  std::set<int32_t> all;
  for (size_t i = 0; const auto* kind = taskwarden_event_kind_at(i); ++i) {
    EXPECT_TRUE(all.insert(kind->id).second);
    EXPECT_TRUE(kind->size == sizeof(*kind) && *kind->what && *kind->rule);
  }
  for (const int seen_elsewhere : {513, 768, 769, 770, 1024, 1280, 1281, 1536})
    all.erase(seen_elsewhere);
  for (const int id : all) EXPECT_TRUE(observed.ids.contains(id)) << id;
  list->count = 7;
}

TEST(Observer, CanBeAloneTakenOutAndThrow) {
  fresh_table();
  CapturedOutput output;
  tw_meminfo_t low = {};
  {
    const Observed observed(TASKWARDEN_WITHOUT_TEXT);
    tw_event_poll_meminfo(&low);
    EXPECT_TRUE(observed.ids.contains(2048));
    EXPECT_EQ(output.report(), "");
  }
  tw_event_poll_meminfo(&low);
  EXPECT_NE(output.report(), "");
  EXPECT_EQ(taskwarden_observe_events(nullptr, nullptr, 2) + errno, EINVAL - 1);
  EXPECT_EQ(taskwarden_observe_table(nullptr, nullptr, -1) + errno, EINVAL - 1);
  // The end of its thread is no exception, and unwinds all that is held.
  taskwarden_observe_events([](void*, const taskwarden_event*) { pthread_exit(nullptr); }, nullptr,
                            TASKWARDEN_WITHOUT_TEXT);
  std::thread([&] { tw_event_poll_meminfo(&low); }).join();
  // What is said in an observer is not part of the event's text.
  taskwarden_observe_events([](void*, const taskwarden_event*) { taskwarden_notify(0); }, nullptr,
                            TASKWARDEN_WITHOUT_TEXT);
  output.report();
  tw_event_poll_meminfo(&low);
  EXPECT_EQ(output.report(), "-> resume taskwarden\n");
  int calls = 0;
  taskwarden_observe_events(
      [](void* count, const taskwarden_event*) {
        EXPECT_EQ(taskwarden_observe_events(nullptr, nullptr, 0), -1);
        EXPECT_EQ(errno, EDEADLK);
        if (++*static_cast<int*>(count) == 2) throw std::runtime_error("no");
      },
      &calls, 0);
  for (int i = 0; i < 4; ++i) tw_event_poll_meminfo(&low);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(output.log(),
            "taskwarden event|>> an observer threw an exception and is taken out!!\n");
}
