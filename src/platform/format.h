// A printf-style text of any length: short ones are formatted on the stack, longer ones on the
// heap. A format that cannot be formatted at all, or a heap that is exhausted, gives what fits.
#ifndef PLATFORM_FORMAT_H_
#define PLATFORM_FORMAT_H_

#include <stdarg.h>
#include <stdio.h>

#include <memory>
#include <new>
#include <string_view>

class FormattedText {
 public:
  // Uses up `args` (the caller still ends it with va_end).
  FormattedText(const char* format, va_list args) __attribute__((format(printf, 2, 0))) {
    va_list again;
    va_copy(again, args);
    const int needed = ::vsnprintf(inline_, sizeof(inline_), format, args);
    if (needed < 0) {
      inline_[0] = '\0';
    } else if (static_cast<size_t>(needed) < sizeof(inline_)) {
      length_ = static_cast<size_t>(needed);
    } else {
      const size_t room = static_cast<size_t>(needed) + 1;
      heap_.reset(new (std::nothrow) char[room]);
      if (heap_ != nullptr) {
        ::vsnprintf(heap_.get(), room, format, again);
        length_ = room - 1;
      } else {
        length_ = sizeof(inline_) - 1;
      }
    }
    va_end(again);
  }

  // NUL-terminated just past its end.
  std::string_view view() const { return {heap_ != nullptr ? heap_.get() : inline_, length_}; }

 private:
  char inline_[1024];
  std::unique_ptr<char[]> heap_;
  size_t length_ = 0;
};

#endif  // PLATFORM_FORMAT_H_
