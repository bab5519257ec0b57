#include <log/log.h>

#include <errno.h>
#include <stdarg.h>

#include "platform/format.h"
#include "platform/output.h"

int __android_log_buf_print(int /*bufID*/, int /*prio*/, const char* tag, const char* fmt, ...) {
  const int saved_errno = errno;
  va_list args;
  va_start(args, fmt);
  const FormattedText text(fmt, args);
  va_end(args);
  tw_output_log(tag, text.view());
  errno = saved_errno;
  return 1;
}
