// The program itself, as a user runs it.
#include <cutils/sockets.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/common/record_server.h"
#include "host/feed/feed_place.h"
#include "host/feed/feed_server.h"
#include "support/child.h"
#include "support/made_tree.h"
#include "support/own_network.h"
#include "support/row_file.h"

namespace {

using Json = nlohmann::json;

const std::string kSocket = "taskwarden_test." + std::to_string(getpid());

// Where a watch keeps its state, and offers its feed.
const MadeTree kState;

// A running `taskwarden`.
class Program {
 public:
  // `arguments` are a shell's words; unless they redirect standard error, it goes where standard
  // output does. With `terminal`, that is one, and pid() is not the program's own.
  explicit Program(const std::string& arguments, const std::string& before = "",
                   bool terminal = false) {
    const std::string command = TASKWARDEN_PROGRAM " " + arguments;
    const std::string merged = arguments.find("2>") == arguments.npos ? " 2>&1" : "";
    output_ = popen(
        ("echo $$; exec env TSAN_OPTIONS=atexit_sleep_ms=0 STATE_DIRECTORY=" +
         kState.root().string() + " RUNTIME_DIRECTORY=" + kState.root().string() + " " + before +
         (terminal ? " script -qc '" + command + "' /dev/null" : " " + command + merged))
            .c_str(),
        "re");
    pid_ = std::stoi(until("\n"));
  }
  ~Program() {
    if (output_ != nullptr) {
      kill(pid_, SIGKILL);
      end();
    }
  }
  pid_t pid() const { return pid_; }
  // Reads its output up to and including `text`, or to the end, and returns what it read.
  std::string until(const std::string& text) {
    std::string said;
    for (int c = 0; !said.ends_with(text) && (c = getc(output_)) != EOF;) {
      said += static_cast<char>(c);
    }
    return said;
  }
  bool says(const std::string& text) { return until(text).ends_with(text); }
  std::string rest() { return until("\xff\xff"); }
  void lose_reader() { dup2(unique_fd(open("/dev/null", O_RDONLY)).get(), fileno(output_)); }
  // Its exit status, or minus the signal that ended it. What it still writes is read, so that it
  // does not die of a closed pipe.
  int end() {
    rest();
    const int status = pclose(std::exchange(output_, nullptr));
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  FILE* output_;
  pid_t pid_;
};

unique_fd connect_to(const std::string& socket) {
  unique_fd fd;
  while (!fd.ok()) {
    fd.reset(socket_local_client(socket.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM));
  }
  return fd;
}

void send_record(const std::string& socket, const std::string& text) {
  const unique_fd fd = connect_to(socket);
  EXPECT_EQ(send(fd.get(), text.c_str(), text.size() + 1, 0), ssize_t(text.size() + 1));
}

// The rows of host_runs.txt.
TEST(HostProgram, SaysWhatItsTableHas) {
  pass_low_pids();
  MadeTree tree({{.pid = 1000}}), full;
  tree.write("meminfo", "MemTotal: 2147483648 kB\nMemFree: 5 kB\nMemAvailable: 6 kB\n");
  tree.write("slabinfo", "few 1 1 8 1\nidle 0 9 64 64\nhuge 2000000 2000000 4096 8\nb 1 1 8 1\n");
  tree.write("conf", "log-format = json\nonly-user = root\n");
  full.write("meminfo", "MemTotal: 0 kB\nSUnreclaim: 2147483647 kB\n");
  std::string caches;
  for (int i = 0; i < 257; ++i) caches += "c" + std::to_string(i) + " 1 1 8 1\n";
  full.write("slabinfo", caches);
  for (const auto& [name, value] :
       {std::pair("TAKEN", kSocket.c_str()), std::pair("TREE", tree.root().c_str()),
        std::pair("FULL", full.root().c_str()), std::pair("NAME", "x\x1b\nrecord: y")}) {
    setenv(name, value, 1);
  }
  const unique_fd taken = host::listen_on(kSocket);
  const auto rows = row_file(TASKWARDEN_RUNS);
  EXPECT_GT(rows.size(), 60u);
  for (const auto& row : rows) {
    const char kind = row[0][0];
    const std::string why = row[0] + row[1];
    std::string text = kind == '1' || kind == '2' ? "taskwarden: " + row[2] + "\n" : row[2];
    if (const size_t at = text.find("$TAKEN"); at != text.npos) text.replace(at, 6, kSocket);
    Program program(row[1], row[0].substr(1), kind == 't');
    if (kind == 'w' || kind == 't') {
      EXPECT_TRUE(program.says(text)) << why;
    } else {
      const std::string said = program.rest();
      EXPECT_TRUE(kind == '2' ? said == text : said.ends_with(text)) << why << "\n" << said;
      EXPECT_EQ(program.end(), kind - '0') << why;
    }
  }
}

// Whatever it is about, the next rest is longer than what the end may take.
TEST(HostProgram, WatchObeysSignals) {
  pass_low_pids();
  Program program("watch --no-service");
  program.until("Start the Task Warden\n");
  const std::pair<int, const char*> rows[] = {{SIGUSR1, "-> taskwarden is paused...\n"},
                                              {SIGQUIT, "Dump the interested processes:\n"},
                                              {0, "-> taskwarden is paused...\n"},
                                              {SIGUSR2, "continues to run\n"}};
  for (const auto& [number, text] : rows) {
    kill(program.pid(), number);
    EXPECT_TRUE(program.says(text));
  }
  const auto begin = std::chrono::steady_clock::now();
  kill(program.pid(), SIGINT);
  EXPECT_EQ(program.end(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

// The made system has too little memory, which is an event.
TEST(HostProgram, WatchShowsVerdictsAlone) {
  MadeTree tree({{.pid = 1000}});
  tree.write("meminfo", "MemTotal: 2147483648 kB\nMemFree: 5 kB\nMemAvailable: 6 kB\n");
  for (const std::string show : {"all", "verdicts"}) {
    Program program("watch --no-service --proc-root " + tree.root().string() + " --show " + show);
    std::string said = program.until("; a pass takes");
    kill(program.pid(), SIGUSR1);
    said += program.until("-> taskwarden is paused...\n");
    EXPECT_NE(said.find("Start the Task Warden\n"), said.npos) << said;
    EXPECT_EQ(said.find("\nAuditEvent_") != said.npos, show == "all") << said;
  }
}

TEST(HostProgram, WatchPrintsRecordsAndEndsWithItsReader) {
  own_network();
  for (const bool json : {false, true}) {
    Program program(json ? "watch --log-format json" : "watch");
    send_record(host::kRecordSocket, "7@@8@@Event_VssHeap@@\x1b\\@@");
    EXPECT_TRUE(program.says(json ? "\"event\":\"Event_VssHeap\",\"name\":\"\\u001b\\\\\","
                                  : "record: 7@@8@@Event_VssHeap@@\\x1B\\\\@@\n"));
    program.lose_reader();
    kill(program.pid(), SIGUSR1);
    EXPECT_EQ(program.end(), -SIGPIPE);
  }
}

TEST(HostProgram, WatchSaysWhoGrewAndHow) {
  for (const bool json : {true, false}) {
    Child child("secret word"), quiet("qui/et");
    std::string said;
    const auto says = [&](Program& program, const std::string& text) {
      said += program.until(text);
      return said.ends_with(text);
    };
    Program program("watch --no-service --no-state --no-rankings --ignore 'qui*' " +
                    std::string(json ? "--log-format json --no-arguments" : "") + " 2>/dev/null");
    const std::jthread grower([&](const std::stop_token& stop) {
      for (; !stop.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(200))) {
        quiet.command("files 5");
        child.command("files 5");
      }
    });
    const std::string pid = std::to_string(child.pid());
    // A machine without time has events unexplained; there are more.
    for (const char* more : {"\"holds\":[{\"count\":", "\"grew\":[{\"increase\":"}) {
      for (std::string event; json && event.find(more) == event.npos;) {
        ASSERT_TRUE(says(program, "\",\"pid\":" + pid + ","));
        event = program.until("\n");
        EXPECT_TRUE(event.find(more) == event.npos ||
                    event.find("\"who\":{\"command_line\":[\"/") != event.npos)
            << event;
        EXPECT_EQ(event.find("secret word\""), event.npos) << event;
      }
    }
    for (const char* more : {"-> Its open files by name:\n\t device \"/dev/null\": ",
                             "\t command line: secret word\n", " more, now "}) {
      if (json) break;
      EXPECT_TRUE(says(program, more));
    }
    EXPECT_EQ(said.find("qui/et"), said.npos) << said;
  }
}

// A record that standard output does not take, since nobody reads it, and a text that is none.
TEST(HostProgram, WatchSaysWhatIsLost) {
  own_network();
  const MadeTree folder;
  const std::string fifo = folder.root() / "fifo";
  mkfifo(fifo.c_str(), 0600);
  const unique_fd full(open(fifo.c_str(), O_RDWR | O_NONBLOCK));
  while (write(full.get(), "", 1) == 1) {
  }
  Program program("watch 2>&1 >" + fifo);
  for (const char* text : {"7@@8@@E@@n@@", "7"}) send_record(host::kRecordSocket, text);
  EXPECT_TRUE(program.says(": it has fewer than five fields\n"));
  for (const int number : {SIGQUIT, SIGTERM}) {
    kill(program.pid(), number);
    EXPECT_TRUE(program.says("records refused: 1 (0 for their sender, 1 for their content)\n"));
  }
  EXPECT_TRUE(program.says(" lines of the log were lost, since standard output is stalled\n"));
}

TEST(HostProgram, ListenPrintsAndEnds) {
  Program program("listen --json --count 1 --allow-anyone " + kSocket + " 2>/dev/null --exec echo");
  send_record(kSocket, "7@@8@@Event_VssHeap@@x\n@@y\xff#7@@");
  const Json object = Json::parse(program.rest());
  EXPECT_EQ(object["name"], "x\n@@y\ufffd#7");
  EXPECT_EQ(object["sender_pid"], getpid());
  EXPECT_TRUE(object.contains("command_line"));
  EXPECT_EQ(program.end(), 0);

  Program strict("listen --allow-uid " + std::to_string(getuid() + 1) + " " + kSocket);
  connect_to(kSocket);
  EXPECT_TRUE(strict.says(": its user may not send records\n"));
  kill(strict.pid(), SIGTERM);
  EXPECT_TRUE(strict.says("records refused: 1 (1 for their sender, 0 for their content)\n"));
  EXPECT_EQ(strict.end(), 0);

  Program full("listen " + kSocket + " 2>&1 >/dev/full");
  send_record(kSocket, "7@@8@@E@@n@@");
  EXPECT_EQ(full.rest(), "taskwarden: cannot write to standard output: No space left on device\n");
  EXPECT_EQ(full.end(), 1);
}

// How often each text is in `said`.
void expect_counts(const std::string& said, const std::map<std::string, size_t>& rows) {
  for (const auto& [text, count] : rows) {
    size_t found = 0;
    for (size_t at = 0; (at = said.find(text, at)) != said.npos; ++at) ++found;
    EXPECT_EQ(found, count) << text << " in " << said;
  }
}

// The command gets the record in its environment, without a shell, and with nothing of ours.
TEST(HostProgram, ListenReactsOnceInACooldown) {
  Program program("listen --where Event_ThreadAmount --count 3 --cooldown 100 " + kSocket +
                      " --exec=sh -c 'echo \"ran for $TASKWARDEN_NAME $TASKWARDEN_VALUE "
                      "$TASKWARDEN_CGROUP$KEPT\"; cat; test $TASKWARDEN_VALUE = 9 && exit 3; "
                      "kill $$; echo still there'",
                  "KEPT=kept TASKWARDEN_CGROUP=stale");
  const std::string self = std::to_string(getpid()) + "@@8@@", named = "@@$(id);#7@@";
  for (const char* event : {"Event_VssHeap", "Event_ThreadAmount", "Event_ThreadAmount"}) {
    send_record(kSocket, self + event + named);
  }
  send_record(kSocket, "-1@@9@@Event_ThreadAmount@@other@@");
  const std::string said = program.rest();
  const std::map<std::string, size_t> rows = {
      {"ran for $(id);#7 8", 1},
      {"ran for other 9 kept\n", 1},
      {"ran for", 2},
      {"Event_VssHeap", 0},
      {"\tcommand line: ", 2},
      {"still there", 0},
      {"Event_ThreadAmount", 3},
      {"taskwarden: --exec: \"sh\" ended with status 3\n", 1},
      {"taskwarden: --exec: \"sh\" was ended by a signal: Terminated\n", 1}};
  expect_counts(said, rows);
  EXPECT_EQ(program.end(), 0);
}

// They come from a watch that begins later; the socket of records is left to others.
TEST(HostProgram, ListenReactsToVerdicts) {
  const MadeTree folder;
  const std::string path = folder.root() / "feed";
  Program program(
      "listen --feed=" + path + " --where urgent,memory --count 2 " + kSocket +
          " --exec sh -c 'echo \"ran for $TASKWARDEN_NAME $TASKWARDEN_STATE $TASKWARDEN_NOW "
          "$TASKWARDEN_LIMIT$TASKWARDEN_EVENT $TASKWARDEN_VERDICT\"'",
      "TASKWARDEN_EVENT=stale TASKWARDEN_LIMIT=stale");
  EXPECT_TRUE(
      program.says("taskwarden: no verdicts for now: no watch is running; start "
                   "\"taskwarden watch\", or the service taskwarden\n"));
  EXPECT_TRUE(host::listen_on(kSocket).ok());
  host::FeedServer server(host::offer_feed(path), host::FeedFigures());
  std::thread serving([&server] { server.run(); });
  std::atomic<bool> done = false;
  std::thread judge([&] {
    host::ToldVerdict verdict{.pid = 7, .name = "$(id)\x1b", .now = 9, .explanation = {"a\x1b"}};
    for (; !done; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
      for (const auto resource : {judge::Resource::kThreads, judge::Resource::kMemory}) {
        for (const auto state : {judge::State::kConfirmed, judge::State::kUrgent}) {
          verdict.resource = resource, verdict.state = state;
          server.publish(verdict);
        }
      }
    }
  });
  const std::string said = program.rest();
  done = true;
  judge.join();
  server.stop();
  serving.join();
  const std::string sentence = "\"$(id)\\x1B\" (pid 7) is running out of memory: 0 kB -> 9 kB";
  const std::map<std::string, size_t> rows = {{"verdict: " + sentence, 2},
                                              {"verdict: ", 2},
                                              {"\n\ta\\x1B\n", 2},
                                              {"ran for $(id)\x1b urgent 9  " + sentence, 2}};
  expect_counts(said, rows);
  EXPECT_EQ(program.end(), 0);
}

// The second record finds the only place taken.
TEST(HostProgram, ListenLimitsItsCommands) {
  const MadeTree folder;
  const std::string fifo = folder.root() / "fifo";
  mkfifo(fifo.c_str(), 0600);
  Program program("listen --exec-limit 1 --count 2 " + kSocket + " --exec cat " + fifo);
  for (const char* name : {"a@@\n", "b@@\n"}) {
    send_record(kSocket, std::string("-1@@8@@E@@") + name);
    EXPECT_TRUE(program.says("@@\\x0A\n"));
  }
  EXPECT_TRUE(program.says(
      "taskwarden: --exec-limit 1 is reached: nothing runs a command until one ends\n"));
  std::ofstream(fifo) << "put in\n";
  EXPECT_EQ(program.rest(),
            "put in\ntaskwarden: records and verdicts that ran no command, since 1 were running "
            "(see --exec-limit): 1\n");
}

// A command that never ends gives its place back.
TEST(HostProgram, ListenEndsCommandsThatTakeTooLong) {
  Program program("listen --exec-limit 1 --exec-timeout 1 --count 1 " + kSocket +
                  " --exec sh -c 'sleep 1000'");
  send_record(kSocket, "-1@@8@@E@@a@@");
  EXPECT_TRUE(program.says("1@@8@@E@@a@@\n"));
  EXPECT_EQ(program.rest(),
            "taskwarden: --exec: \"sh\" takes longer than 1 s and is ended\n"
            "taskwarden: --exec: \"sh\" was ended by a signal: Terminated\n");
}

// Its children too, however it ends.
TEST(OwnProcess, DemoEndsWithItsChildren) {
  for (const auto& [number, status] : {std::pair(SIGTERM, 0), {SIGKILL, -SIGKILL}, {SIGCHLD, 1}}) {
    Program program("demo --only rename --only threads");
    EXPECT_TRUE(program.says("demo: started 2 children; they leak in turn, twice each, from 12 "));
    program.until("\n");
    const std::string pid = std::to_string(program.pid());
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    const std::vector<pid_t> pids{std::istream_iterator<pid_t>(children), {}};
    ASSERT_EQ(pids.size(), 2u);
    number == SIGCHLD ? kill(pids[1], SIGKILL) : kill(program.pid(), number);
    EXPECT_EQ(program.end(), status);
    // The end of the last of them ends the output; what is left are zombies at most.
    for (const pid_t child : pids) {
      EXPECT_EQ(std::ifstream("/proc/" + std::to_string(child) + "/cmdline").peek(), EOF);
    }
  }
}

Json object_of(const std::string& arguments, const std::string& user = "") {
  return Json::parse(Program("inspect --json " + arguments, user).rest(), nullptr, false);
}

// Holds `json` against the reasons expected, an empty one for a value that does not exist.
void expect_nulls(const Json& json, const std::map<std::string, std::string>& reasons) {
  for (const auto& [key, reason] : reasons) {
    EXPECT_TRUE(json[key].is_null()) << key << ": " << json;
    EXPECT_EQ(json["unreadable"].contains(key), !reason.empty()) << key << ": " << json;
    EXPECT_NE(json["unreadable"].value(key, "").find(reason), std::string::npos) << json;
  }
}

TEST(InspectCommand, SeesThreadsAndFilesOfARealProcess) {
  Child child("odd\xff\x1b\\name");
  for (const char* text : {"threads Thread- 5", "sockets 12", "table 300"}) child.command(text);
  const std::string pid = std::to_string(child.pid());
  const Json seen = object_of(pid);
  Json expected = Json::parse(R"({
      "threads": 6, "descriptors": 15, "descriptor_table": 512, "unreadable": {},
      "thread_names": [{"count": 5, "name": "<THREAD>"}, {"count": 1, "name": "taskwarden_test"}],
      "open_files": [{"count": 12, "kind": "<SOCKET>"}, {"count": 2, "kind": "<PIPE>"},
                     {"count": 1, "kind": "/dev/null"}]})");
  expected.update(
      {{"pid", child.pid()}, {"name", "odd\ufffd\x1b\\name#" + pid}, {"parent", getpid()}});
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(seen[key], value);
  EXPECT_GE(seen["peak_kb"], seen["resident_kb"]);
  ASSERT_EQ(seen["divisions"].size(), 18U);
  EXPECT_EQ(seen["divisions"][5]["division"], "STACK");
  EXPECT_GT(seen["divisions"][5]["resident_kb"], 0);
  const std::string text = Program("inspect " + pid).rest();
  EXPECT_NE(text.find("odd\\xFF\\x1B\\\\name#" + pid + "\nstate             "), text.npos) << text;
  EXPECT_NE(text.find("\n     12  <SOCKET>\n      2  <PIPE>\n"), text.npos) << text;
}

TEST(InspectCommand, FindsAndSortsProcesses) {
  MadeTree tree({{.pid = 1, .name = "b", .threads = 2, .fds = 0, .rss = 9},
                 {.pid = 2, .name = "ab", .threads = 3, .fds = 9, .rss = 1},
                 {.pid = 3, .name = "a", .threads = 1, .fds = 4, .rss = 5}});
  tree.link("2/exe", "/bin/other");
  tree.write("4/comm", "no process\n");
  const std::pair<const char*, const char*> rows[] = {
      {"--all", "132"},
      {"--all --sort threads", "213"},
      {"--all --sort open_files", "231"},
      {"--all --sort name", "321"},
      {"--all --sort pid", "123"},
      {"a b 1", "31"},
      {"other 3", "23"},
      {"'[ab]*' 2", "123"},
  };
  for (const auto& [arguments, pids] : rows) {
    Program program("inspect --json " + std::string(arguments) + " --proc-root " +
                    tree.root().string());
    std::istringstream lines(program.rest());
    std::string seen;
    for (std::string line; std::getline(lines, line);) seen += Json::parse(line)["pid"].dump();
    EXPECT_EQ(seen, pids) << arguments;
  }
}

// No look falls into the opening of the files: both have just looked.
TEST(InspectCommand, TellsTheDifferenceOfTwoLooks) {
  Child child("secret");
  Program json("inspect --json --no-arguments --every 3 " + std::to_string(child.pid()));
  Program text("inspect --every 3 " + std::to_string(child.pid()));
  const std::string first = json.until("\n");
  EXPECT_EQ(first.find("secret\"]"), first.npos) << first;
  EXPECT_TRUE(text.says("\nopen files\n") && text.says("\n\n"));
  child.command("files 20");
  EXPECT_TRUE(json.says(R"("open_files":23,"open_files_change":20,)"));
  EXPECT_TRUE(json.says(
      R"("files":[{"increase":20,"count":21,"kind":"device","name":"/dev/null"}],"threads":[]})"));
  EXPECT_TRUE(text.says(", open files 23 (+20), threads 1 (+0)\n"));
  EXPECT_TRUE(text.says("  device \"/dev/null\": 20 more, now 21\n"));
  child.end();
  EXPECT_TRUE(text.says(" has ended, or cannot be read any more\n"));
  EXPECT_EQ(text.end(), 0);
}

TEST(InspectCommand, TellsWhatAnOrdinaryUserMayNotRead) {
  const bool root = getuid() == 0;
  const std::string user = root ? "setpriv --reuid=65534 --regid=65534 --clear-groups" : "";
  const Json denied = object_of(std::to_string(root ? getpid() : 1), user);
  if (denied.is_discarded()) GTEST_SKIP() << "an ordinary user cannot run it where it was built";
  EXPECT_GT(denied["threads"], 0);
  const std::string reason = "Permission denied";
  expect_nulls(denied, {{"divisions", reason}, {"descriptors", reason}, {"open_files", reason}});
  Program slabs("slabs", user);
  EXPECT_TRUE(slabs.says("count        not readable: "));
  EXPECT_EQ(slabs.end(), 1);
}

TEST(InspectCommand, TellsWhatDoesNotExistFromWhatFails) {
  MadeTree tree({{.pid = 7, .fds = 0}, {.pid = 8}});
  tree.write("7/status", "Name:\tkworker\nState:\tI\nPPid:\t2\nFDSize:\t64\nThreads:\t1\n");
  tree.write("7/smaps", "");
  tree.write("8/status", "Name:\tapp\nState:\tS\nVmHWM:\t9 kB\nPPid:");
  tree.write("8/smaps", "no area\n");
  tree.remove("8/fd");
  const std::string root = " --proc-root " + tree.root().string();

  const Json kernel_thread = object_of("7" + root);
  expect_nulls(kernel_thread, {{"resident_kb", ""}, {"peak_kb", ""}, {"divisions", ""}});
  EXPECT_EQ(kernel_thread["open_files"], Json::array());

  const Json half = object_of("8" + root);
  EXPECT_EQ(half["peak_kb"], 9);
  EXPECT_EQ(half["thread_names"][0]["name"], "<THREAD>");
  const std::string parent = "failed to get proc 8's PPid", none = "No such file";
  expect_nulls(half, {{"parent", parent},
                      {"threads", parent},
                      {"resident_kb", parent},
                      {"divisions", "failed to parse \"no area"},
                      {"descriptors", none},
                      {"open_files", none}});
}

// While its memory areas are read, which a pipe holds up.
TEST(InspectCommand, TellsTheEndOfAProcess) {
  MadeTree tree;
  const std::function<void()> ends[] = {
      [&] { tree.write("8/status", "Name:\tapp\nState:\tZ\nThreads:\t1\n"); },
      [&] { tree.remove(8); },
      [&] { tree.put({.pid = 8}); },
  };
  for (const auto& end : ends) {
    tree.put({.pid = 8});
    const std::string smaps = tree.root() / "8/smaps", reason = "the process has ended";
    mkfifo(smaps.c_str(), 0600);
    Program program("inspect --json 8 --proc-root " + tree.root().string());
    unique_fd held(open(smaps.c_str(), O_WRONLY));
    end();
    held.reset();
    const Json seen = Json::parse(program.rest());
    EXPECT_EQ(seen["resident_kb"], 1000);
    expect_nulls(seen, {{"divisions", reason}, {"thread_names", reason}, {"descriptors", reason}});
  }
}

// Nothing else that comes from the memory of the one is asked for, and all of the next.
TEST(InspectCommand, WaitsForNoFileWithoutABound) {
  MadeTree tree({{.pid = 7, .fds = 4}, {.pid = 8}});
  for (const std::string pid : {"7", "8"}) {
    tree.write(pid + "/stat", pid + " (a) S 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 100 0");
    tree.write(pid + "/cmdline", "word");
    tree.write(pid + "/smaps",
               "1000-2000 rw-p 0 00:00 0 [stack]\nSize: 4 kB\nRss: 9 kB\nVmFlags: rd\n");
  }
  tree.remove("7/status");
  mkfifo((tree.root() / "7/status").c_str(), 0600);
  Program program("inspect --json 7 8 --proc-root " + tree.root().string());
  const Json seen = Json::parse(program.until("\n"));
  expect_nulls(seen,
               {{"divisions", "did not answer in time"}, {"memory", "did not answer in time"}});
  EXPECT_EQ(seen["descriptors"], 4);
  EXPECT_TRUE(seen["who"]["command_line"].is_null()) << seen;
  const Json next = Json::parse(program.until("\n"));
  EXPECT_EQ(next["name"], "word#8");
  ASSERT_EQ(next["divisions"].size(), 18U) << next;
  EXPECT_EQ(next["divisions"][5]["resident_kb"], 9);
  EXPECT_EQ(next["memory"][0]["kb"], 9);
  EXPECT_EQ(next["who"]["command_line"][0], "word");
}

}  // namespace
