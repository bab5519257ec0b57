#include "platform/android_base.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <unistd.h>

#include "platform/format.h"
#include "platform/unique_fd.h"

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
  const int flags = O_RDONLY | O_CLOEXEC | (follow_symlinks ? 0 : O_NOFOLLOW);
  const unique_fd fd(::open(path.c_str(), flags));
  if (!fd.ok()) {
    return false;
  }
  char buffer[TW_LARGEST_FILE];
  size_t filled = 0;
  ssize_t n = 1;
  while (n != 0 && filled < sizeof(buffer)) {
    n = ::read(fd.get(), buffer + filled, sizeof(buffer) - filled);
    if (n > 0) {
      filled += static_cast<size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      break;
    }
  }
  content->assign(buffer, filled);
  return n >= 0;
}

}  // namespace android::base
