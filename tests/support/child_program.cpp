// Writes one byte when it has started, and another each time it has done a command. These come on
// standard input, a line each:
//   threads NAME COUNT   starts COUNT threads called NAME and a running number
//   sockets|pipes|files COUNT   opens COUNT descriptors of the kind (pipes: two ends each, so even)
//   close COUNT          closes the highest COUNT descriptors, but 0 to 2
//   table SIZE           makes the descriptor table hold at least SIZE
//   anon KIB             maps that much private memory and touches it
//   unmap COUNT          takes the last COUNT of them away
//   fork|share COUNT     makes COUNT children that sleep until nobody can give commands any more;
//                        share: which have the same descriptor table
//   map PATH             maps the whole file shared, without touching it
//   exec ARG0            replaces itself by itself under another name
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

static void start_thread(const std::string& name) {
  std::thread thread(pause);
  pthread_setname_np(thread.native_handle(), name.substr(0, 15).c_str());
  thread.detach();
}

static void start_child(unsigned long flags) {
  if (syscall(SYS_clone, flags | SIGCHLD, 0, 0, 0, 0) == 0) {
    pollfd commands = {0, 0, 0};  // which end with those who write them
    poll(&commands, 1, -1);
    _exit(0);
  }
}

int main() {
  std::vector<std::pair<void*, size_t>> mapped;
  std::cout << '.' << std::flush;
  for (std::string command, word; std::cin >> command >> word; std::cout << '.' << std::flush) {
    int count = atoi(word.c_str());
    int ends[2];
    if (command == "threads") {
      for (std::cin >> count; count > 0; --count) start_thread(word + std::to_string(count));
    } else if (command == "sockets") {
      for (; count > 0; --count) socket(AF_UNIX, SOCK_STREAM, 0);
    } else if (command == "files") {
      for (; count > 0; --count) open("/dev/null", O_RDONLY);
    } else if (command == "pipes") {
      for (; count > 0; count -= 2) pipe(ends);
    } else if (command == "close") {
      for (int fd = 1 << 12; fd > 2 && count > 0; --fd) count -= close(fd) == 0;
    } else if (command == "fork" || command == "share") {
      for (; count > 0; --count) start_child(command == "share" ? CLONE_FILES : 0);
    } else if (command == "unmap") {
      for (; count > 0 && !mapped.empty(); --count, mapped.pop_back())
        munmap(mapped.back().first, mapped.back().second);
    } else if (command == "table") {
      close(fcntl(0, F_DUPFD, count - 1));
    } else if (command == "anon") {
      const size_t size = static_cast<size_t>(count) << 10;
      void* memory = mmap(nullptr, size, PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      memset(memory, 1, size);
      mapped.emplace_back(memory, size);
    } else if (command == "map") {
      const int fd = open(word.c_str(), O_RDWR);
      mmap(nullptr, std::filesystem::file_size(word), PROT_READ, MAP_SHARED, fd, 0);
      close(fd);
    } else if (command == "exec") {
      execl("/proc/self/exe", word.c_str(), nullptr);
    }
  }
}
