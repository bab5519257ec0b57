// The `taskwarden` program: the command line.
#include <fcntl.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/common/escape.h"
#include "host/common/output.h"
#include "host/common/usage_error.h"
#include "host/demo/demo_command.h"
#include "host/events/events_command.h"
#include "host/inspect/inspect_command.h"
#include "host/judge/judge_command.h"
#include "host/leaks/leaks_command.h"
#include "host/listen/listen_command.h"
#include "host/watch/watch_command.h"
#include "platform/unique_fd.h"

namespace {

constexpr int kWrongUsage = 2;

constexpr char kAbout[] =
    "Task Warden watches the memory, threads and open files of processes, and explains what grew.";

constexpr char kFooter[] =
    "Exit status: 0 on success, 1 on failure, 2 on wrong usage.\n"
    "See \"taskwarden COMMAND --help\" for details and examples.";

// Otherwise the next file opened would take the place of a standard descriptor that comes closed,
// and be written to.
void hold_standard_descriptors() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) < 0) {
      static_cast<void>(unique_fd(::open("/dev/null", O_RDWR)).release());
    }
  }
}

int run(int argc, char** argv) {
  CLI::App app(kAbout, "taskwarden");
  app.set_version_flag("--version", "taskwarden " TASKWARDEN_VERSION);
  app.require_subcommand(1);
  app.footer(kFooter);

  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  std::function<int()> chosen;
  try {
    host::add_watch_command(app, &arguments, &chosen);
  } catch (const host::WrongUsage& error) {
    host::say(host::escape_text(error.what()));
    return kWrongUsage;
  }
  host::add_leaks_command(app, &chosen);
  host::add_listen_command(app, &arguments, &chosen);
  host::add_demo_commands(app, &chosen);
  host::add_events_command(app, &chosen);
  host::add_inspect_commands(app, &chosen);
  host::add_judge_command(app, &chosen);

  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    host::say(host::escape_text(host::usage_error(app, error)));
    return kWrongUsage;
  }
  return chosen();
}

}  // namespace

int main(int argc, char** argv) {
  hold_standard_descriptors();
  ::signal(SIGPIPE, SIG_DFL);
  ::signal(SIGCHLD, SIG_DFL);  // ignored, the pid of a child could become another's
  int status = 1;
  try {
    status = run(argc, argv);
  } catch (const std::exception& error) {
    host::say(error.what());
  }
  host::finish_output();
  return status;
}
