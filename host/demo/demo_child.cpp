#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include "host/common/output.h"
#include "host/demo/demo_command.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

constexpr size_t kStep = 24 << 20;  // bytes; an event takes more than 10 MiB
constexpr int kThreads = 10;
constexpr int kDescriptors = 30;
// More than fit the table of 256 that a process begins with, or may inherit.
constexpr int kManyFiles = 270;

// A steady leak: so many files, one every so often.
constexpr rlim_t kLeakLimit = 1024;
constexpr int kLeakMs = 1200;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void* sleep_on(void*) {
  while (true) {
    ::pause();
  }
}

void leak_threads(int count) {
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setstacksize(&attributes, 256 << 10);
  for (; count > 0; --count) {
    pthread_t thread;
    errno = ::pthread_create(&thread, &attributes, sleep_on, nullptr);
    if (errno != 0) {
      fail("no thread");
    }
    ::pthread_setname_np(thread, "demo-worker");
  }
  ::pthread_attr_destroy(&attributes);
}

void leak_descriptors(const std::string& kind, int count) {
  for (int made = 0; made < count;) {
    int ends[2];
    const bool pipes = kind == "pipes";
    const int fd = pipes               ? ::pipe(ends)
                   : kind == "sockets" ? ::socket(AF_UNIX, SOCK_STREAM, 0)
                                       : ::open("/proc/self/exe", O_RDONLY);
    if (fd < 0) {
      fail("no descriptor");
    }
    made += pipes ? 2 : 1;
  }
}

void leak_memory(int fd, off_t offset) {
  const int kind = fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
  if (fd >= 0 && ::ftruncate(fd, offset + static_cast<off_t>(kStep)) != 0) {
    fail("no file");
  }
  void* const memory = ::mmap(nullptr, kStep, PROT_READ | PROT_WRITE, kind, fd, offset);
  if (memory == MAP_FAILED) {
    fail("no memory");
  }
  ::memset(memory, 1, kStep);
}

// A file in memory, gone with its last user. For root its name is that of anonymous shared memory
// on devices that have it: in a mount namespace of our own /dev can hold what it likes. For others,
// and where that is refused, it has no name, in /dev/shm.
unique_fd shared_file() {
  if (::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0 &&
      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
      ::mount("demo", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, nullptr) == 0) {
    return unique_fd(::open("/dev/ashmem-demo", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  }
  return unique_fd(::open("/dev/shm", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
}

// Until the files that we may open are nearly used up, or the orders end.
void leak_steadily() {
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min(limit.rlim_max, kLeakLimit);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  pollfd orders = {STDIN_FILENO, POLLIN, 0};
  for (rlim_t left = limit.rlim_cur - limit.rlim_cur / 50; left > 0; --left) {
    if (::poll(&orders, 1, kLeakMs) != 0) {
      return;
    }
    leak_descriptors("files", 1);
  }
}

void leak_as_told(const std::string& kind) {
  const unique_fd file = kind == "shared" ? shared_file() : unique_fd();
  if (kind == "shared") {
    if (!file.ok()) {
      fail("no file in memory");
    }
    leak_memory(file.get(), 0);  // what the watch measures mapped sizes against
  }
  char byte = 0;
  for (int round = 1; ::read(STDIN_FILENO, &byte, 1) == 1; ++round) {
    if (kind == "leak") {
      leak_steadily();
    } else if (kind == "threads") {
      leak_threads(round * kThreads);
    } else if (kind == "memory") {
      leak_memory(-1, 0);
    } else if (kind == "shared") {
      leak_memory(file.get(), static_cast<off_t>(kStep) * round);
    } else if (kind == "rename") {
      ::execl("/proc/self/exe", "demo-renamed", "demo-child", "files", nullptr);
      fail("no other program");
    } else {
      leak_descriptors(kind, kind == "files" && round > 1 ? kManyFiles : round * kDescriptors);
    }
  }
}

}  // namespace

void run_demo_child(const std::string& kind) {
  int status = 0;
  try {
    leak_as_told(kind);
  } catch (const std::exception& error) {
    say("demo: the child for " + kind + " fails: " + error.what());
    status = 1;
  }
  // Its other threads never end.
  ::_exit(status);
}

}  // namespace host
