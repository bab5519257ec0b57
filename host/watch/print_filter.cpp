#include "host/watch/print_filter.h"

#include <fnmatch.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/common/file_text.h"
#include "host/common/option_checks.h"
#include "host/common/words.h"
#include "host/explain/process_stat.h"
#include "host/explain/whom.h"
#include "host/watch/process_identity.h"
#include "host/watch/table_copy.h"

namespace host {
namespace {

constexpr uint32_t kYear = 31536000;  // seconds

// The number of a user, or the name of one that there is; it becomes the number.
CLI::Validator must_be_user() {
  const auto check = [](std::string& text) {
    uid_t uid = 0;
    if (parse_number(text, &uid)) {
      return std::string();
    }
    const passwd* const entry = ::getpwnam(text.c_str());
    if (entry == nullptr) {
      return "must be a user or the number of one, not \"" + text + "\"";
    }
    text = std::to_string(entry->pw_uid);
    return std::string();
  };
  return CLI::Validator(check, "");
}

double age_of(uint64_t start_time) {
  const auto ticks = static_cast<double>(std::max(::sysconf(_SC_CLK_TCK), 1L));
  return seconds_after_boot() - static_cast<double>(start_time) / ticks;
}

}  // namespace

void add_filter_options(CLI::App& command, FilterOptions* options) {
  command
      .add_option("--ignore", options->ignored,
                  "Print nothing about processes whose name, without\n"
                  "\"#pid\", matches this pattern with *, ? and [...].\n"
                  "Can be repeated")
      ->option_text("GLOB")
      ->allow_extra_args(false);
  command
      .add_option("--only-user", options->only_user,
                  "Print only what is about processes of this user, a\n"
                  "name or a number, and about the whole system")
      ->option_text("USER")
      ->transform(must_be_user());
  command
      .add_option("--min-age", options->min_age,
                  "Print nothing about processes younger than this\n(default 0)")
      ->option_text("SECONDS")
      ->check(must_be_number(0U, kYear));
  command.add_flag("--no-rankings", options->no_rankings,
                   "Do not print the rankings by resident size");
}

PrintFilter::PrintFilter(FilterOptions options, std::string proc_root)
    : options_(std::move(options)), proc_root_(std::move(proc_root)) {}

bool PrintFilter::is_set() const {
  return !options_.ignored.empty() || options_.only_user || options_.min_age != 0 ||
         options_.no_rankings;
}

bool PrintFilter::shows(const Process& process) const {
  const std::string name(without_pid(process.name, process.pid));
  const auto matches = [&name](const std::string& pattern) {
    return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
  };
  if (std::any_of(options_.ignored.begin(), options_.ignored.end(), matches)) {
    return false;
  }
  const std::string directory = proc_root_ + "/" + std::to_string(process.pid);
  if (options_.only_user && (process.pid == 0 || parse_uid(read_file(directory + "/status").text) !=
                                                     int64_t{*options_.only_user})) {
    return false;
  }
  if (options_.min_age == 0) {
    return true;
  }
  uint64_t start = process.start_time;
  if (start == 0 && process.pid != 0) {
    const auto stat = parse_process_stat(read_file(directory + "/stat").text);
    start = stat ? stat->start : 0;
  }
  return start == 0 || age_of(start) >= options_.min_age;
}

}  // namespace host
