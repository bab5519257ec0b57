#include "platform/proc_root.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <iterator>

#include "taskwarden/taskwarden.h"

namespace {

char proc_root[128] = "/proc";

// Puts `more` and a terminator at `length`; returns the length with it.
size_t append(char (&path)[TW_PATH_SIZE], size_t length, std::string_view more) {
  const size_t taken = std::min(more.size(), TW_PATH_SIZE - 1 - length);
  memcpy(path + length, more.data(), taken);
  path[length + taken] = '\0';
  return length + taken;
}

}  // namespace

const char* tw_proc_root() {
  return proc_root;
}

ProcPath::ProcPath(std::string_view file) {
  append(text_, append(text_, 0, proc_root), file);
}

ProcPath::ProcPath(unsigned pid, std::string_view file) {
  size_t length = append(text_, 0, proc_root);
  text_[length++] = '/';
  length = static_cast<size_t>(std::to_chars(text_ + length, std::end(text_), pid).ptr - text_);
  append(text_, length, file);
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
