#include "inspect/line_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

LineReader LineReader::open(const char* path, size_t most) {
  return LineReader(tw_own_fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)), most);
}

// What is in the buffer holds no line feed within a piece's length.
std::string_view LineReader::next_incomplete() {
  size_t searched = filled_ - position_;
  while (searched < kLineSize - 1 && fill()) {
    const size_t room = std::min(kLineSize - 1, filled_);
    const auto* end = static_cast<const char*>(memchr(buffer_ + searched, '\n', room - searched));
    if (end != nullptr) {
      return hand_out(static_cast<size_t>(end - buffer_) + 1);
    }
    searched = room;
  }
  return searched > 0 ? hand_out(std::min(kLineSize - 1, searched)) : std::string_view();
}

// Moves what is left of the buffer to its front and reads on behind it; false at the end, where a
// line that was handed out whole still stands.
bool LineReader::fill() {
  const size_t left = filled_ - position_;
  if (left > 0) {
    memmove(buffer_, buffer_ + position_, left);
    position_ = 0;
    filled_ = left;
  }
  const size_t n = read(buffer_ + left, kBufferSize - left);
  if (n > 0) {
    position_ = 0;
    filled_ = left + n;
  }
  return n > 0;
}

size_t LineReader::read(char* to, size_t room) {
  if (!fd_.ok()) {
    const size_t n = std::min(room, text_.size());
    memcpy(to, text_.data(), n);
    text_.remove_prefix(n);
    return n;
  }
  ssize_t n;
  do {
    n = ::read(fd_.get(), to, std::min(room, left_));
  } while (n < 0 && errno == EINTR);
  failed_ = failed_ || n < 0;
  const size_t length = n > 0 ? static_cast<size_t>(n) : 0;
  left_ -= length;
  return length;
}
