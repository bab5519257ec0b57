// Asking a file of the process file system itself, since the library's readers do not tell their
// callers why they failed.
#ifndef HOST_COMMON_FILE_TEXT_H_
#define HOST_COMMON_FILE_TEXT_H_

#include <fcntl.h>

#include <cstddef>
#include <functional>
#include <string>

namespace host {

struct FileText {
  int error = 0;       // an errno value; ENODATA for a file that is empty
  std::string text{};  // what was read before the error, if any
};

// Far more than the kernel's files hold that this is meant for.
inline constexpr size_t kMostOfFile = 1 << 20;

// Reads the file at `path` to its end, or until there are `most` bytes or some more. A FIFO or a
// device in its place holds nothing up, unless `flags`, further ones for open(2), say so; a file
// that comes from a process's memory may (see bounded_reader.h). Any thread.
FileText read_file(const std::string& path, size_t most = kMostOfFile, int flags = O_NONBLOCK);

// How a file is read by those who leave that to their caller: its text, at most about 64 KiB of it;
// empty where it cannot be read.
using ReadFn = std::function<std::string(const std::string& path)>;

}  // namespace host

#endif  // HOST_COMMON_FILE_TEXT_H_
