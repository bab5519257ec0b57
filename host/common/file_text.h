// Asking a file of the process file system itself, since the library's readers do not tell their
// callers why they failed.
#ifndef HOST_COMMON_FILE_TEXT_H_
#define HOST_COMMON_FILE_TEXT_H_

#include <stdint.h>

#include <cstddef>
#include <string>

namespace host {

struct FileText {
  int error = 0;       // an errno value; ENODATA for a file that is empty
  std::string text{};  // what was read before the error, if any
};

// Reads the file at `path` to its end, or until there are `most` bytes or some more. Any thread.
FileText read_file(const std::string& path, size_t most = SIZE_MAX);

}  // namespace host

#endif  // HOST_COMMON_FILE_TEXT_H_
