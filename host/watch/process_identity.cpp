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

std::string_view without_pid(std::string_view name, uint32_t pid) {
  constexpr size_t kCut = 63;
  const std::string tail = "#" + std::to_string(pid);
  const size_t hash = name.rfind('#');
  const bool is_tail =
      hash != name.npos &&
      (name.substr(hash) == tail || (name.size() == kCut && tail.starts_with(name.substr(hash))));
  return is_tail ? name.substr(0, hash) : name;
}

}  // namespace host
