#include "inspect/line_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

LineReader LineReader::open(const char* path) {
  return LineReader(unique_fd(::open(path, O_RDONLY | O_CLOEXEC)));
}

char* LineReader::next() {
  // Past the last byte the terminator stays: the caller may still look at the line before it.
  if (position_ < filled_) {
    buffer_[position_] = covered_;
  }
  size_t searched = 0;
  for (;;) {
    const size_t room = std::min(kLineSize - 1, filled_ - position_);
    char* line = buffer_ + position_;
    const void* end = memchr(line + searched, '\n', room - searched);
    const bool whole = end != nullptr || room == kLineSize - 1;
    if (!whole && fill()) {
      searched = room;
      continue;
    }
    const size_t length =
        end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - line) + 1 : room;
    if (length == 0) {
      return nullptr;
    }
    line = buffer_ + position_;
    position_ += length;
    covered_ = buffer_[position_];
    buffer_[position_] = '\0';
    return line;
  }
}

// Moves what is left of the buffer to its front and reads on behind it; false, with nothing moved,
// at the end.
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
    n = ::read(fd_.get(), to, room);
  } while (n < 0 && errno == EINTR);
  return n > 0 ? static_cast<size_t>(n) : 0;
}
