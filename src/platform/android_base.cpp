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
  char buffer[4096];
  while (true) {
    const ssize_t n = ::read(fd.get(), buffer, sizeof(buffer));
    if (n > 0) {
      content->append(buffer, static_cast<size_t>(n));
    } else if (n == 0) {
      return true;
    } else if (errno != EINTR) {
      return false;
    }
  }
}

}  // namespace android::base
