// An owned file descriptor: closed once, by the destructor or reset(), with errno kept. Move only;
// not convertible to a number, so that it cannot be mistaken for one.
#ifndef PLATFORM_UNIQUE_FD_H_
#define PLATFORM_UNIQUE_FD_H_

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <utility>

class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : fd_(fd) {}
  unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;
  ~unique_fd() { reset(); }

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  // Gives the descriptor up to the caller.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  // Takes `fd` over and closes the one held. close() is not retried: Linux releases the descriptor
  // even when it reports EINTR (close(2)).
  void reset(int fd = -1) {
    const int saved_errno = errno;
    const int old = std::exchange(fd_, fd);
    if (old >= 0) {
      ::close(old);
    }
    errno = saved_errno;
  }

 private:
  int fd_ = -1;
};

// Owns `fd`, just opened, in a host that may have closed its standard descriptors: one that landed
// there is moved away (close-on-exec), since whatever is written to standard output or error would
// go to it. Not ok() with errno where it cannot be moved, and for a negative `fd`.
inline unique_fd tw_own_fd(int fd) {
  unique_fd opened(fd);
  if (fd < 0 || fd > STDERR_FILENO) {
    return opened;
  }
  return unique_fd(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

#endif  // PLATFORM_UNIQUE_FD_H_
