#include "flood.h"

#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/common/record_server.h"
#include "report/event_record.h"
#include "surroundings.h"
#include "transcript.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStrangers = 4;
constexpr uid_t kNobody = 65534;
constexpr int kRecordsASecond = 200;

// A process of our own that is killed at the end of the object.
class Process {
 public:
  template <typename Work>
  explicit Process(Work work) : pid_(fork()) {
    require(pid_ >= 0, "fork");
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      work();
      _exit(127);
    }
  }
  ~Process() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Process& operator=(Process&&) = delete;  // nor any copy

 private:
  pid_t pid_;
};

// A running `taskwarden listen`.
class Listener {
 public:
  // The records that it has printed.
  long records() const {
    std::string text(static_cast<size_t>(lseek(output_.get(), 0, SEEK_END)), '\0');
    const ssize_t n = pread(output_.get(), text.data(), text.size(), 0);
    return std::count(text.begin(), text.begin() + std::max<ssize_t>(n, 0), '\n');
  }

 private:
  unique_fd output_{memfd_create("records", MFD_CLOEXEC)};
  Process process_{[this] {
    dup2(output_.get(), STDOUT_FILENO);
    execl(TASKWARDEN_PROGRAM, "taskwarden", "listen", "--json", nullptr);
  }};
};

// Connects and hangs up as often as it can. It never waits: where there is no room it tries again.
[[noreturn]] void crowd(std::atomic<long>* connections) {
  require(setgid(kNobody) == 0 && setuid(kNobody) == 0, "setuid");
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string_view name = host::kRecordSocket;
  std::copy(name.begin(), name.end(), address.sun_path + 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  for (;;) {
    const unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    *connections += connect(fd.get(), reinterpret_cast<sockaddr*>(&address), size) == 0 ? 1 : 0;
  }
}

bool send_one(int number) {
  return tw_send_record(number, number, "Event_ThreadAmount", "good#1", "");
}

}  // namespace

void run_flood(bool quick) {
  const int records = quick ? 400 : 4000;
  require(geteuid() == 0, "strangers take root to make");
  const Transcript transcript;
  const Listener listener;
  const Clock::time_point patience = Clock::now() + std::chrono::seconds(10);
  while (!send_one(0)) {
    require(Clock::now() < patience, "the listener does not listen");
    usleep(10000);
  }

  auto* const connections = static_cast<std::atomic<long>*>(
      mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
           -1, 0));
  require(connections != MAP_FAILED, "mmap");
  std::vector<std::unique_ptr<Process>> strangers;
  const Clock::time_point begin = Clock::now();
  for (int i = 0; i < kStrangers; ++i) {
    strangers.push_back(std::make_unique<Process>([=] { crowd(connections); }));
  }
  int lost = 0;
  for (int i = 1; i <= records; ++i) {
    lost += send_one(i) ? 0 : 1;
    std::this_thread::sleep_until(begin +
                                  i * std::chrono::microseconds(1'000'000) / kRecordsASecond);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  const double rate = static_cast<double>(*connections) / seconds;
  strangers.clear();
  const Clock::time_point end = Clock::now() + std::chrono::seconds(5);
  while (listener.records() < 1 + records - lost && Clock::now() < end) {
    usleep(10000);
  }
  const long arrived = listener.records() - 1;

  printf("\n| %d strangers who connect for %.0f s | |\n|---|---|\n", kStrangers, seconds);
  printf("| connections a second | %.0f |\n", rate);
  printf("| good records sent meanwhile | %d |\n", records);
  printf("| that found no room in the queue | %d |\n", lost);
  printf("| that arrived | %ld |\n", arrived);
  fflush(stdout);
  if ((records - arrived) * 1000 > records) {
    throw std::runtime_error("too many good records were lost");
  }
}
