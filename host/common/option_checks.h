// What the options of several commands share: checks that say in plain words what a value must be,
// --proc-root and --no-arguments. Where CLI11 has a check, it decides; the words are ours.
#ifndef HOST_COMMON_OPTION_CHECKS_H_
#define HOST_COMMON_OPTION_CHECKS_H_

#include <errno.h>
#include <string.h>

#include <CLI/CLI.hpp>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "taskwarden/taskwarden.h"

namespace host {

// What `check` accepts. Anything else "must be `what`, not ...".
inline CLI::Validator must_be(const std::string& what, const CLI::Validator& check) {
  const auto worded = [=](std::string& text) {
    const std::string given = text;
    return check(text).empty() ? std::string() : "must be " + what + ", not \"" + given + "\"";
  };
  return CLI::Validator(worded, "");
}

inline CLI::Validator must_be_one_of(const std::vector<std::string>& words) {
  return must_be("one of " + CLI::detail::join(words, ", "), CLI::IsMember(words));
}

// A word that stands for a value: a key of `meanings`.
template <typename Meaning>
CLI::Validator must_stand_for(const std::map<std::string, Meaning>& meanings) {
  std::vector<std::string> words;
  for (const auto& entry : meanings) {
    words.push_back(entry.first);
  }
  return must_be_one_of(words) & CLI::Transformer(meanings);
}

// Decimal digits only: CLI11 would read 010 as 8 and 0x10 as 16.
template <typename Number>
CLI::Validator must_be_number(Number first, Number last) {
  const CLI::Range range(first, last);
  const auto check = [range](std::string& text) {
    const bool digits = text.find_first_not_of("0123456789") == text.npos;
    const bool decimal = digits && !text.starts_with('0');
    return decimal || text == "0" ? range(text) : "not decimal";
  };
  return must_be("a number from " + std::to_string(first) + " to " + std::to_string(last),
                 CLI::Validator(check, ""));
}

inline CLI::Validator must_fit(size_t bytes) {
  const auto check = [bytes](const std::string& text) {
    const bool fits = !text.empty() && text.size() <= bytes;
    return fits ? std::string() : "must be 1 to " + std::to_string(bytes) + " bytes long";
  };
  return CLI::Validator(check, "");
}

// Adds --proc-root to `command`: the library is told at once, `root` keeps the value.
inline void add_proc_root(CLI::App& command, std::string* root) {
  const auto set = [](const std::string& directory) {
    return taskwarden_set_proc_root(directory.c_str()) == 0 ? std::string() : ::strerror(errno);
  };
  command.add_option("--proc-root", *root, "Use the process file system at DIR (default /proc)")
      ->option_text("DIR")
      ->check(CLI::Validator(set, ""));
}

// Adds --no-arguments to `command`.
inline void add_no_arguments(CLI::App& command, bool* no_arguments) {
  command.add_flag("--no-arguments", *no_arguments,
                   "Of command lines, which may hold secrets, show\nonly the path of the program");
}

}  // namespace host

#endif  // HOST_COMMON_OPTION_CHECKS_H_
