// The program itself, as a user runs it.
#include <cutils/sockets.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "host/record_server.h"
#include "support/child.h"
#include "support/made_tree.h"
#include "support/own_network.h"

namespace {

const std::string kSocket = "taskwarden_test." + std::to_string(getpid());

// A running `taskwarden`, both of its outputs in one pipe.
class Program {
 public:
  // With `terminal`, that of the program is one, and pid() is not its own.
  explicit Program(const std::string& arguments, bool terminal = false)
      : output_(popen(("echo $$; exec env TSAN_OPTIONS=atexit_sleep_ms=0 " +
                       (terminal ? "script -qc '" : std::string()) + TASKWARDEN_PROGRAM " " +
                       arguments + (terminal ? "' /dev/null" : " 2>&1"))
                          .c_str(),
                      "re")),
        pid_(std::stoi(until("\n"))) {}
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
  void lose_reader() { dup2(unique_fd(open("/dev/null", O_RDONLY)).get(), fileno(output_)); }
  // Its status as of waitpid(2), once it has ended. What it still writes is read, so that it does
  // not die of a closed pipe.
  int end() {
    while (getc(output_) != EOF) {
    }
    return pclose(std::exchange(output_, nullptr));
  }

 private:
  FILE* output_;
  const pid_t pid_;
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

// Whatever it is about, the next rest is longer than what the end may take.
TEST(HostProgram, PausesResumesAndEndsAtOnce) {
  pass_low_pids();
  for (const int number : {SIGTERM, SIGINT}) {
    Program program("watch --no-service");
    program.until("Start the Task Warden\n");
    kill(program.pid(), SIGUSR1);
    EXPECT_TRUE(program.until("-> taskwarden is paused...\n").ends_with("paused...\n"));
    kill(program.pid(), SIGQUIT);
    EXPECT_TRUE(program.until("Dump the interested processes:\n").ends_with("processes:\n"));
    program.until("-> taskwarden is paused...\n");
    kill(program.pid(), SIGUSR2);
    EXPECT_TRUE(program.until("continues to run\n").ends_with("run\n"));
    const auto begin = std::chrono::steady_clock::now();
    kill(program.pid(), number);
    EXPECT_EQ(program.end(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  }
}

TEST(HostProgram, SaysWhyItEnds) {
  const MadeTree empty;
  const std::string root = empty.root();
  const unique_fd taken = host::listen_on(kSocket);
  const std::tuple<std::string, int, const char*> rows[] = {
      {"watch --no-service --proc-root " + root, 1, "only processes of pid 300 and above"},
      {"watch --no-service --proc-root " + root + "/none", 1, "cannot be opened"},
      {"watch --proc-root " + std::string(128, 'd'), 2, "--proc-root"},
      {"watch --interest " + std::string(92, 'i'), 2, "91 bytes"},
      {"listen " + kSocket, 1, "another process already has this name"},
      {"listen --count 0 other", 2, "--count"},
      {"listen --where Event_VssHeap,Event_VssAshmem", 2, "Event_ThreadAmount, "},
      {"listen --cooldown 3 other", 2, "--exec"},
      {"listen --exec /nonesuch", 2, "give its full path"},
      {"watch --color red", 2, "always, auto, never"},
      {"demo --only nothing", 2, "threads"},
      {"listen --allow-uid 0 --allow-uid 010 other", 2, "--allow-uid"},
      {"", 2, "subcommand"},
  };
  for (const auto& [arguments, status, text] : rows) {
    Program program(arguments);
    EXPECT_NE(program.until("\xff").find(text), std::string::npos) << arguments;
    EXPECT_EQ(WEXITSTATUS(program.end()), status) << arguments;
  }
}

TEST(HostProgram, ListenPrintsAnObjectAndEnds) {
  Program program("listen --json --count 1 --allow-uid " + std::to_string(getuid()) + " " +
                  kSocket);
  send_record(kSocket, "7@@8@@Event_VssHeap@@x\n@@y\xff#7@@");
  const std::string line = program.until("\n");
  EXPECT_NE(line.find(R"("name":"x\n@@y\ufffd#7")"), std::string::npos) << line;
  EXPECT_NE(line.find("\"sender_pid\":" + std::to_string(getpid())), std::string::npos) << line;
  EXPECT_EQ(program.end(), 0);
}

TEST(HostProgram, WatchPrintsRecordsAndEndsWithItsReader) {
  own_network();
  Program program("watch");
  send_record(host::kRecordSocket, "7@@8@@Event_VssHeap@@\x1b\\@@");
  const std::string line = "record: 7@@8@@Event_VssHeap@@\\x1B\\\\@@\n";
  EXPECT_TRUE(program.until(line).ends_with(line));
  program.lose_reader();
  kill(program.pid(), SIGUSR1);
  EXPECT_EQ(WTERMSIG(program.end()), SIGPIPE);
}

// However many they are, they get a line a second.
TEST(HostProgram, ListenRefusesOtherUsers) {
  constexpr int kConnections = 50;
  const auto begin = std::chrono::steady_clock::now();
  Program program("listen --allow-uid " + std::to_string(getuid() + 1) + " " + kSocket);
  for (int i = 0; i < kConnections; ++i) connect_to(kSocket);
  int refused = 0, lines = 0;
  for (int count = 1; refused < kConnections; refused += count, count = 1, ++lines) {
    const std::string line = program.until("\n");
    ASSERT_NE(line.find("its user is not allowed to send"), std::string::npos) << line;
    sscanf(line.c_str(), "taskwarden: refused %d", &count);
  }
  EXPECT_LE(lines - 1, (std::chrono::steady_clock::now() - begin) / std::chrono::seconds(1));
  kill(program.pid(), SIGTERM);
  EXPECT_EQ(program.until("\n"),
            "taskwarden: records refused: 50 (50 for their sender, 0 for what came)\n");
}

TEST(HostProgram, WatchDropsTheOldestWhileNobodyReads) {
  own_network();
  Program program("watch");
  // More than what the pipe, the queue and the connections hold.
  const std::string head = "7@@8@@E@@n@@", detail(6000, 'd');
  for (int i = 1; i <= 600; ++i)
    send_record(host::kRecordSocket, head + std::to_string(i) + detail);
  for (const std::string& text : {std::string(" lines of the log were dropped"), head + "600d"}) {
    EXPECT_TRUE(program.until(text).ends_with(text));
  }
}

TEST(HostProgram, WatchQuotesNamesSafely) {
  pass_low_pids();
  const std::string watch = "watch --no-service --interest \"x\x1b\nrecord: y\"";
  Program program(watch), on_terminal(watch, true);
  const std::string piped = program.until("y\n"), shown = on_terminal.until("y\r\n");
  EXPECT_NE(piped.find("x\x1b\\x0Arecord: y\n"), std::string::npos);
  EXPECT_NE(shown.find("x\\x1B\\x0Arecord: y\r\n"), std::string::npos);
}

// The command gets the record in its environment, and no shell sees it.
TEST(HostProgram, ListenReactsOnceInACooldown) {
  Program program("listen --where Event_ThreadAmount --count 3 --cooldown 100 " + kSocket +
                  " --exec sh -c 'echo \"ran for $TASKWARDEN_NAME $TASKWARDEN_VALUE\"; exit 3'");
  const std::string self = std::to_string(getpid()) + "@@8@@", named = "@@$(id);#7@@";
  for (const char* event : {"Event_VssHeap", "Event_ThreadAmount", "Event_ThreadAmount"}) {
    send_record(kSocket, self + event + named);
  }
  send_record(kSocket, "-1@@9@@Event_ThreadAmount@@other@@");
  const std::string said = program.until("\xff");
  const std::pair<const char*, size_t> rows[] = {
      {"ran for $(id);#7 8\n", 1}, {"ran for other 9\n", 1}, {"ran for", 2},
      {"Event_VssHeap", 0},        {"\tcommand line: ", 2},  {"ended with status 3", 2},
      {"Event_ThreadAmount", 3},
  };
  for (const auto& [text, count] : rows) {
    size_t found = 0;
    for (size_t at = 0; (at = said.find(text, at)) != said.npos; ++at) ++found;
    EXPECT_EQ(found, count) << text << " in " << said;
  }
  EXPECT_EQ(program.end(), 0);
}

TEST(HostProgram, WatchWritesObjectsOrMarksAndColours) {
  MadeTree tree({{.pid = 1000}});
  tree.write("meminfo", "MemFree: 5 kB\nMemAvailable: 6 kB\n");
  const std::tuple<const char*, bool, const char*> rows[] = {
      {"--log-format json", false, "\"text\":\"Start the Task Warden\"}\n"},
      {"--log-format json", false, "Memory\",\"mem_free_kb\":5,\"mem_available_kb\":6}\n"},
      {"--timestamps", false, "---\nat 20"},
      {"--color always", false, "\033[1;33mAuditEvent_LowOnMemory\033[0m\n"},
      {"", true, "\033[1;33mAuditEvent_"},
      {"--color never", true, "-\r\nAuditEvent_"},
      {"", false, "-\nAuditEvent_"},
  };
  for (const auto& [options, terminal, text] : rows) {
    Program program("watch --no-service --proc-root " + tree.root().string() + " " + options,
                    terminal);
    EXPECT_TRUE(program.until(text).ends_with(text)) << options;
  }
}

// Its children too, however it ends.
TEST(OwnProcess, DemoEndsWithItsChildren) {
  for (const int number : {SIGTERM, SIGKILL}) {
    Program program("demo --only rename --only threads");
    program.until("by then\n");
    const std::string list = "/proc/" + std::to_string(program.pid()) + "/task/" +
                             std::to_string(program.pid()) + "/children";
    std::ifstream children(list);
    std::vector<pid_t> pids{std::istream_iterator<pid_t>(children), {}};
    EXPECT_EQ(pids.size(), 2u);
    kill(program.pid(), number);
    const int status = program.end();
    EXPECT_EQ(number == SIGKILL ? WTERMSIG(status) : WEXITSTATUS(status),
              number == SIGKILL ? SIGKILL : 0);
    // The end of the last of them ends the output; what is left are zombies at most.
    for (const pid_t pid : pids) {
      std::ifstream cmdline("/proc/" + std::to_string(pid) + "/cmdline");
      EXPECT_EQ(cmdline.peek(), EOF);
    }
  }
}

}  // namespace
