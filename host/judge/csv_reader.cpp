#include "host/judge/csv_reader.h"

#include <algorithm>
#include <cstring>

namespace host {
namespace {

char* find(char* begin, char* end, char byte) {
  void* const found = ::memchr(begin, byte, static_cast<size_t>(end - begin));
  return found != nullptr ? static_cast<char*>(found) : end;
}

std::string_view between(const char* begin, const char* end) {
  return {begin, static_cast<size_t>(end - begin)};
}

}  // namespace

// Gets more bytes behind those that are left. False if there are none, or no room.
bool CsvReader::fill() {
  if (position_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + position_, filled_ - position_);
    filled_ -= position_;
    position_ = 0;
  }
  if (ended_ || filled_ == buffer_.size()) {
    return false;
  }
  const size_t got = source_(buffer_.data() + filled_, buffer_.size() - filled_);
  filled_ += got;
  ended_ = got == 0;
  return !ended_;
}

// The row is bad: goes on behind the next line feed.
void CsvReader::fail(const char* error) {
  cells_.clear();
  error_ = error;
  for (;;) {
    char* const begin = buffer_.data() + position_;
    char* const end = buffer_.data() + filled_;
    char* const feed = find(begin, end, '\n');
    position_ += static_cast<size_t>(feed - begin) + (feed != end);
    if (feed != end) {
      ++next_line_;
      return;
    }
    if (!fill()) {
      return;
    }
  }
}

void CsvReader::split_plain(char* begin, char* end) {
  for (;;) {
    char* const comma = find(begin, end, ',');
    cells_.push_back(between(begin, comma));
    if (comma == end) {
      return;
    }
    begin = comma + 1;
  }
}

// Splits the row that begins at position_, taking the quotes away where it lies; on success moves
// behind it. kCutOff if the bytes at hand do not hold all of it, which are left as they were then.
CsvReader::Split CsvReader::split_quoted() {
  char* const begin = buffer_.data() + position_;
  char* const end = buffer_.data() + filled_;
  // Where the row ends: at the first line feed outside of quotes.
  bool quoted = false;
  bool cell_begins = true;
  char* row_end = begin;
  uint64_t feeds = 0;
  for (; row_end != end && (quoted || *row_end != '\n'); ++row_end) {
    const char c = *row_end;
    feeds += c == '\n';
    if (c == '"' && (quoted || cell_begins)) {
      quoted = !quoted;
      // A doubled quote closes and opens again.
      cell_begins = !quoted;
    } else {
      cell_begins = c == ',' && !quoted;
    }
  }
  if ((row_end == end && (!ended_ || quoted)) || static_cast<size_t>(row_end - begin) > kRowMax) {
    return Split::kCutOff;
  }
  char* const last = row_end > begin && row_end[-1] == '\r' ? row_end - 1 : row_end;
  for (char* from = begin;;) {
    char* to = from;
    const char* cell = from;
    if (from != last && *from == '"') {
      for (++from; from != last; ++from) {
        if (*from == '"' && (++from == last || *from != '"')) {
          break;
        }
        *to++ = *from;
      }
    } else {
      from = to = find(from, last, ',');
    }
    if (from != last && *from != ',') {
      position_ = static_cast<size_t>(row_end - buffer_.data());
      next_line_ += feeds;
      fail("there is text behind a closing quote");
      return Split::kDone;
    }
    cells_.push_back(between(cell, to));
    if (from == last) {
      break;
    }
    ++from;
  }
  position_ = static_cast<size_t>(row_end - buffer_.data()) + (row_end != end);
  next_line_ += feeds + 1;
  return Split::kDone;
}

bool CsvReader::next() {
  cells_.clear();
  error_ = nullptr;
  for (;;) {
    char* const begin = buffer_.data() + position_;
    char* const end = buffer_.data() + filled_;
    char* const feed = find(begin, end, '\n');
    line_ = next_line_;
    if (feed != end || ended_) {
      if (begin == end) {
        return false;
      }
      if (find(begin, feed, '"') == feed && static_cast<size_t>(feed - begin) <= kRowMax) {
        char* const last = feed > begin && feed[-1] == '\r' ? feed - 1 : feed;
        position_ += static_cast<size_t>(feed - begin) + (feed != end);
        ++next_line_;
        if (last == begin) {
          continue;
        }
        split_plain(begin, last);
        return true;
      }
      if (split_quoted() == Split::kDone) {
        return true;
      }
    }
    if (filled_ - position_ > kRowMax || ended_) {
      fail("it is longer than 65536 bytes, or a quote is not closed");
      return true;
    }
    fill();
  }
}

}  // namespace host
