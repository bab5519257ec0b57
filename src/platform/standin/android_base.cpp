#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <fcntl.h>
#include <stdarg.h>

#include "platform/format.h"
#include "platform/small_file.h"

namespace android::base {

std::string StringPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const FormattedText text(format, args);
  va_end(args);
  return std::string(text.view());
}

bool ReadFileToString(const std::string& path, std::string* content, bool follow_symlinks) {
  content->clear();
  char buffer[TW_LARGEST_FILE];
  const ssize_t n = tw_read_small_file(AT_FDCWD, path.c_str(), follow_symlinks ? 0 : O_NOFOLLOW,
                                       buffer, sizeof(buffer));
  if (n > 0) {
    content->assign(buffer, static_cast<size_t>(n));
  }
  return n >= 0;
}

}  // namespace android::base
