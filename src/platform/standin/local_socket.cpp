#include <cutils/sockets.h>

#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>

#include "platform/socket_wait.h"
#include "platform/unique_fd.h"

namespace {

int64_t monotonic_us() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// A local connect waits for room in the listener's queue for as long as SO_SNDTIMEO allows
// (unix(7), socket(7)).
bool set_send_timeout(int fd, int64_t microseconds) {
  const timeval timeout = {.tv_sec = 0, .tv_usec = static_cast<suseconds_t>(microseconds)};
  return ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)) == 0;
}

}  // namespace

int socket_local_client(const char* name, int namespace_id, int type) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  // An abstract name is every byte after a leading NUL, with no terminator (unix(7)).
  const size_t length = strlen(name);
  if (namespace_id != ANDROID_SOCKET_NAMESPACE_ABSTRACT) {
    errno = EINVAL;
    return -1;
  }
  if (length > sizeof(address.sun_path) - 1) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memcpy(address.sun_path + 1, name, length);
  const socklen_t size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);

  const int64_t bound = tw_wait_left_us();
  const int waiting = bound > 0 ? 0 : SOCK_NONBLOCK;
  unique_fd fd = tw_own_fd(::socket(AF_UNIX, type | SOCK_CLOEXEC | waiting, 0));
  if (!fd.ok()) {
    return -1;
  }
  const int64_t begin = monotonic_us();
  int64_t left = bound;
  do {
    if (bound > 0 && !set_send_timeout(fd.get(), left)) {
      return -1;
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), size) == 0) {
      tw_spend_wait(monotonic_us() - begin, false);
      return fd.release();
    }
    if (errno != EINTR) {
      break;
    }
    errno = EAGAIN;
    left = begin + bound - monotonic_us();
  } while (left > 0);
  const int error = errno;
  tw_spend_wait(monotonic_us() - begin, error == EAGAIN);
  errno = error;
  return -1;
}
