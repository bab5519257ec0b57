// Checks of option values that the command line's library does not have.
#ifndef HOST_OPTION_CHECKS_H_
#define HOST_OPTION_CHECKS_H_

#include <CLI/CLI.hpp>
#include <cstddef>
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

}  // namespace host

#endif  // HOST_OPTION_CHECKS_H_
