#include "host/watch/watch_command.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/common/escape.h"
#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/common/record_server.h"
#include "host/common/until_signal.h"
#include "host/watch/config_file.h"
#include "host/watch/explaining.h"
#include "host/watch/supervisor.h"
#include "host/watch/verdicts.h"
#include "host/watch/watch_log.h"
#include "taskwarden/taskwarden.h"

namespace host {
namespace {

// What the library takes of the property: 91 bytes and a NUL, as on Android.
constexpr size_t kInterestMax = 91;
// What may be kept to explain growth, of all processes together.
constexpr size_t kInventoryBytes = 16 << 20;

constexpr char kFooter[] =
    R"(Inspects the processes with pid 300 or higher every 2 seconds, a part at a time if they are many.
Reports on standard output what grew, by how much, and in which threads, files or memory areas.
Reports failures on standard error as "E/tag: text". Run it as root to see all details of the
processes of other users.

The most important events are also sent as records to the abstract socket taskwarden_native_socket.
If no other process listens there, this one does. It accepts records from root and from its own
user, and prints each on a line of standard output that begins with "record: ". There, unprintable
bytes are written as \xNN, and backslashes are doubled.

It also judges who leaks: memory, threads and open files. A verdict is one sentence on a line that
begins with "verdict: ". A process is
  suspected               when it grew evenly, for minutes at least
  confirmed               when it grew so long and so steadily that nothing healthy explains it
  urgent                  when at its rate a limit is reached within the hour
  ended                   when it fell back, stopped growing, or ended
What is known of growth is kept in a file for the next watch. In the journal a verdict is one entry
with the fields TASKWARDEN_PID, _STATE, _RESOURCE and so on.

Processes choose their names, which can hold any bytes. On a terminal, unprintable bytes are written
as \xNN. Elsewhere only line feeds and carriage returns are, so that no name can begin a line.

Below the explanation of an event, and below a verdict, stands who the process is, and what it holds
by names that people on Linux know; from the second time on what grew since the first. If there is
no time for that it is left out, and the end says how often.

An explanation shows at most 200 rows, and says how many more there are.

--ignore, --only-user, --min-age and --no-rankings concern what is printed of events, verdicts and
records, and nothing else: records are sent, and "taskwarden leaks" and the judge know all. Where a
user is not known, as of a process that has ended, or in records of other watchdogs, --only-user
prints nothing. With these options, and on a terminal, the lines on sending a record are left out if
it was delivered.

With --log-format json each line of both outputs is one object with "time" (UTC) and these fields:
  event                   name of an event
  pid, name, start,       of process events: the process, when it started (clock ticks after boot,
  before, after           if known), and its value before and after. System events have their
                          figures instead; rankings have neither
  explanation             what grew, by name ("created", "opened", "divisions"), from the second
                          event of a kind on; or the "ranking"
  who, holds, grew,       who the process is, what it holds or what grew since an earlier look,
  grew_since              and when that was
  text                    any other line of the log
  verdict                 time, pid, start, name, unit (of systemd), resource (memory, threads,
                          open_files), state, from, now, since, rate_per_hour, limit,
                          seconds_to_limit, evidence; kB or counts, what is unknown is null;
                          who, holds, grew, grew_since as above
  record                  a received record, with the fields of "listen --json"
  tag, failure            a failure, "E/tag: failure" in the text
  message                 a message of this program, "taskwarden: message" in the text

If an output is not read, its oldest lines are dropped, and a line says how many. At the end and on
SIGQUIT, standard error says how many records could not be delivered and how many were refused.

Signals:
  SIGUSR1          pause after the current pass
  SIGUSR2          resume
  SIGQUIT          after the current pass, or at once when paused: list the processes with
                   suspicious numbers, and the memory of interesting processes
  SIGINT, SIGTERM  stop at once with status 0

Exit status: 0 when stopped by a signal, 1 when there is nothing to watch or the process file system
cannot be opened, 2 on wrong usage. A closed pipe ends the program by SIGPIPE.

Examples: taskwarden watch --interest surfaceflinger 2>errors.log | grep -A 20 Event_
          taskwarden watch --log-format json | jq -c 'select(.event == "Event_ThreadAmount")')";

struct Options {
  std::string interest{};  // empty: what the environment says
  std::string proc_root = "/proc";
  bool no_service = false;   // leave the record socket alone
  bool every_visit = false;  // read also what has not run
  LogStyle log{};
  ExplainOptions explain{};
  VerdictOptions verdicts{};
  FilterOptions filter{};
};

// What got lost so far, if anything did. `server` is null if there is none.
void say_losses(const RecordServer* server) {
  if (const uint64_t records = undelivered_records(); records != 0) {
    say("records not delivered: " + std::to_string(records));
  }
  if (const std::string refusals = server != nullptr ? server->refusals() : ""; !refusals.empty()) {
    say(refusals);
  }
}

// The record socket, answered on a thread that runs until the process ends, as does the server: the
// one that was carried over, or a new one. Null if it cannot be.
RecordServer* answer_records(const CarriedState& carried) {
  unique_fd listener = carried.listener >= 0 ? adopt_listener(carried.listener, kRecordSocket)
                                             : listen_on(kRecordSocket);
  if (!listener.ok()) {
    const std::string reason =
        errno == EADDRINUSE ? "another process already does" : ::strerror(errno);
    say("not listening on \"" + std::string(kRecordSocket) + "\": " + reason);
    return nullptr;
  }
  static auto* const server =
      new RecordServer(std::move(listener), Senders::trusted(), {}, log_record, say);
  server->count_from({carried.refused_senders, carried.refused_texts});
  std::thread([] { server->run(); }).detach();
  return server;
}

// Runs the cycle and, should it return, says why. Returns the exit status.
int run_cycle(const std::string& proc_root) {
  const int32_t result = taskwarden_start();
  end_explaining();
  taskwarden_progress progress = {};
  progress.size = sizeof(progress);
  taskwarden_get_progress(&progress);
  if (result == TASKWARDEN_CANNOT_READ) {
    say("cannot open the process file system at \"" + escape_text(proc_root) + "\"");
  } else if (progress.slots_were_refused != 0) {
    say("nothing to watch: the system refused memory for pids of " +
        std::to_string(progress.slots) + " and higher, and no process has a pid from 300 to that");
  } else {
    say("nothing to watch: no process has pid 300 or higher; a small container may have none");
  }
  return 1;
}

// What was asked for by signals, for a new image of the program to honour.
std::atomic<bool> pause_wanted{false};
std::atomic<int64_t> dump_wanted_in_pass{-1};

uint32_t passes_so_far() {
  taskwarden_progress progress = {};
  progress.size = sizeof(progress);
  taskwarden_get_progress(&progress);
  return progress.passes;
}

void want_pause(bool pause) {
  pause_wanted = pause;
  taskwarden_notify(pause ? 1 : 0);
}

void want_dump() {
  dump_wanted_in_pass = passes_so_far();
  taskwarden_request_dump();
}

// On a thread of its own, since a call to the library waits for its output, and the end of the
// program must not.
void obey_signals(const RecordServer* server) {
  std::thread([server] {
    const sigset_t set = signal_set({SIGQUIT, SIGUSR1, SIGUSR2});
    for (int signal = 0; sigwait(&set, &signal) == 0;) {
      if (signal == SIGQUIT) {
        say_losses(server);
        want_dump();
      } else {
        want_pause(signal == SIGUSR1);
      }
    }
  }).detach();
}

// ---- What lives on when the program begins anew in its own place.

// The attachment of the verdicts.
constexpr char kVerdicts[] = "verdicts";

std::string attachment(const CarriedState& state, const char* name) {
  const auto found = state.attachments.find(name);
  return found != state.attachments.end() ? found->second : "";
}

// Adds to `state` what is this command's.
void save(CarriedState* state) {
  state->is_paused = pause_wanted;
  state->wants_dump = dump_wanted_in_pass == passes_so_far();
  state->undelivered = undelivered_records();
  state->attachments[kVerdicts] = carry_verdicts();
}

// Before the cycle starts.
CarriedState resume() {
  const std::optional<CarriedState> carried = take_state();
  if (!carried) {
    return {};
  }
  resume_after_hold(*carried);
  count_undelivered_from(carried->undelivered);
  if (carried->is_paused) {
    want_pause(true);
  }
  if (carried->wants_dump) {
    want_dump();
  }
  return *carried;
}

void supervise(Supervisor::Options options) {
  static auto* const supervisor = new Supervisor(std::move(options));
  std::thread([] { supervisor->run(); }).detach();
}

int run(Options options) {
  block_signals({SIGQUIT, SIGUSR1, SIGUSR2});
  if (!options.interest.empty()) {
    ::setenv("TW_STATS_INTEREST", options.interest.c_str(), 1);
  }
  taskwarden_limit_inventories(kInventoryBytes);
  taskwarden_limit_receivers(nullptr, 0);
  taskwarden_visit_only_what_ran(options.every_visit ? 0 : 1);
  queue_output();
  options.explain.proc_root = options.proc_root;
  options.log.explainer = start_explaining(options.explain);
  // Never destroyed: the threads that use it run until the process ends.
  static const auto& filter = *new PrintFilter(options.filter, options.proc_root);
  options.log.filter = filter.is_set() ? &filter : nullptr;
  start_log(options.log);
  const CarriedState carried = resume();
  RecordServer* const server = options.no_service ? nullptr : answer_records(carried);
  if (!start_verdicts(options.verdicts, options.proc_root, options.log.filter,
                      attachment(carried, kVerdicts))) {
    return 1;
  }
  obey_signals(server);
  supervise({options.proc_root, carried.sparing, server, save});
  const int status = run_until_signal([root = options.proc_root] { return run_cycle(root); });
  end_explaining();
  say_unexplained();
  say_losses(server);
  end_verdicts();
  return status;
}

void add_options(CLI::App& command, Options* options) {
  command
      .add_option("--interest", options->interest,
                  "Also read the memory areas of some processes:\n"
                  "those whose \"name#pid\" contains TEXT, which is at most\n"
                  "91 bytes long; if it begins with 0, none (default:\n"
                  "TW_STATS_INTEREST from the environment)")
      ->option_text("TEXT")
      ->check(must_fit(kInterestMax));
  add_proc_root(command, &options->proc_root);
  command.add_flag("--no-service", options->no_service, "Do not listen for records");
  command.add_flag("--every-visit", options->every_visit,
                   "Read the files of every process at every visit, also\n"
                   "of those that have not run since the last one");
  command.add_option("--log-format", options->log.json, "Format of the log (default text)")
      ->option_text("text|json")
      ->transform(must_stand_for<bool>({{"text", false}, {"json", true}}));
  command.add_option("--show", options->log.show, "What to print (default all)")
      ->option_text("all|events|verdicts")
      ->transform(must_stand_for<Show>(
          {{"all", Show::kAll}, {"events", Show::kEvents}, {"verdicts", Show::kVerdicts}}));
  add_filter_options(command, &options->filter);
  add_verdict_options(command, &options->verdicts);
  command.add_flag("--no-explanations", options->explain.off,
                   "Do not say who a process is and what grew by name");
  add_no_arguments(command, &options->explain.no_arguments);
  command.add_flag("--timestamps", options->log.timestamps,
                   "Add a line with the time to each block of text");
  command
      .add_option("--color", options->log.color,
                  "Colour the headlines of the text (default auto:\n"
                  "on a terminal, unless NO_COLOR is set)")
      ->option_text("auto|always|never")
      ->transform(must_stand_for<Color>(
          {{"auto", Color::kAuto}, {"always", Color::kAlways}, {"never", Color::kNever}}));
}

}  // namespace

void add_watch_command(CLI::App& app, std::vector<std::string>* arguments,
                       std::function<int()>* chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand("watch", "Watch all processes until stopped");
  command.footer(kFooter);
  command.callback([=] { *chosen = [options] { return run(*options); }; });
  add_options(command, options.get());
  Options checked;
  add_config(
      command, [&checked](CLI::App& other) { add_options(other, &checked); }, arguments);
}

}  // namespace host
