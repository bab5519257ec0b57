// Reads commands from standard input, a line each, and answers each with one byte when it is done:
//   hello
//   threads NAME COUNT   starts COUNT threads called NAME and a running number
//   sockets|pipes|files COUNT   opens COUNT descriptors of the kind (pipes: two ends each, so even)
//   table SIZE           makes the descriptor table hold at least SIZE
//   anon KIB             maps that much private memory and touches it
//   map PATH             maps the whole file shared, without touching it
//   exec ARG0            replaces itself by itself under another name, which then answers
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <iostream>
#include <semaphore>
#include <string>
#include <thread>

namespace {

void start_thread(const std::string& name) {
  std::binary_semaphore named(0);
  std::thread([&] {
    prctl(PR_SET_NAME, name.c_str());
    named.release();
    pause();
  }).detach();
  named.acquire();
}

void open_descriptors(const std::string& kind, int count) {
  int ends[2];
  for (int i = 0; i < count; ++i) {
    if (kind == "sockets") {
      socket(AF_UNIX, SOCK_STREAM, 0);
    } else if (kind == "files") {
      open("/dev/null", O_RDONLY);
    } else if (i % 2 == 0) {
      pipe(ends);
    }
  }
}

}  // namespace

int main(int argc, char** /*argv*/) {
  const auto answer = [] { std::cout << '.' << std::flush; };
  if (argc > 1) {
    answer();
  }
  std::string command;
  std::string word;
  int count = 0;
  while (std::cin >> command) {
    if (command == "threads") {
      std::cin >> word >> count;
      for (int i = 0; i < count; ++i) {
        start_thread(word + std::to_string(i));
      }
    } else if (command == "table") {
      std::cin >> count;
      close(fcntl(0, F_DUPFD, count - 1));
    } else if (command == "anon") {
      std::cin >> count;
      const size_t size = static_cast<size_t>(count) << 10;
      memset(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), 1,
             size);
    } else if (command == "map") {
      std::cin >> word;
      const int fd = open(word.c_str(), O_RDWR);
      struct stat status = {};
      fstat(fd, &status);
      mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_SHARED, fd, 0);
      close(fd);
    } else if (command == "exec") {
      std::cin >> word;
      execl("/proc/self/exe", word.c_str(), "replaced", nullptr);
    } else if (command != "hello") {
      std::cin >> count;
      open_descriptors(command, count);
    }
    answer();
  }
  return 0;
}
