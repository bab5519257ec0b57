#include "host/common/file_text.h"

#include <errno.h>
#include <unistd.h>

#include "platform/unique_fd.h"

namespace host {

FileText read_file(const std::string& path, size_t most, int flags) {
  FileText file;
  char chunk[4096];
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | flags));
  ssize_t n = fd.ok() ? 1 : -1;
  while (n > 0 && file.text.size() < most) {
    n = ::read(fd.get(), chunk, sizeof(chunk));
    file.text.append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
  }
  file.error = n < 0 ? errno : file.text.empty() ? ENODATA : 0;
  return file;
}

}  // namespace host
