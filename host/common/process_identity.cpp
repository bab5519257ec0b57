#include "host/common/process_identity.h"

#include <sys/stat.h>

#include <charconv>

#include "host/common/file_text.h"

namespace host {

std::optional<ProcessIdentity> identify(unsigned pid, const std::string& root) {
  const std::string directory = root + "/" + std::to_string(pid);
  struct stat status;
  std::optional<ProcessIdentity> identity = parse_stat(read_file(directory + "/stat").text);
  if (!identity || ::stat(directory.c_str(), &status) != 0) {
    return std::nullopt;
  }
  identity->uid = status.st_uid;
  return identity;
}

std::optional<ProcessIdentity> parse_stat(std::string_view stat) {
  constexpr int kName = 2;
  constexpr int kStart = 22;
  const size_t begin = stat.find('(');
  const size_t end = stat.rfind(')');
  if (begin == stat.npos || end == stat.npos || end < begin) {
    return std::nullopt;
  }
  ProcessIdentity identity;
  identity.name = stat.substr(begin + 1, end - begin - 1);
  stat.remove_prefix(end);
  for (int field = kName; field < kStart; ++field) {
    const size_t blank = stat.find(' ');
    if (blank == stat.npos) {
      return std::nullopt;
    }
    stat.remove_prefix(blank + 1);
  }
  const auto parsed = std::from_chars(stat.data(), stat.data() + stat.size(), identity.start_time);
  return parsed.ec == std::errc() ? std::optional(identity) : std::nullopt;
}

}  // namespace host
