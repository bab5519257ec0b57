#include "population.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>

#include "platform/unique_fd.h"

namespace {

constexpr int kWake = SIGUSR1;

[[noreturn]] void sleep_for_good() {
  for (;;) {
    pause();
  }
}

[[noreturn]] void be_busy() {
  constexpr useconds_t kHalfSecond = 500000;
  for (;;) {
    usleep(kHalfSecond);
  }
}

bool is_asleep(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string word;
  char state = 0;
  stat >> word >> word >> state;
  return state == 'S';
}

void require(bool ok, const char* what) {
  if (!ok) {
    perror(what);
    _exit(1);
  }
}

void allow_descriptors(rlim_t count) {
  rlimit limit;
  require(getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit");
  if (limit.rlim_cur < count) {
    limit.rlim_cur = count;
    limit.rlim_max = std::max(limit.rlim_max, count);  // raised by root only
    require(setrlimit(RLIMIT_NOFILE, &limit) == 0, "descriptor limit");
  }
}

// Leaves 0 to `count` - 1 on one file, and `ready` at `count` itself.
void hold_descriptors(int count, int ready) {
  allow_descriptors(static_cast<rlim_t>(count) + 2);
  require(dup2(ready, count) == count, "dup2");
  close_range(static_cast<unsigned>(count) + 1, ~0U, 0);
  const int file = open("/dev/null", O_RDWR);
  require(file >= 0, "/dev/null");
  for (int fd = 0; fd < count; ++fd) {
    require(dup2(file, fd) == fd, "dup2");
  }
  if (file > count) {
    close(file);
  }
}

// Neighbours differ in what they map, so that the kernel keeps them apart.
void map_areas(int count) {
  if (count == 0) {
    return;
  }
  const size_t size = 4 * static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  auto* at = static_cast<char*>(mmap(nullptr, static_cast<size_t>(count) * size, PROT_NONE,
                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  require(file >= 0 && at != MAP_FAILED, "mmap");
  for (int i = 0; i < count; ++i, at += size) {
    const bool anonymous = i % 2 == 0;
    const int protection = anonymous ? PROT_READ | PROT_WRITE : PROT_READ;
    const int flags = MAP_PRIVATE | MAP_FIXED | (anonymous ? MAP_ANONYMOUS : 0);
    require(mmap(at, size, protection, flags, anonymous ? -1 : file, 0) != MAP_FAILED, "mmap");
    if (anonymous) {
      *at = 1;
    } else {
      static_cast<void>(*static_cast<volatile char*>(at));
    }
  }
  close(file);
}

void start_threads(int count) {
  constexpr const char* kNames[] = {"Binder:%d_A", "HwBinder:%d_1", "Thread-%d", "pool-%d-io",
                                    "RenderThread"};
  pthread_attr_t small;
  pthread_attr_init(&small);
  pthread_attr_setstacksize(&small, size_t{64} << 10);
  for (int i = 1; i < count; ++i) {
    pthread_t thread;
    const auto run = [](void*) -> void* { sleep_for_good(); };
    require(pthread_create(&thread, &small, run, nullptr) == 0, "pthread_create");
    char name[16];
    snprintf(name, sizeof(name), kNames[i % 5], i);
    pthread_setname_np(thread, name);
  }
}

// The other end of `ready` sees its end of file when every child has closed it.
[[noreturn]] void live(const ChildShape& shape, int ready, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(1);
  }
  signal(kWake, [](int) {});
  hold_descriptors(shape.descriptors, ready);
  map_areas(shape.areas);
  start_threads(shape.threads);
  close(shape.descriptors);
  if (shape.is_busy) {
    be_busy();
  }
  sleep_for_good();
}

}  // namespace

std::vector<ChildShape> plain_shapes(size_t count) {
  return std::vector<ChildShape>(count);
}

std::vector<ChildShape> busy_shapes(size_t count) {
  constexpr size_t kOneIn = 50;
  std::vector<ChildShape> shapes = plain_shapes(count);
  for (size_t i = 0; i < count; i += kOneIn) {
    shapes[i].is_busy = true;
  }
  return shapes;
}

std::vector<ChildShape> mixed_shapes(size_t large) {
  std::vector<ChildShape> shapes = plain_shapes(1000);
  for (size_t i = 0; i < large; ++i) {
    shapes[i * shapes.size() / large].descriptors = 1000;
  }
  shapes[333].descriptors = shapes[666].descriptors = 10000;
  return shapes;
}

Population::Population(std::span<const ChildShape> shapes) : Population() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe");
  }
  const unique_fd all_ready(ends[0]);
  unique_fd ready(ends[1]);
  const pid_t self = getpid();
  pids_.reserve(shapes.size());
  for (const ChildShape& shape : shapes) {
    const pid_t pid = fork();
    if (pid == 0) {
      live(shape, ready.get(), self);
    }
    if (pid < 0) {
      throw std::runtime_error("fork: too many processes for this machine");
    }
    pids_.push_back(pid);
  }
  ready.reset();
  char none;
  while (read(all_ready.get(), &none, 1) < 0 && errno == EINTR) {
  }
  for (const pid_t pid : pids_) {
    siginfo_t ended = {};
    waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (ended.si_pid != 0) {
      throw std::runtime_error("a child could not be made as asked");
    }
  }
}

void Population::wake(size_t first, size_t count) const {
  for (size_t i = first; i < first + count; ++i) {
    kill(pids_[i % pids_.size()], kWake);
  }
  for (size_t i = first; i < first + count; ++i) {
    while (!is_asleep(pids_[i % pids_.size()])) {
      usleep(100);
    }
  }
}

Population::~Population() {
  for (const pid_t pid : pids_) {
    kill(pid, SIGKILL);
  }
  for (const pid_t pid : pids_) {
    waitpid(pid, nullptr, 0);
  }
}
