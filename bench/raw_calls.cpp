#include "raw_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "inspect/open_files_count.h"
#include "platform/proc_root.h"
#include "platform/unique_fd.h"

namespace {

alignas(8) char buffer[8192];

unique_fd open_file(const char* path) {
  return unique_fd(open(path, O_RDONLY | O_CLOEXEC));
}

unique_fd open_directory(const char* path) {
  return unique_fd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
}

bool read_whole(const char* path) {
  const unique_fd file = open_file(path);
  ssize_t n;
  do {
    n = read(file.get(), buffer, 4096);
  } while (n > 0);
  return n == 0;
}

bool read_once(const char* path) {
  const unique_fd file = open_file(path);
  return read(file.get(), buffer, 4096) >= 0;
}

bool list(int fd) {
  long n;
  do {
    n = syscall(SYS_getdents64, fd, buffer, sizeof(buffer));
  } while (n > 0);
  return n == 0;
}

std::string process_directory(pid_t pid) {
  return tw_proc_root() + ("/" + std::to_string(pid));
}

}  // namespace

RawVisits::RawVisits(std::span<const pid_t> pids) {
  for (const pid_t pid : pids) {
    const std::string directory = process_directory(pid);
    processes_.push_back({directory, directory + "/status", directory + "/cmdline",
                          directory + "/fd", processes_.size() % TW_FD_LISTING_RHYTHM});
  }
}

bool RawVisits::plain() const {
  bool ok = true;
  for (const Process& process : processes_) {
    ok &= read_whole(process.status.c_str()) && read_whole(process.command_line.c_str());
    ok &= list(open_directory(process.descriptors.c_str()).get());
  }
  return ok;
}

bool RawVisits::own() {
  bool ok = true;
  for (Process& process : processes_) {
    ok &= access(process.directory.c_str(), F_OK) == 0;
    ok &= read_once(process.status.c_str()) && read_once(process.command_line.c_str());
    const unique_fd directory = open_directory(process.descriptors.c_str());
    struct stat size;
    ok &= fstat(directory.get(), &size) == 0;
    if (++process.visits % TW_FD_LISTING_RHYTHM == 0) {
      ok &= list(directory.get()) && fstat(directory.get(), &size) == 0;
    }
  }
  return ok;
}

template <typename Calls>
bool RawVisits::each(Calls calls) const {
  bool ok = true;
  for (const Process& process : processes_) {
    ok &= calls(process);
  }
  return ok;
}

bool RawVisits::accesses() const {
  return each([](const Process& process) { return access(process.directory.c_str(), F_OK) == 0; });
}

bool RawVisits::statuses() const {
  return each([](const Process& process) { return read_once(process.status.c_str()); });
}

bool RawVisits::command_lines() const {
  return each([](const Process& process) { return read_once(process.command_line.c_str()); });
}

bool RawVisits::listings() const {
  return each([](const Process& process) {
    return list(open_directory(process.descriptors.c_str()).get());
  });
}

bool RawVisits::sizes() const {
  return each([](const Process& process) {
    struct stat size;
    return fstat(open_directory(process.descriptors.c_str()).get(), &size) == 0;
  });
}

bool raw_read(const std::string& path) {
  return read_whole(path.c_str());
}

RawThreads::RawThreads(pid_t pid) : directory_(process_directory(pid) + "/task") {
  for (const auto& thread : std::filesystem::directory_iterator(directory_)) {
    names_.push_back(thread.path().filename().string() + "/comm");
  }
}

bool RawThreads::read() const {
  const unique_fd directory = open_directory(directory_.c_str());
  bool ok = list(directory.get());
  for (const std::string& name : names_) {
    const unique_fd file(openat(directory.get(), name.c_str(), O_RDONLY | O_CLOEXEC));
    ok &= ::read(file.get(), buffer, 256) > 0;
  }
  return ok;
}

bool raw_list(const std::string& path) {
  return list(open_directory(path.c_str()).get());
}
