#include "hold.h"

#include <cutils/sockets.h>
#include <poll.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "host/common/record_server.h"
#include "host/watch/carried_state.h"
#include "silent_file.h"
#include "support/child.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr char kNotifySocket[] = "@storm";
constexpr int64_t kFirstTryMs = 2000;
// With a pid of 300 or more, and a baseline: three that hold, one that leaks, the watch, and who
// serves the file.
constexpr int kProcesses = 6;

void require(bool ok, const std::string& what) {
  if (!ok) {
    throw std::runtime_error(what);
  }
}

double seconds_since(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

void print_row(const std::string& what, double figure) {
  printf("| %s | %.1f s |\n", what.c_str(), figure);
  fflush(stdout);
}

// A running `taskwarden watch`, which tries spared processes earlier than others do.
class Watch {
 public:
  Watch() {
    int ends[2];
    require(pipe(ends) == 0, "pipe");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy_n(kNotifySocket + 1, sizeof(kNotifySocket) - 2, address.sun_path + 1);
    const size_t size = offsetof(sockaddr_un, sun_path) + sizeof(kNotifySocket) - 1;
    require(bind(notices_.get(), reinterpret_cast<sockaddr*>(&address),
                 static_cast<socklen_t>(size)) == 0,
            "bind");
    require(mkdtemp(folder_) != nullptr, "mkdtemp");
    setenv("STATE_DIRECTORY", folder_, 1);
    setenv("RUNTIME_DIRECTORY", folder_, 1);
    setenv("NOTIFY_SOCKET", kNotifySocket, 1);
    setenv("WATCHDOG_USEC", "2000000", 1);
    output_.reset(ends[0]);
    pid_ = fork();
    if (pid_ == 0) {
      host::CarriedState state;
      state.sparing.first_try_ms = kFirstTryMs;
      const unique_fd left = host::leave_state(state);
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      execl(TASKWARDEN_PROGRAM, "taskwarden", "watch", nullptr);
      _exit(127);
    }
    close(ends[1]);
  }
  ~Watch() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
  Watch& operator=(Watch&&) = delete;  // nor any copy

  // Waits for `text` after all that was waited for before, and returns the rest of its line.
  std::string until(const std::string& text, seconds patience) {
    const Clock::time_point end = Clock::now() + patience;
    size_t at;
    while ((at = said_.find(text)) == said_.npos || said_.find('\n', at) == said_.npos) {
      require(Clock::now() < end, "the watch did not say \"" + text + "\" in time, but:\n" + said_);
      take_more();
    }
    at += text.size();
    const std::string line = said_.substr(at, said_.find('\n', at) - at);
    said_.erase(0, at);
    return line;
  }
  // Waits until it tells the service manager that so many processes have a baseline.
  void await_baselines(int wanted) {
    const Clock::time_point end = Clock::now() + seconds(60);
    for (int baselines = -1; baselines < wanted;) {
      require(Clock::now() < end,
              "only " + std::to_string(baselines) + " baselines in time:\n" + said_);
      take_more();
      char notice[512];
      const ssize_t n = recv(notices_.get(), notice, sizeof(notice) - 1, MSG_DONTWAIT);
      notice[std::max<ssize_t>(n, 0)] = '\0';
      if (const char* const at = strstr(notice, " passes, "); n > 0 && at != nullptr) {
        baselines = atoi(at + strlen(" passes, "));
      }
    }
  }
  // What it told the service manager before does not count.
  void forget_notices() const {
    char notice[512];
    while (recv(notices_.get(), notice, sizeof(notice), MSG_DONTWAIT) > 0) {
    }
  }
  void listen_for(seconds time) {
    for (const Clock::time_point end = Clock::now() + time; Clock::now() < end;) {
      take_more();
    }
  }
  bool has_said(const std::string& text) const { return said_.find(text) != said_.npos; }
  bool runs() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
  void take_more() {
    char chunk[4096];
    pollfd awaited = {output_.get(), POLLIN, 0};
    if (poll(&awaited, 1, 100) > 0) {
      const ssize_t n = read(output_.get(), chunk, sizeof(chunk));
      require(n > 0, "the watch has ended:\n" + said_);
      said_.append(chunk, static_cast<size_t>(n));
    }
  }

  unique_fd output_;
  unique_fd notices_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  pid_t pid_ = -1;
  char folder_[32] = "/tmp/taskwarden-storm-XXXXXX";  // for what it keeps and offers
  std::string said_;
};

// Tries all the time to take the name of the record socket.
class Squatter {
 public:
  Squatter()
      : thread_([this] {
          for (; !ended_; ++tries_) {
            taken_ = taken_ || host::listen_on(host::kRecordSocket).ok();
            usleep(200);
          }
        }) {}
  ~Squatter() { end(); }
  Squatter& operator=(Squatter&&) = delete;  // nor any copy

  // How often it tried, in vain. Throws if it had the name.
  long end() {
    ended_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
    return taken_ ? -1 : tries_.load();
  }

 private:
  std::atomic<bool> ended_{false}, taken_{false};
  std::atomic<long> tries_{0};
  std::thread thread_;
};

// Runs the program to its end, and returns what it said.
std::string said_by(const std::string& arguments, const std::string& sent = "") {
  FILE* const output = popen((TASKWARDEN_PROGRAM " " + arguments + " 2>&1").c_str(), "re");
  require(output != nullptr, "popen");
  unique_fd client;
  while (!sent.empty() && !client.ok()) {
    client.reset(socket_local_client("storm", ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM));
  }
  if (client.ok()) {
    require(send(client.get(), sent.c_str(), sent.size() + 1, MSG_NOSIGNAL) > 0, "send");
    client.reset();
  }
  std::string said;
  for (int c; (c = getc(output)) != EOF;) {
    said += static_cast<char>(c);
  }
  pclose(output);
  return said;
}

void read_elsewhere(pid_t pid) {
  const std::string number = std::to_string(pid);
  Clock::time_point begin = Clock::now();
  const std::string inspected = said_by("inspect " + number);
  print_row("`inspect` of it returns after", seconds_since(begin));
  require(inspected.find("did not answer in time") != inspected.npos, inspected);
  begin = Clock::now();
  const std::string heard = said_by("listen --json --count 1 storm",
                                    number + "@@1@@Event_VssHeap@@holder#" + number + "@@");
  print_row("`listen` prints a record of it after", seconds_since(begin));
  require(heard.find("\"command_line\":null") != heard.npos, heard);
}

// Waits until the watch is free of `holder`; it says so within 10 s of the first read.
void hold_up(Watch& watch, LockHolder& holder, const std::string& which,
             const std::string& also_said = "") {
  const std::string number = std::to_string(holder.pid());
  const Clock::time_point begin = Clock::now();
  holder.hold();
  watch.forget_notices();
  watch.until("process " + number + " ", seconds(20));
  watch.until("holds up the watch: its cmdline has not answered for ", seconds(1));
  print_row(which + " holds up the watch, which says so after", seconds_since(begin));
  const Clock::time_point said = Clock::now();
  watch.until("freed from process " + number, seconds(10));
  if (!also_said.empty()) {
    watch.until(also_said, seconds(10));
  }
  watch.until("Start the Task Warden", seconds(10));
  watch.forget_notices();
  print_row("the cycle runs again after another", seconds_since(said));
}

}  // namespace

void run_hold() {
  pass_low_pids();
  SilentFile file;
  LockHolder first(file, 0, "holder"), second(file, 1, "holder"), third(file, 2, "holder");
  Child leak("leak");
  Watch watch;
  watch.until("Start the Task Warden", seconds(10));
  printf("| a process that holds the lock of its memory | |\n|---|---|\n");
  Squatter squatter;
  watch.await_baselines(kProcesses);
  hold_up(watch, first, "the process");
  read_elsewhere(first.pid());

  watch.await_baselines(kProcesses);
  const Clock::time_point grown = Clock::now();
  leak.command("threads leak 20");
  watch.until("by proc " + std::to_string(leak.pid()) + " \"leak#", seconds(20));
  print_row("a leak beside it is reported after", seconds_since(grown));

  hold_up(watch, second, "a second one of the same user",
          "the memory of all processes of uid 0 is left alone for an hour");
  third.hold();
  watch.listen_for(seconds(15));
  require(!watch.has_said("holds up the watch"), "a third one holds it up");
  printf("| a third one of the same user | holds nobody up |\n");

  const Clock::time_point answered = Clock::now();
  file.answer();
  watch.until("process " + std::to_string(first.pid()) + " \"holder\", uid 0 answers again",
              seconds(60));
  print_row("once it answers, its memory is read on after", seconds_since(answered));
  require(watch.runs(), "the watch is another process");
  const long tries = squatter.end();
  require(tries > 0, "the name of the record socket was free");
  printf("| attempts to take the name of the record socket meanwhile, all in vain | %ld |\n",
         tries);
}
