#include "host/common/own_folder.h"

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace host {

void make_own_folder(const std::string& path, mode_t mode) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code error;
  if (!folder.empty() && std::filesystem::create_directories(folder, error)) {
    ::chmod(folder.c_str(), mode);
  }
}

}  // namespace host
