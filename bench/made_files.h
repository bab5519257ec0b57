// The maps and smaps files of a process as on Android, with names that no process here can have.
#ifndef BENCH_MADE_FILES_H_
#define BENCH_MADE_FILES_H_

#include <string>

// Puts a process file system of one process in memory (/dev/shm, else the temporary folder), which
// the readers look at instead of /proc while it lives.
class MadeFiles {
 public:
  static constexpr int kPid = 1000;

  explicit MadeFiles(int areas);
  ~MadeFiles();
  MadeFiles& operator=(MadeFiles&&) = delete;  // nor any copy

 private:
  std::string root_;
};

#endif  // BENCH_MADE_FILES_H_
