#include "host/common/own_image.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "host/common/file_text.h"

namespace host {

OwnImage::OwnImage() : file_(::open("/proc/self/exe", O_PATH | O_CLOEXEC)) {
  const FileText words = read_file("/proc/self/cmdline");
  for (std::string_view rest = words.text; !rest.empty();) {
    arguments_.emplace_back(rest.substr(0, rest.find('\0')));
    rest.remove_prefix(std::min(rest.size(), arguments_.back().size() + 1));
  }
}

int OwnImage::run_again() const {
  if (!file_.ok() || arguments_.empty()) {
    return ENOENT;
  }
  std::vector<char*> arguments;
  for (const std::string& argument : arguments_) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  ::execveat(file_.get(), "", arguments.data(), environ, AT_EMPTY_PATH);
  return errno;
}

// /proc/self is the first thread's, wherever this runs.
std::string OwnImage::comm() {
  const std::string line = read_file("/proc/self/comm").text;
  return line.substr(0, line.find('\n'));
}

void OwnImage::set_comm(const std::string& name) {
  ::prctl(PR_SET_NAME, name.c_str());
}

}  // namespace host
