#include "platform/proc_root.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "taskwarden/taskwarden.h"

namespace {

char proc_root[128] = "/proc";

}  // namespace

const char* tw_proc_root() {
  return proc_root;
}

void tw_proc_path(char (&path)[TW_PATH_SIZE], const char* format, ...) {
  const size_t length = strlen(proc_root);
  memcpy(path, proc_root, length);
  va_list args;
  va_start(args, format);
  vsnprintf(path + length, sizeof(path) - length, format, args);
  va_end(args);
}

int taskwarden_set_proc_root(const char* directory) {
  if (directory == nullptr || directory[0] == '\0') {
    errno = EINVAL;
    return -1;
  }
  const size_t length = strlen(directory);
  if (length >= sizeof(proc_root)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memcpy(proc_root, directory, length + 1);
  return 0;
}
