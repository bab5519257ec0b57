// The system calls that looking at a process takes, and nothing else: what they return is thrown
// away, and paths are formed beforehand. What remains is the kernel's work.
#ifndef BENCH_RAW_CALLS_H_
#define BENCH_RAW_CALLS_H_

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

// Each call of a member tells whether every system call succeeded.
class RawVisits {
 public:
  explicit RawVisits(std::span<const pid_t> pids);

  // Status and command line read until the end of the file, descriptors listed: the plain way.
  bool plain() const;
  // The calls of the library's own visit: access; one read of each file; the size of the descriptor
  // directory, which is listed as well at the rhythm of its visits.
  bool own();

  // The pieces of both.
  bool accesses() const;
  bool statuses() const;
  bool command_lines() const;
  bool listings() const;
  bool sizes() const;

 private:
  struct Process {
    std::string directory, status, command_line, descriptors;
    size_t visits;
  };
  template <typename Calls>
  bool each(Calls calls) const;

  std::vector<Process> processes_;
};

// A file read to its end in pieces of 4096 bytes.
bool raw_read(const std::string& path);

class RawThreads {
 public:
  explicit RawThreads(pid_t pid);
  // The directory listed, and one read of each thread's name.
  bool read() const;

 private:
  std::string directory_;
  std::vector<std::string> names_;
};

// A directory listed in pieces of 8 KiB.
bool raw_list(const std::string& path);

#endif  // BENCH_RAW_CALLS_H_
