// Writing a text to a file that takes it or fails.
#ifndef HOST_COMMON_WRITE_WHOLE_H_
#define HOST_COMMON_WRITE_WHOLE_H_

#include <errno.h>
#include <unistd.h>

#include <string_view>

namespace host {

// False with errno when not all of `text` could be written. Any thread.
inline bool write_whole(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n >= 0) {
      text.remove_prefix(static_cast<size_t>(n));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace host

#endif  // HOST_COMMON_WRITE_WHOLE_H_
