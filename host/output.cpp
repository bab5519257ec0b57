#include "host/output.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <mutex>

namespace host {
namespace {

// Trivially destructible all of it: main() returns while other threads still write.
std::mutex output_mutex;
bool line_open[3] = {};
bool failure_said = false;

// Returns 0, or the error that kept the rest of `text` from being written.
int write_whole(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n >= 0) {
      text.remove_prefix(static_cast<size_t>(n));
    } else if (errno == EAGAIN) {
      // Another program made the pipe or terminal that we share non-blocking.
      pollfd room = {fd, POLLOUT, 0};
      ::poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

bool write_locked(Stream stream, std::string_view text) {
  const int fd = static_cast<int>(stream);
  if (!text.empty()) {
    line_open[fd] = text.back() != '\n';
  }
  const int error = write_whole(fd, text);
  if (error != 0 && stream == Stream::kOut && !failure_said) {
    failure_said = true;
    write_whole(STDERR_FILENO,
                std::string("taskwarden: standard output fails: ") + ::strerror(error) + "\n");
  }
  return error == 0;
}

}  // namespace

bool write_text(Stream stream, std::string_view text) {
  const std::lock_guard lock(output_mutex);
  return write_locked(stream, text);
}

bool write_line(Stream stream, const std::string& line) {
  const std::lock_guard lock(output_mutex);
  return write_locked(stream, (line_open[static_cast<int>(stream)] ? "\n" : "") + line + "\n");
}

void say(const std::string& message) {
  write_line(Stream::kErr, "taskwarden: " + message);
}

}  // namespace host
