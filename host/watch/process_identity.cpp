#include "host/watch/process_identity.h"

#include <sys/stat.h>

#include "host/common/file_text.h"
#include "host/explain/process_stat.h"

namespace host {

std::optional<ProcessIdentity> identify(unsigned pid, const std::string& root) {
  const std::string directory = root + "/" + std::to_string(pid);
  const auto parsed = parse_process_stat(read_file(directory + "/stat").text);
  struct stat status;
  if (!parsed || ::stat(directory.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return ProcessIdentity{parsed->name, parsed->start, status.st_uid};
}

}  // namespace host
