// Checks of option values that the command line's library does not have.
#ifndef HOST_OPTION_CHECKS_H_
#define HOST_OPTION_CHECKS_H_

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdlib>
#include <sstream>
#include <string>

namespace host {

// 1 to `most` bytes.
inline CLI::Validator bytes_up_to(size_t most) {
  const auto check = [most](const std::string& text) {
    const bool fits = !text.empty() && text.size() <= most;
    return fits ? std::string() : "must be 1 to " + std::to_string(most) + " bytes long";
  };
  return CLI::Validator(check, "");
}

// A number in decimal digits: to CLI11 by itself, 010 is 8 and 0x10 is 16.
inline CLI::Validator decimal() {
  const auto check = [](const std::string& text) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
    const bool plain = digits && (text[0] != '0' || text.size() == 1);
    return plain ? "" : "not a decimal number: " + text;
  };
  return CLI::Validator(check, "");
}

// A program that may be run: found in PATH unless its name has a slash.
inline CLI::Validator runnable() {
  const auto check = [](const std::string& name) {
    const char* const path = std::getenv("PATH");
    const bool is_path = name.find('/') != name.npos;
    bool found = is_path && ::access(name.c_str(), X_OK) == 0;
    std::istringstream folders(is_path || path == nullptr ? "" : path);
    for (std::string folder; !found && std::getline(folders, folder, ':');) {
      found = ::access((folder + "/" + name).c_str(), X_OK) == 0;
    }
    return found ? "" : "no program \"" + name + "\" is found that may be run; give its full path";
  };
  return CLI::Validator(check, "");
}

}  // namespace host

#endif  // HOST_OPTION_CHECKS_H_
