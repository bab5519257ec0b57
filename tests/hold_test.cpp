// A watch that is held up: when that is so, whom it spares then, and what it takes along when it
// begins anew.
#include <cutils/sockets.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "host/common/record_server.h"
#include "host/watch/carried_state.h"
#include "host/watch/hold_detector.h"
#include "host/watch/process_identity.h"
#include "host/watch/resident_code.h"
#include "host/watch/service_notify.h"
#include "host/watch/sparing.h"
#include "support/child.h"
#include "support/made_tree.h"
#include "support/own_network.h"
#include "support/row_file.h"

namespace {

using namespace host;

taskwarden_progress reading(int file, uint32_t pid = 0, int64_t since = 0, uint64_t steps = 0) {
  taskwarden_progress progress = {};
  progress.is_running = 1;
  progress.reads = file;
  progress.reads_pid = pid;
  progress.reads_since_ms = since;
  progress.steps = steps;
  return progress;
}

TEST(HoldDetector, TellsAHoldFromAllElse) {
  using Progress = std::function<taskwarden_progress(int second)>;
  const struct {
    const char* about;
    Progress at;
    std::string held;  // in which seconds
  } rows[] = {
      {"a hold", [](int) { return reading(TASKWARDEN_READS_COMMAND_LINE, 9); }, "10 70 130 "},
      {"nothing of a process", [](int) { return reading(TASKWARDEN_READS_MEMINFO); }, "10 70 130 "},
      {"a rest or a pause", [](int) { return reading(TASKWARDEN_READS_NOTHING); }, ""},
      {"a long pass", [](int s) { return reading(TASKWARDEN_READS_STATUS, 9, s / 9); }, ""},
      {"one process often",
       [](int s) { return reading(TASKWARDEN_READS_MAPS, 9, 0, static_cast<uint64_t>(s / 9)); },
       ""},
      {"others", [](int s) { return reading(TASKWARDEN_READS_MAPS, static_cast<uint32_t>(s / 9)); },
       ""},
      {"other files", [](int s) { return reading(s / 9 % 2 + 1, 9); }, ""},
      {"an end", [](int s) { return reading(s < 15 ? TASKWARDEN_READS_MAPS : 0, 9); }, "10 "},
  };
  for (const auto& row : rows) {
    HoldDetector detector;
    std::string held;
    for (int second = 0; second < 135; ++second) {
      if (detector.is_held(row.at(second), second * 1000)) held += std::to_string(second) + " ";
    }
    EXPECT_EQ(held, row.held) << row.about;
  }
}

// SIGSTOP, or a machine without time for the program: who asks was not there either.
TEST(HoldDetector, CountsOnlyWhatItSaw) {
  HoldDetector detector;
  const auto progress = reading(TASKWARDEN_READS_COMMAND_LINE, 9);
  std::string held;
  for (const int64_t second : {0, 1, 61, 121, 181, 182, 183, 184}) {
    if (detector.is_held(progress, second * 1000)) held += std::to_string(second) + " ";
  }
  EXPECT_EQ(held, "184 ");
  EXPECT_FALSE(detector.is_held(progress, 0));  // a clock that goes back
}

TEST(Sparing, GrowsWithTheHoldsOfAnHour) {
  constexpr uint32_t kAll = TASKWARDEN_EVERYBODY;
  const struct {
    std::vector<Hold> holds;  // in minutes
    std::vector<SparedUser> users;
  } rows[] = {
      {{{5, 0}}, {}},
      {{{5, 0}, {6, 1}, {7, 2}, {8, 59}}, {}},
      {{{5, 0}, {5, 59}}, {{5, 119}}},
      {{{5, 0}, {5, 60}}, {}},
      {{{5, 0}, {5, 10}, {5, 20}}, {{5, 80}}},
      {{{5, 0}, {6, 1}, {5, 2}, {6, 3}}, {{5, 62}, {6, 63}}},
      {{{5, 0}, {6, 1}, {7, 2}, {8, 3}, {9, 4}}, {{kAll, 64}}},
      {{{kAll, 0}}, {{kAll, 60}}},  // nobody knows whose it was
  };
  for (const auto& row : rows) {
    Sparing sparing;
    uint32_t pid = 1000;
    for (const Hold& hold : row.holds) {
      const uint64_t start = hold.uid == kAll ? 0 : 7;
      note_hold({.pid = pid++, .start_time = start, .uid = hold.uid}, hold.at_ms * 60000, &sparing);
    }
    const auto at = static_cast<long>(&row - rows);
    ASSERT_EQ(sparing.users.size(), row.users.size()) << at;
    for (size_t i = 0; i < row.users.size(); ++i) {
      EXPECT_EQ(sparing.users[i].uid, row.users[i].uid) << at;
      EXPECT_EQ(sparing.users[i].until_ms, row.users[i].until_ms * 60000) << at;
    }
    EXPECT_EQ(sparing.processes.size(), row.holds[0].uid == kAll ? 0 : row.holds.size()) << at;
  }
}

// One look in ten at a user, or one in four at any.
TEST(Sparing, EndsManyShortWaits) {
  constexpr uint32_t kAll = TASKWARDEN_EVERYBODY;
  const struct {
    const char* about;
    int every, users;                              // seconds; whose turn it is
    std::vector<std::pair<uint32_t, int>> spared;  // in which second, of 20 minutes
  } rows[] = {
      {"seldom", 11, 1, {}},
      {"often", 10, 1, {{0, 590}, {0, 1190}}},
      {"always", 1, 1, {{0, 59}, {0, 119}, {kAll, 149}}},
      {"by turns", 3, 6, {{kAll, 447}, {kAll, 897}}},
      {"seldom by turns", 5, 9, {}},
  };
  for (const auto& row : rows) {
    Sparing sparing;
    std::vector<std::pair<uint32_t, int>> spared;
    for (int second = 0; second < 1200 && spared.size() < 3; second += row.every) {
      const auto uid = static_cast<uint32_t>(second / row.every % row.users);
      if (note_share(uid, 1000, second * 1000, &sparing)) {
        spared.emplace_back(sparing.users.back().uid, second);
      }
    }
    EXPECT_EQ(spared, row.spared) << row.about;
    EXPECT_LE(sparing.shares.size(), 10U);
  }
  Sparing many;
  for (uint32_t uid = 0; uid < 20; ++uid) note_share(uid, kShareOfUserMs, 0, &many);
  EXPECT_EQ(many.users.size(), kMostSparedUsers);
  EXPECT_EQ(many.users.back().uid, kAll);
}

TEST(Sparing, TriesAgainLaterAndLater) {
  Sparing sparing;
  const SparedProcess process = {.pid = 9, .start_time = 7, .uid = 5};
  note_hold(process, 0, &sparing);
  std::string tries;
  for (int64_t minute = 0; minute < 2000; ++minute) {
    const auto due = take_due(minute * 60000, &sparing);
    tries += due && due->pid == 9 ? std::to_string(minute) + " " : "";
  }
  EXPECT_EQ(tries, "10 30 70 150 310 630 1110 1590 ");
  note_hold(process, 0, &sparing);
  EXPECT_EQ(sparing.processes.size(), 1U);
  EXPECT_EQ(sparing.processes[0].next_try_ms, kFirstTryMs);
  forget({.pid = 9, .start_time = 8}, &sparing);
  EXPECT_EQ(sparing.processes.size(), 1U);
  forget(process, &sparing);
  EXPECT_TRUE(sparing.processes.empty());
  EXPECT_TRUE(take_released(kHourMs - 1, &sparing).empty());
  EXPECT_EQ(take_released(kHourMs, &sparing).size(), 1U);
  EXPECT_TRUE(sparing.users.empty());
  // As many as the library takes; the user of the next is spared instead.
  for (uint32_t i = 0; i <= kMostSparedProcesses; ++i) {
    note_hold({.pid = i, .start_time = 7, .uid = i}, i * kHourMs, &sparing);
  }
  EXPECT_EQ(sparing.processes.size(), kMostSparedProcesses);
  EXPECT_EQ(sparing.users.size(), 1U);
}

CarriedState full_state() {
  CarriedState state = {.comm = "taskwarden",
                        .held_by = 9,
                        .baselines = 214,
                        .listener = -1,
                        .is_paused = true,
                        .wants_dump = true,
                        .undelivered = 1ULL << 60,
                        .refused_senders = 3,
                        .refused_texts = 4,
                        .children = {77, 78}};
  state.sparing = {{{9, 123456789012345, 1000, TASKWARDEN_READS_MAPS, -5, 6}},
                   {{TASKWARDEN_EVERYBODY, 7}},
                   {{1000, 8}, {0, 9}},
                   {{1000, 8, 9}},
                   10};
  state.attachments = {{"judge", std::string("\0\n\xff{", 4)}, {"other", ""}};
  return state;
}

TEST(CarriedState, ComesBackAsItWas) {
  std::string_view why;
  for (const CarriedState& state : {CarriedState(), full_state()}) {
    const auto back = parse_carried(carried_text(state, 5), 5, &why);
    ASSERT_TRUE(back) << why;
    EXPECT_EQ(*back, state);
  }
}

// The rows of carried_rows.txt.
TEST(CarriedState, LeavesWhatIsNotItsOwnAside) {
  const std::string good = carried_text(full_state(), 5);
  const auto with = [&](const std::string& key, const nlohmann::ordered_json& value) {
    const size_t end = good.find('\n');
    auto object = nlohmann::ordered_json::parse(good.substr(0, end));
    value.is_discarded() ? object.erase(key) : (object[key] = value, 0);
    return object.dump() + good.substr(end);
  };
  const auto rows = row_file(TASKWARDEN_ROWS);
  EXPECT_EQ(rows.size(), 26U);
  for (const auto& row : rows) {
    const std::string text =
        row[0] == "=" ? row[1]
                      : with(row[0], nlohmann::ordered_json::parse(row[1], nullptr, false));
    std::string_view why;
    EXPECT_FALSE(parse_carried(text, 5, &why)) << text.substr(0, 1000);
    EXPECT_EQ(why, row[2]) << text.substr(0, 1000);
  }
  std::string_view why;
  for (size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(parse_carried(good.substr(0, length), 5, &why)) << length;
    std::string bent = good;
    bent[length] = static_cast<char>(bent[length] ^ 0x15);
    parse_carried(bent, 5, &why);
  }
}

// The variable may be anybody's; a descriptor that is not ours stays open.
TEST(CarriedState, IsTakenFromASealedFileAlone) {
  const auto take = [](const std::string& variable) {
    setenv("TASKWARDEN_CARRIED", variable.c_str(), 1);
    testing::internal::CaptureStderr();
    const bool taken = take_state().has_value();
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(getenv("TASKWARDEN_CARRIED"), nullptr);
    return taken ? "taken" : said.substr(std::min(said.size(), said.rfind(": ") + 2));
  };
  const unique_fd plain(memfd_create("plain", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  const unique_fd large(memfd_create("large", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  std::ignore = ftruncate(large.get(), off_t{1} << 40);
  fcntl(large.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
  const int closed = dup(plain.get());
  close(closed);
  for (const char* number : {"", "x", "3x", "-1", "99999999999", "2"}) {
    EXPECT_EQ(take(number), "its number is none\n") << number;
  }
  for (const int number : {plain.get(), closed}) {
    EXPECT_EQ(take(std::to_string(number)), "it is no sealed file\n");
  }
  EXPECT_EQ(fcntl(plain.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(take(std::to_string(unique_fd(dup(large.get())).release())), "it is too large\n");
  unique_fd left = leave_state(full_state());
  ASSERT_TRUE(left.ok());
  EXPECT_EQ(write(left.get(), "x", 1), -1);
  EXPECT_EQ(take(getenv("TASKWARDEN_CARRIED")), "taken");
  EXPECT_EQ(fcntl(left.release(), F_GETFD), -1);
  EXPECT_FALSE(take_state());  // without a word
}

// The program itself, begun as by the image before: with its socket, its pause and its counts.
TEST(CarriedState, LivesOnInTheNextImage) {
  own_network();
  pass_low_pids();
  const unique_fd listener = listen_on(kRecordSocket);
  const MadeTree places;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    CarriedState state = full_state();
    state.listener = listener.get();
    state.undelivered = 5;
    const unique_fd left = leave_state(state);
    setenv("STATE_DIRECTORY", (places.root() / "state").c_str(), 1);
    setenv("RUNTIME_DIRECTORY", (places.root() / "run").c_str(), 1);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    execl("/bin/sh", "sh", "-c",
          "exec env TSAN_OPTIONS=atexit_sleep_ms=0 " TASKWARDEN_PROGRAM " watch", nullptr);
  }
  close(ends[1]);
  FILE* const output = fdopen(ends[0], "re");
  const auto says = [output](const std::string& text) {
    std::string said;
    for (int c; !said.ends_with(text) && (c = getc(output)) != EOF;) said += static_cast<char>(c);
    return said.ends_with(text);
  };
  EXPECT_TRUE(says("the watch has begun anew, freed from process 9: "));
  EXPECT_TRUE(says("the baselines of all 214 processes that had one begin anew\n"));
  EXPECT_TRUE(says("the memory of all processes is left alone for an hour"));
  EXPECT_TRUE(says("Dump the interested processes:\n"));
  EXPECT_TRUE(says("-> taskwarden is paused...\n"));
  const unique_fd client(
      socket_local_client(kRecordSocket, ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM));
  EXPECT_EQ(send(client.get(), "7@@8@@E@@n@@", 13, MSG_NOSIGNAL), 13);
  EXPECT_TRUE(says("record: 7@@8@@E@@n@@\n"));
  kill(pid, SIGTERM);
  EXPECT_TRUE(says("records not delivered: 5\n"));
  EXPECT_TRUE(says("records refused: 7 (3 for their sender, 4 for their content)\n"));
  fclose(output);
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::filesystem::exists(places.root() / "state"));
}

TEST(ProcessIdentity, IsThatOfTheProcess) {
  const auto own = identify(static_cast<unsigned>(getpid()), "/proc");
  ASSERT_TRUE(own);
  EXPECT_TRUE(own->uid == geteuid() && own->start_time > 0);
  EXPECT_FALSE(identify(0, "/proc"));
}

class Manager {
 public:
  explicit Manager(const std::string& name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
  }
  std::string told() const {
    char text[512];
    const ssize_t n = recv(fd_.get(), text, sizeof(text), MSG_DONTWAIT);
    return n > 0 ? std::string(text, static_cast<size_t>(n)) : "";
  }

 private:
  unique_fd fd_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST(ServiceNotify, TellsOfProgressAlone) {
  const MadeTree folder;
  for (const std::string& name :
       {folder.root().string() + "/notify", "@taskwarden_test." + std::to_string(getpid())}) {
    const Manager manager(name);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    setenv("WATCHDOG_USEC", "60000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    ServiceNotify notify = ServiceNotify::from_environment();
    const struct {
      int second;
      bool running, paused;
      uint64_t steps;
      const char* told;
    } rows[] = {
        {100, false, false, 0, ""},
        {101, true, false, 1, "READY=1\nWATCHDOG=1\nSTATUS=s"},
        {102, true, false, 2, ""},
        {130, true, false, 3, ""},
        {131, true, false, 4, "WATCHDOG=1\nSTATUS=s"},
        {161, true, false, 4, ""},  // a cycle that waits
        {170, true, false, 4, ""},
        {171, true, false, 5, "WATCHDOG=1\nSTATUS=s"},
        {201, true, true, 5, "WATCHDOG=1\nSTATUS=s"},
        {231, true, true, 5, "WATCHDOG=1\nSTATUS=s"},
    };
    for (const auto& row : rows) {
      taskwarden_progress progress = {};
      progress.is_running = row.running ? 1 : 0;
      progress.is_paused = row.paused ? 1 : 0;
      progress.steps = row.steps;
      notify.tell(progress, "s", row.second * 1000);
      EXPECT_EQ(manager.told(), row.told) << name << row.second;
    }
    notify.bear_with_us();
    EXPECT_EQ(manager.told(), "WATCHDOG=1");
    // Without a watchdog, or with another's.
    for (const char* usec : {"", "x", "-5", "60000000"}) {
      setenv("WATCHDOG_USEC", usec, 1);
      setenv("WATCHDOG_PID", *usec == '6' ? "1" : "", *usec == '6');
      if (*usec != '6') unsetenv("WATCHDOG_PID");
      taskwarden_progress running = {};
      running.is_running = 1;
      ServiceNotify::from_environment().tell(running, "s", 0);
      EXPECT_EQ(manager.told(), "READY=1\nSTATUS=s") << usec;
    }
  }
  for (const std::string& bad : {std::string(), std::string("relative"), std::string("/nowhere/x"),
                                 "/" + std::string(200, 'x'), std::string("@")}) {
    ServiceNotify(bad, 1000).bear_with_us();
  }
  for (const char* variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
    unsetenv(variable);
  }
}

TEST(OwnProcess, GivesBackWhatOnlyItsStartNeeded) {
  const auto file_pages = [] {
    long size = 0, resident = 0, of_files = 0;
    std::ifstream("/proc/self/statm") >> size >> resident >> of_files;
    return of_files;
  };
  const long before = file_pages();
  give_back_code();
  EXPECT_LT(file_pages(), before * 3 / 4);
}

}  // namespace
