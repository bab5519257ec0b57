// Reads a file, or a text in memory, line by line through one fixed buffer: plain reads, no stdio,
// no allocation, and each line handed out where it lies. The readers of process files take their
// lines from here, so that each can be run on text alone.
#ifndef INSPECT_LINE_READER_H_
#define INSPECT_LINE_READER_H_

#include <cstddef>
#include <string_view>

#include "platform/unique_fd.h"

class LineReader {
 public:
  // The most that one piece holds, its terminator included: a longer line comes in several pieces,
  // each handed out as a line of its own.
  static constexpr size_t kLineSize = 1024;

  // Opens `path` (close-on-exec); ok() tells whether that succeeded, and errno why not.
  static LineReader open(const char* path);
  // Reads `text`, which must outlive the reader.
  explicit LineReader(std::string_view text) : text_(text) {}

  bool ok() const { return text_.data() != nullptr || fd_.ok(); }

  // The next line with its line feed, if it has one, NUL-terminated, or null at the end. The caller
  // may change its bytes; it is valid until the next call, the last one also past the end. A NUL
  // byte in the file ends the text of its line early. A read error ends the file: what was read
  // before it is handed out.
  char* next();

 private:
  explicit LineReader(unique_fd fd) : fd_(static_cast<unique_fd&&>(fd)) {}
  bool fill();
  size_t read(char* to, size_t room);

  // The kernel gives at most about a page of areas a read, and ends it on a line where there is
  // room for a page (seq_read_iter() in fs/seq_file.c): a larger buffer would gain nothing.
  static constexpr size_t kBufferSize = 4096;

  std::string_view text_;
  unique_fd fd_;
  size_t position_ = 0;  // where the next line begins, under the last one's terminator
  size_t filled_ = 0;
  char covered_ = '\0';  // the byte that the terminator stands on
  char buffer_[kBufferSize + 1];
};

#endif  // INSPECT_LINE_READER_H_
