// Visits that read only what ran: which they are, what they still do, and that their results are
// those of full ones. On real processes and their CPU clocks.
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cstring>
#include <functional>

#include "platform/process_calls.h"
#include "proctable/kept_visits.h"
#include "proctable/new_pids.h"
#include "proctable/table_notes.h"
#include "support/both_visits.h"
#include "support/child.h"
#include "support/world.h"
#include "taskwarden/taskwarden.h"

namespace {

using namespace std::chrono_literals;

// Runs `test` as the first process of a pid namespace, with the old /proc, where that is allowed.
bool in_own_pids(const std::function<void()>& test) {
  const pid_t outer = fork();
  if (outer == 0) {
    if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) _exit(77);
    const pid_t inner = fork();
    if (inner == 0) {
      test();
      _exit(testing::Test::HasFailure());
    }
    int status = 1;
    waitpid(inner, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
  }
  int status = 0;
  waitpid(outer, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) return false;
  EXPECT_EQ(status, 0);
  return true;
}

bool mount_own_proc() {
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("proc", "/proc", "proc", 0, nullptr) == 0;
}

class KeptVisits : public testing::Test {
 protected:
  KeptVisits() {
    taskwarden_visit_only_what_ran(1);
    tw_settle_kept_visits();
  }
  ~KeptVisits() override {
    taskwarden_visit_only_what_ran(0);
    tw_settle_kept_visits();
  }

  // Runs `test` where there are no other processes, whose ends and ranks make for further readings,
  // or here where that is not allowed.
  static void alone(const std::function<void()>& test) {
    const bool allowed = in_own_pids([&] {
      ASSERT_TRUE(mount_own_proc());
      tw_settle_kept_visits();
      test();
    });
    if (!allowed) test();
  }

  tw_process_note& note(pid_t pid) {
    return *tw_process_note_of(w.list, static_cast<uint32_t>(pid));
  }
  tw_process_entry& entry(pid_t pid) { return w[static_cast<size_t>(pid)]; }
  // The pid of a child of it, once a pass has met it.
  pid_t child_of(pid_t parent) {
    w.pass();
    pid_t child = 0;
    for (const uint32_t pid : linked_pids(w.list)) {
      if (w[pid].desc.ppid == parent) child = static_cast<pid_t>(pid);
    }
    return child;
  }
  // Waits until it has stopped running.
  static void settle(pid_t pid) {
    uint64_t before = 0, now = 0;
    const auto clock = [&] {
      before = now;
      return tw_read_cpu_clock(static_cast<uint32_t>(pid), &now) == CpuClock::kRead;
    };
    while (!is_asleep(pid) || !clock() || now != before) usleep(2000);
  }
  // Has it watched, with a baseline, asleep, and nothing that has it read.
  void watch(pid_t pid) {
    settle(pid);
    for (int i = 0; i < 3; ++i) w.pass(3000);
    entry(pid).interested = false;
    note(pid).reading.event_visits = 0;
    reads(pid);
  }
  // Whether a pass reads it. The peak is compared with nothing. `is_due`: its own turn counts.
  bool reads(pid_t pid, bool is_due = false) {
    if (!is_due) note(pid).reading.visits = static_cast<uint8_t>(pid % TW_READING_RHYTHM);
    entry(pid).desc.vm_hwm_kb = 1;
    w.pass(2000);
    return entry(pid).desc.vm_hwm_kb != 1;
  }

  World w{{}, "/proc"};
};

TEST_F(KeptVisits, ReadWhatMayHaveChanged) {
  alone([&] {
    Child child("a");
    const pid_t pid = child.pid();
    watch(pid);
    uint32_t unreadable = 0;
    const struct {
      const char* what;
      std::function<void()> prepare;
      const char* visits;  // (r)ead or (k)ept
    } rows[] = {
        {"asleep", [] {}, "kkk"},
        {"ran",
         [&] {
           child.command("files 1");
           settle(pid);
         },
         "rk"},
        {"what is unknown stays so",
         [&] {
           note(pid).known = 0;
           unreadable = tw_unreadable_count(w.list);
         },
         "k"},
        {"the same", [&] { EXPECT_GT(tw_unreadable_count(w.list), unreadable); }, "k"},
        {"was running", [&] { entry(pid).desc.state = 'R'; }, "rk"},
        {"was waiting for a disk", [&] { entry(pid).desc.state = 'D'; }, "rk"},
        {"was stopped", [&] { entry(pid).desc.state = 'T'; }, "k"},
        {"has no baseline", [&] { entry(pid).baseline_taken = false; }, "rk"},
        {"is interesting", [&] { entry(pid).interested = true; }, "rr"},
        {"no more", [&] { entry(pid).interested = false; }, "k"},
        {"an event on kept numbers", [&] { entry(pid).baseline.threads = 0; }, "krrrrrk"},
        {"another clock, which has run less", [&] { note(pid).reading.cpu_ns += 1000000000; },
         "rk"},
        {"could not be read", [&] { note(pid).reading.is_whole = false; }, "rk"},
        {"its parent left", [&] { tw_note_gone(static_cast<uint32_t>(getpid())); }, "rrk"},
        {"has another name",
         [&] {
           note(pid).reading.shares = true;
           child.command("exec b");
           settle(pid);
         },
         "rrrrrrk"},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(row.what);
      row.prepare();
      std::string visits;
      while (visits.size() < strlen(row.visits)) {
        visits += reads(pid) ? 'r' : 'k';
        if (row.what[0] != 'i') entry(pid).interested = false;  // by rank
      }
      EXPECT_EQ(visits, row.visits);
      EXPECT_EQ(entry(pid).inspected_time, w.clock.us / 1000000);
    }
  });
}

TEST_F(KeptVisits, EachIsReadOnceInARow) {
  alone([&] {
    Child a("a"), b("b");
    watch(a.pid()), watch(b.pid());
    const uint32_t visits = note(a.pid()).files.visits = 0;  // no listing is due in the first 20
    note(a.pid()).reading.visits = note(b.pid()).reading.visits = 0;
    std::string reading[2];
    for (int i = 0; i < 3 * TW_READING_RHYTHM; ++i) {
      entry(b.pid()).desc.vm_hwm_kb = 1;
      entry(a.pid()).interested = entry(b.pid()).interested = false;  // by rank
      reading[0] += reads(a.pid(), true) ? 'r' : 'k';
      reading[1] += entry(b.pid()).desc.vm_hwm_kb != 1 ? 'r' : 'k';
      if (i < 20) {
        EXPECT_EQ(note(a.pid()).files.visits, visits + 1 + static_cast<uint32_t>(i));
      }
    }
    size_t at[2];
    for (int i : {0, 1}) {
      at[i] = reading[i].find('r');
      std::string expected(reading[i].size(), 'k');
      for (size_t turn = at[i]; turn < expected.size(); turn += TW_READING_RHYTHM)
        expected[turn] = 'r';
      EXPECT_EQ(reading[i], expected);
      EXPECT_LT(at[i], TW_READING_RHYTHM);
    }
    EXPECT_EQ((at[0] - at[1]) % TW_READING_RHYTHM == 0,
              (a.pid() - b.pid()) % TW_READING_RHYTHM == 0);
  });
}

TEST_F(KeptVisits, ZombiesStayAndTheGoneLeave) {
  alone([&] {
    Child child("a");
    const pid_t pid = child.pid();
    watch(pid);
    kill(pid, SIGKILL);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT);
    w.pass();
    EXPECT_EQ(entry(pid).desc.state, 'Z');
    w.pass();
    EXPECT_EQ(entry(pid).desc.state, 'Z');
    child.end();
    w.pass();
    EXPECT_EQ(w.row(static_cast<uint32_t>(pid)), "free");
  });
}

TEST_F(KeptVisits, ANewParentIsSeen) {
  alone([&] {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Child parent("a");
    parent.command("fork 1");
    const pid_t pid = child_of(parent.pid());
    watch(pid);
    parent.end();
    w.pass(), w.pass();
    EXPECT_EQ(entry(pid).desc.ppid, getpid());
    EXPECT_FALSE(reads(pid));
    kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
  });
}

// Either may open what the other then has open too, and sleep meanwhile.
TEST_F(KeptVisits, WhoSharesIsRead) {
  alone([&] {
    if (!tw_share_state(static_cast<uint32_t>(getpid()), static_cast<uint32_t>(getpid()))) {
      GTEST_SKIP() << "who shares may not be asked";
    }
    Child parent("a");
    parent.command("share 1");
    const pid_t pid = child_of(parent.pid());
    watch(parent.pid()), watch(pid);
    EXPECT_TRUE(reads(pid) && reads(pid) && reads(parent.pid()) && reads(parent.pid()));
    const int before = entry(pid).desc.open_files;
    parent.command("files 2");
    w.pass();
    EXPECT_EQ(entry(pid).desc.open_files, before + 2);
    kill(pid, SIGKILL);
  });
}

TEST_F(KeptVisits, KindsAreCountedAndKernelTasksGoByTheirClock) {
  for (int i = 0; i < 3; ++i) w.pass(3000);
  for (const uint32_t pid : linked_pids(w.list)) {
    if (w[pid].desc.ppid == 2) w[pid].desc.threads = 77;
  }
  w.pass();
  uint32_t kept = 0, tasks = 0, natives = 0;
  for (const uint32_t pid : linked_pids(w.list)) {
    kept += w[pid].desc.threads == 77 ? 1 : 0;
    tasks += w[pid].desc.ppid == 2 ? 1 : 0;
    natives += w[pid].desc.ppid == 1 ? 1 : 0;
  }
  EXPECT_GE(kept, tasks / 2);  // a container has none
  EXPECT_EQ(w.list->kthread_count, tasks);
  EXPECT_EQ(w.list->native_count, natives);
}

TEST_F(KeptVisits, OnlyWhereThePidsAreOurs) {
  const auto settled = [&](const char* root) {
    taskwarden_set_proc_root(root);
    tw_settle_kept_visits();
    return tw_keeps_visits(w.list);
  };
  EXPECT_TRUE(settled("/proc"));
  EXPECT_FALSE(tw_keeps_visits(nullptr));  // somebody's own table
  const bool allowed = in_own_pids([&] {
    EXPECT_FALSE(settled("/proc"));
    EXPECT_TRUE(mount_own_proc() && settled("/proc"));
  });
  w.told();
  const char* const said =
      "E stats|>> every process is read at each visit, \"/\" has other pids!!\n";
  EXPECT_FALSE(settled("/"));
  EXPECT_EQ(w.told(), said);
  w.tree.write("self/status", "Name:\ta\nNSpid:\t" + std::to_string(getpid()) + "\n");
  EXPECT_FALSE(settled(w.tree.root().c_str()));
  EXPECT_EQ(w.told(), "");
  taskwarden_set_proc_root("/proc");
  if (!allowed) GTEST_SKIP() << "no pid namespace of one's own is allowed";
}

// In a pid namespace of its own nobody else makes a pid. The number of processes is that of the
// whole machine, though: what others do meanwhile may spoil a try.
TEST_F(KeptVisits, PidsAreListedWhenSomeWereMade) {
  const auto end = std::chrono::steady_clock::now() + 60s;
  const auto is_spoiled = [&](bool is_wrong) {
    return is_wrong && std::chrono::steady_clock::now() < end;
  };
  const bool allowed = in_own_pids([&] {
    ASSERT_TRUE(mount_own_proc());
    const Child stays("a"), last("b");
    const auto ask = [](uint32_t times = 1) {
      std::string answers;
      for (; times > 0; --times) {
        answers += tw_may_have_new_pids() ? 'y' : 'n';
        if (answers.back() == 'y') tw_note_listing();
      }
      return answers;
    };
    const std::string rest = std::string(TW_LISTING_RHYTHM - 1, 'n') + "y";
    const std::string expected = "yn yn yn y" + rest;
    std::string answers;
    while (is_spoiled(answers != expected)) {
      tw_forget_new_pids();
      answers = ask(2) + " ";
      tw_settle_kept_visits();
      answers += ask(2) + " ";
      Child gone("c");
      answers += ask(2) + " ";
      gone.end();  // one that was at work may have taken its place
      answers += ask(1 + TW_LISTING_RHYTHM);
    }
    EXPECT_EQ(answers, expected);

    uint32_t scans = 0;
    while (is_spoiled(scans != TW_LISTING_RHYTHM)) {
      tw_forget_new_pids();
      w.pass();
      tw_process_entry& first = *w.list->head;
      ASSERT_EQ(first.pid, static_cast<uint32_t>(last.pid()));
      w.list->head = first.next, --w.list->count;
      first = {};
      for (scans = 0; first.pid == 0 && scans < 2 * TW_LISTING_RHYTHM; ++scans) w.pass();
    }
    EXPECT_EQ(scans, TW_LISTING_RHYTHM);
  });
  if (!allowed) GTEST_SKIP() << "no pid namespace of one's own is allowed";
}

// Another user's open files are not for us to see, and that does not change while it sleeps. What
// hides wholly has gone, once that is noticed.
TEST_F(KeptVisits, WhatMayNotBeSeenIsKeptUntilItRuns) {
  const bool allowed = in_own_pids([&] {
    constexpr uid_t kNobody = 65534;
    ASSERT_TRUE(mount_own_proc());
    tw_settle_kept_visits();
    const Child child("a");
    const pid_t pid = child.pid();
    watch(pid);
    // Of no group of root's, which sees all.
    ASSERT_TRUE(setgroups(0, nullptr) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
                seteuid(kNobody) == 0);
    entry(pid).desc.state = 'R';
    EXPECT_TRUE(reads(pid));
    EXPECT_FALSE(reads(pid));
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_EQ(mount("proc", "/proc", "proc", MS_REMOUNT, "hidepid=2"), 0);
    ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
    EXPECT_FALSE(reads(pid));
    entry(pid).desc.state = 'R';
    w.pass(), w.pass();
    EXPECT_EQ(w.row(static_cast<uint32_t>(pid)), "free");
    _exit(HasFailure());  // which ends the child, whom we may not kill any more
  });
  if (!allowed) GTEST_SKIP() << "no pid namespace of one's own is allowed";
}

// A pass may take less time than the clock can tell.
TEST_F(KeptVisits, EveryPassIsFollowedByARest) {
  w.clock.on_rest = [&] { taskwarden_set_proc_root((w.tree.root() / "none").c_str()); };
  EXPECT_EQ(taskwarden_start(), TASKWARDEN_CANNOT_READ);
  EXPECT_EQ(w.clock.rests_ms, std::vector<int64_t>{1999});
}

TEST(OwnProcess, ForkedWatchesOfBothVisitsFindTheSame) {
  BothVisits both(1);
  const auto begin = std::chrono::steady_clock::now();
  // Slow machines and sanitizers take more turns of 3 s to the first event.
  do {
    both.compare_until(std::chrono::steady_clock::now() + 3s);
  } while (both.counts().at("events") == 0 && std::chrono::steady_clock::now() < begin + 60s);
  EXPECT_GT(both.counts().at("events"), 0);
  both.run_free_until(std::chrono::steady_clock::now() + 1s);
}

}  // namespace
