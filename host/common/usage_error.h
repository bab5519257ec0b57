// Wrong usage in one plain sentence.
#ifndef HOST_COMMON_USAGE_ERROR_H_
#define HOST_COMMON_USAGE_ERROR_H_

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

namespace host {

// Wrong usage that CLI11 does not find, in such a sentence.
struct WrongUsage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What is wrong with the command line on which `app` threw `error` while it parsed: an unknown
// command or option, with the one that was probably meant, before anything else. Quotes what was
// given byte for byte.
std::string usage_error(const CLI::App& app, const CLI::ParseError& error);

}  // namespace host

#endif  // HOST_COMMON_USAGE_ERROR_H_
