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
  size_t length = 0;
  while (length < kLineSize - 1 && (position_ < filled_ || fill())) {
    const char* from = buffer_ + position_;
    const size_t room = std::min(kLineSize - 1 - length, filled_ - position_);
    const auto* end = static_cast<const char*>(memchr(from, '\n', room));
    const size_t taken = end != nullptr ? static_cast<size_t>(end - from) + 1 : room;
    memcpy(line_ + length, from, taken);
    length += taken;
    position_ += taken;
    if (end != nullptr) {
      break;
    }
  }
  if (length == 0) {
    return nullptr;
  }
  line_[length] = '\0';
  return line_;
}

bool LineReader::fill() {
  position_ = 0;
  filled_ = std::min(sizeof(buffer_), text_.size());
  if (filled_ > 0) {
    memcpy(buffer_, text_.data(), filled_);
    text_.remove_prefix(filled_);
  } else if (fd_.ok()) {
    ssize_t n;
    do {
      n = ::read(fd_.get(), buffer_, sizeof(buffer_));
    } while (n < 0 && errno == EINTR);
    filled_ = n > 0 ? static_cast<size_t>(n) : 0;
  }
  return filled_ > 0;
}
