#include "platform/small_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/unique_fd.h"

ssize_t tw_read_small_file(int directory_fd, const char* path, int flags, char* buffer,
                           size_t size) {
  const unique_fd fd =
      tw_own_fd(::openat(directory_fd, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags));
  if (!fd.ok()) {
    return -1;
  }
  ssize_t n;
  do {
    n = ::read(fd.get(), buffer, size);
  } while (n < 0 && errno == EINTR);
  return n;
}
