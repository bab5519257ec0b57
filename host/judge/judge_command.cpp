#include "host/judge/judge_command.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "host/common/escape.h"
#include "host/common/output.h"
#include "host/judge/sample_reader.h"
#include "host/judge/verdict_json.h"
#include "judge/judge.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

constexpr char kFooter[] =
    R"(Reads samples of processes and prints who leaks. FILE, or standard input, holds comma-separated
values. The first row names the columns, in any order:
  time                    in seconds since any moment; no row is earlier than the one before
  pid, start              who: the process id, and when it started (field 22 of /proc/PID/stat)
  name                    any text, in quotes if it has commas, quotes or line breaks
  resident_kb             physical memory in use
  threads, open_files     how many
  open_files_limit, threads_limit, memory_limit_kb, memory_available_kb, swap_kb
                          may be left out. memory_limit_kb is the size at which this process alone
                          fills its control group
An empty cell is unknown. A process may be sampled every second or every 10 minutes, with gaps. Bad
rows are named on standard error, counted, and left out.

Each change of a state is one JSON object on a line of standard output:
  time                    of the sample that led to it; times are in the input's own seconds
  pid, start, name        whom it is about; bytes of the name that are not UTF-8 become U+FFFD
  resource                memory (resident and swap), threads or open_files
  state                   suspected: it grows evenly, for minutes at least. confirmed: it has grown
                          so long and so steadily that nothing healthy explains it. urgent: at its
                          rate a limit is reached within the hour. ended: it fell back, stopped
                          growing, or the process ended
  from, since             the level when the growth began, and when that was
  now, rate_per_hour      the level now, and the rate of growth; memory is in kB
  limit, seconds_to_limit the nearest limit, and when it is reached at this rate
  evidence                why it is told, in one clause
What is unknown is null.

Exit status: 0 at the end of the samples, 1 when they cannot be read, a column is missing or standard
output fails, 2 on wrong usage.

Example: taskwarden judge samples.csv | jq -c 'select(.state == "confirmed")')";

constexpr size_t kReadSize = 1 << 16;

int run(const std::string& path) {
  const bool standard = path.empty() || path == "-";
  const unique_fd opened(standard ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const int fd = standard ? STDIN_FILENO : opened.get();
  const std::string shown = standard ? "standard input" : escape_text(path);
  int error = fd < 0 ? errno : 0;
  SampleReader samples([&](char* buffer, size_t size) -> size_t {
    if (error != 0) {
      return 0;
    }
    ssize_t got = 0;
    do {
      got = ::read(fd, buffer, std::min(size, kReadSize));
    } while (got < 0 && errno == EINTR);
    error = got < 0 ? errno : 0;
    return got < 0 ? 0 : static_cast<size_t>(got);
  });
  const bool begun = samples.begin();
  if (error == 0 && !begun) {
    say(shown + ": " + samples.problem());
    return 1;
  }

  bool written = true;
  judge::Judge judge([&](const judge::Verdict& verdict) {
    written = write_text(Stream::kOut, verdict_json(verdict) + "\n") && written;
  });
  uint64_t rows = 0;
  uint64_t bad = 0;
  judge::Sample sample;
  while (written && error == 0 && samples.next(&sample)) {
    ++rows;
    if (samples.problem().empty()) {
      judge.take(sample);
    } else {
      ++bad;
      say("line " + std::to_string(samples.line()) + ": " + samples.problem());
    }
  }
  if (bad > 0) {
    say(std::to_string(bad) + " of " + std::to_string(rows) + " rows were bad and left out");
  }
  if (error != 0) {
    say(shown + ": " + ::strerror(error));
  }
  return written && error == 0 ? 0 : 1;
}

}  // namespace

void add_judge_command(CLI::App& app, std::function<int()>* chosen) {
  const auto path = std::make_shared<std::string>();
  CLI::App* const command = app.add_subcommand("judge", "Say who leaks, from recorded samples");
  command->footer(kFooter);
  command->add_option("FILE", *path, "The samples; standard input if it is left out or -")
      ->option_text(" ");
  command->callback([=] { *chosen = [=] { return run(*path); }; });
}

}  // namespace host
