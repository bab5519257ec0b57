#include "platform/proc_root.h"

#include <errno.h>
#include <string.h>

#include "platform/text_field.h"
#include "taskwarden/taskwarden.h"

namespace {

char proc_root[128] = "/proc";

}  // namespace

const char* tw_proc_root() {
  return proc_root;
}

ProcPath::ProcPath(std::string_view file) {
  append_cut(text_, append_cut(text_, 0, proc_root), file);
}

ProcPath::ProcPath(unsigned pid, std::string_view file) {
  const size_t root = append_cut(text_, append_cut(text_, 0, proc_root), "/");
  append_cut(text_, append_cut(text_, root, pid), file);
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
