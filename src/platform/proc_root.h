// The root of the process file system that the readers look at: /proc, unless
// taskwarden_set_proc_root() (taskwarden/taskwarden.h) named another before the start.
#ifndef PLATFORM_PROC_ROOT_H_
#define PLATFORM_PROC_ROOT_H_

#include <stddef.h>

#include <string_view>

// Room for any path that the library forms: a root of at most 127 bytes and the longest name below.
inline constexpr size_t TW_PATH_SIZE = 256;

// NUL-terminated, without a trailing slash, at most 127 bytes.
const char* tw_proc_root();

// The path of a file below the root, `file` beginning with a slash: ProcPath("/meminfo"), or one of
// a process: ProcPath(pid, "/status"); ProcPath(pid, "") is its directory. What would not fit is
// cut.
class ProcPath {
 public:
  explicit ProcPath(std::string_view file);
  ProcPath(unsigned pid, std::string_view file);
  const char* c_str() const { return text_; }

 private:
  char text_[TW_PATH_SIZE];
};

#endif  // PLATFORM_PROC_ROOT_H_
