// Reads what a process holds, on the calling thread, until a deadline. A file of the process may
// make the caller wait beyond it: look_at() is for those who cannot.
#ifndef HOST_EXPLAIN_PROCESS_READER_H_
#define HOST_EXPLAIN_PROCESS_READER_H_

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "host/explain/holdings.h"

namespace host {

using Deadline = std::chrono::steady_clock::time_point;

// Calls `take` with each line of the file, without its line feed and cut at kLineMost bytes, until
// `most` bytes were read or the deadline has passed. Result: 0 when the file was read to its end,
// ETIMEDOUT when not all of it was, or the error of the file.
inline constexpr size_t kLineMost = 1024;
int read_lines(const std::string& path, size_t most, Deadline deadline,
               const std::function<void(std::string_view line)>& take);

// What was read, not whole if the deadline or a bound ended it; and an errno value where nothing
// could be.
struct Reading {
  int error = 0;
  Holdings holdings{};
};

// `process` is the folder of the process, such as "/proc/7".
Reading read_threads(const std::string& process, Deadline deadline);
Reading read_memory(const std::string& process, Deadline deadline);
// The folders that the files are in go to `*folders`.
Reading read_open_files(const std::string& process, Deadline deadline, Holdings* folders);

// The target of a link, at most 4095 bytes; empty where it cannot be read. `directory_fd` as of
// readlinkat(2).
std::string read_link(int directory_fd, const std::string& path);

}  // namespace host

#endif  // HOST_EXPLAIN_PROCESS_READER_H_
