#include "host/listen/listen_command.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "host/common/escape.h"
#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/common/record_format.h"
#include "host/common/record_server.h"
#include "host/common/until_signal.h"
#include "host/feed/feed_place.h"
#include "host/listen/hook_fields.h"
#include "host/listen/process_view.h"
#include "host/listen/reaction.h"
#include "host/listen/verdict_source.h"
#include "host/listen/where.h"
#include "host/verdict/sentence.h"
#include "host/verdict/verdict_object.h"

namespace host {
namespace {

constexpr char kFooter[] =
    R"(A record is "pid@@value@@event@@process name@@detail" and a NUL byte, on a connection of its own.
The value is a count or kB. Text format prints the record as it arrived, with unprintable bytes as
\xNN and backslashes doubled. Below it, lines that begin with a tab show the control group and the
command line of the process, if they are known.

Any process in the same network namespace can connect. Texts that are not records are refused, and
so are records from users who may not send. Standard error says who sent them and why they were
refused, at most once a second, and at the end how many they were.

With --json each line is one object:
  time                    when the record arrived (UTC, ISO 8601 with milliseconds)
  pid, value              the process, and the number that raised the event
  event, name, detail     text; bytes that are not UTF-8 become U+FFFD
  sender_uid, sender_pid  who sent it, according to the kernel
  cgroup, command_line    of the process, read from /proc when the record arrives; null if they
                          cannot be read or the sender is in another pid namespace

With --feed, the verdicts of the running watch are taken as well: what is confirmed or urgent, and
the end of that, unless --where names states. A verdict is a line that begins with "verdict: ", or an
object in "verdict"; "taskwarden watch --help" describes it. If another process has NAME, verdicts
are taken alone, and if --where names no event, NAME is left to others. If there is no watch, or it
ends, the next one is waited for.

The command of --exec runs without a shell. For a record its environment has TASKWARDEN_TIME, _PID,
_VALUE, _EVENT, _NAME, _DETAIL, _SENDER_UID, _SENDER_PID, _CGROUP and _COMMAND_LINE; for a verdict
TASKWARDEN_TIME, _PID, _START, _NAME, _UNIT, _RESOURCE, _STATE, _FROM, _NOW, _SINCE, _RATE_PER_HOUR,
_LIMIT, _SECONDS_TO_LIMIT, _EVIDENCE, and the sentence in _VERDICT. What is unknown is not set. They
can hold any bytes, so quote them. The command's input is empty, and its output goes to standard error. With --count,
the program waits for running commands before it ends. After a signal it does not.

Exit status: 0 after N records and verdicts or when stopped by SIGINT or SIGTERM, 1 when standard
output fails or, without --feed, another process listens on NAME, 2 on wrong usage.

Examples: taskwarden listen --json | jq 'select(.event == "Event_ThreadAmount")'
          taskwarden listen --where Event_ThreadAmount --cooldown 600 \
            --exec sh -c 'logger "$TASKWARDEN_NAME has $TASKWARDEN_VALUE threads"'
          taskwarden listen --feed --where confirmed,urgent \
            --exec sh -c 'logger "$TASKWARDEN_VERDICT"')";

constexpr std::string_view kExecIs = "--exec=";
constexpr int kMostCommands = 64;
constexpr int kYear = 31536000;  // seconds

struct Options {
  std::string name = kRecordSocket;  // in the abstract namespace
  bool json = false;
  bool no_arguments = false;
  uint32_t count = 0;  // records to end after; 0 for no end
  bool anyone = false;
  std::vector<uid_t> uids{};         // whose records are accepted; empty for the default
  std::vector<std::string> where{};  // as of class Where
  bool with_feed = false;            // take verdicts as well
  std::string feed{};                // path of the socket; empty for the default
  std::string program{};             // of --exec; it and its arguments are in `reaction` as well
  int cooldown = 0;                  // seconds
  int exec_timeout = 30;             // likewise
  Reaction::Options reaction{};      // without a command, there is none

  Senders senders() const { return {anyone, uids.empty() ? Senders::trusted().uids : uids}; }
  bool takes_records() const { return Where(where).wants_records(); }
  bool takes_verdicts() const { return with_feed && Where(where).wants_verdicts(); }
};

// Prints and reacts to the records and verdicts that come until there have been enough, or standard
// output fails. Lives for as long as the threads that it starts.
class Printer : public std::enable_shared_from_this<Printer> {
 public:
  // Without a listener, no records are received.
  Printer(const Options& options, unique_fd listener)
      : options_(options), where_(options.where), reaction_(options.reaction) {
    if (listener.ok()) {
      server_.emplace(
          std::move(listener), options.senders(), RecordServer::Limits(),
          [this](const Record& record, std::string_view text, const Sender& sender) {
            return print(record, text, sender);
          },
          say);
    }
  }

  // Waits for the commands that run when there have been enough. Returns the exit status.
  int run() {
    bool served = true;
    if (options_.takes_verdicts()) {
      start_sources();
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return ended_; });
      served = served_;
    } else {
      served = server_->run();
    }
    reaction_.wait();
    return served && written_ ? 0 : 1;
  }
  // As of the server and the reaction.
  std::string refusals() const { return server_ ? server_->refusals() : ""; }
  std::string omissions() const { return reaction_.omissions(); }

 private:
  // On threads that may run until the process ends.
  void start_sources() {
    std::thread([self = shared_from_this()] {
      const auto take = [&self](const ToldVerdict& verdict) { return self->print(verdict); };
      const auto stand = [&self](const std::vector<ToldVerdict>& standing) {
        const std::lock_guard lock(self->mutex_);
        self->where_.stand(standing);
      };
      read_verdicts(self->options_.feed, {take, stand});
    }).detach();
    if (server_) {
      std::thread([self = shared_from_this()] {
        const bool served = self->server_->run();
        const std::lock_guard lock(self->mutex_);
        self->served_ = self->served_ && (served || self->ended_);
        self->end();
      }).detach();
    }
  }

  bool print(const Record& record, std::string_view text, const Sender& sender) {
    const auto now = std::chrono::system_clock::now();
    if (!where_.accepts(record)) {
      return true;
    }
    const ProcessView view = view_process(record, sender, "/proc", options_.no_arguments);
    std::string shown = escape_text(text) + "\n" + view_text(view);
    if (options_.json) {
      Json object = record_object(record, sender, now);
      add_view(view, &object);
      shown = json_line(object) + "\n";
    }
    const std::lock_guard lock(mutex_);
    return put(shown, {record.name, record.event}, hook_fields(record, sender, view, now));
  }

  bool print(const ToldVerdict& told) {
    ToldVerdict verdict = told;
    if (options_.no_arguments) {
      verdict.explanation.clear();
    }
    const std::lock_guard lock(mutex_);
    if (!where_.accepts(verdict)) {
      return true;
    }
    std::string shown = "verdict: " + verdict_sentence(verdict) + "\n";
    for (const std::string& row : verdict.explanation) {
      shown += "\t" + log_text_for_terminal(row) + "\n";
    }
    if (options_.json) {
      shown = json_line({{"verdict", verdict_object(verdict)}}) + "\n";
    }
    return put(shown,
               {verdict.name + "#" + std::to_string(verdict.pid),
                std::string(judge::resource_name(verdict.resource)) + " " +
                    judge::state_name(verdict.state)},
               hook_fields(verdict));
  }

  // Under the lock. False when there have been enough; then nothing is put any more.
  bool put(const std::string& text, const Reaction::Occasion& occasion, const HookFields& fields) {
    if (ended_) {
      return false;
    }
    written_ = write_text(Stream::kOut, text);
    if (written_ && !options_.reaction.command.empty()) {
      reaction_.react(occasion, fields);
    }
    if (!written_ || ++printed_ == options_.count) {
      end();
    }
    return !ended_;
  }

  void end() {
    ended_ = true;
    changed_.notify_all();
  }

  const Options options_;
  std::mutex mutex_{};
  std::condition_variable changed_{};
  Where where_;
  Reaction reaction_;
  std::optional<RecordServer> server_{};
  uint64_t printed_ = 0;
  bool ended_ = false;
  bool served_ = true;
  bool written_ = true;
};

// The record socket, or, where none is wanted or can be had, not ok.
unique_fd record_listener(const Options& options) {
  if (!options.takes_records()) {
    return {};
  }
  unique_fd listener = listen_on(options.name);
  if (!listener.ok()) {
    const std::string reason =
        errno == EADDRINUSE
            ? "another process already listens there; stop it or choose another NAME"
            : ::strerror(errno);
    say("cannot listen on \"" + escape_text(options.name) + "\": " + reason);
  }
  return listener;
}

int run(const Options& options) {
  block_signals({});
  unique_fd listener = record_listener(options);
  if (!listener.ok() && !options.takes_verdicts()) {
    return 1;
  }
  const auto printer = std::make_shared<Printer>(options, std::move(listener));
  const int status = run_until_signal([printer] { return printer->run(); });
  // An output may be what held it up.
  queue_output();
  if (const std::string refusals = printer->refusals(); !refusals.empty()) {
    say(refusals);
  }
  if (const std::string omissions = printer->omissions(); !omissions.empty()) {
    say(omissions);
  }
  return status;
}

// The command of --exec, of which only the first word stays in `arguments`.
std::vector<std::string> take_command(std::vector<std::string>* arguments) {
  const auto exec =
      std::find_if(arguments->begin(), arguments->end(), [](const std::string& argument) {
        return argument == "--exec" || argument.starts_with(kExecIs);
      });
  if (arguments->empty() || arguments->front() != "listen" || exec == arguments->end()) {
    return {};
  }
  std::vector<std::string> command(exec + 1, arguments->end());
  if (exec->starts_with(kExecIs)) {
    command.insert(command.begin(), exec->substr(kExecIs.size()));
    arguments->erase(exec + 1, arguments->end());
  } else if (!command.empty()) {
    arguments->erase(exec + 2, arguments->end());
  }
  return command;
}

bool is_program(const std::string& path) {
  std::error_code error;
  return ::access(path.c_str(), X_OK) == 0 && std::filesystem::is_regular_file(path, error);
}

// With a slash, so that it is not taken for the NAME; empty for none.
CLI::Validator must_be_path() {
  const auto check = [](const std::string& path) {
    return path.empty() || (path.find('/') != path.npos && path.size() <= kPathMax)
               ? ""
               : "must be a path with a slash, of at most " + std::to_string(kPathMax) +
                     " bytes, not \"" + path + "\"";
  };
  return CLI::Validator(check, "");
}

// A program that may be run: found in PATH unless its name has a slash.
CLI::Validator must_be_runnable() {
  const auto check = [](const std::string& name) {
    const char* const path = ::getenv("PATH");
    const bool is_path = name.find('/') != name.npos;
    bool found = is_path && is_program(name);
    std::istringstream folders(is_path || path == nullptr ? "" : path);
    for (std::string folder; !found && std::getline(folders, folder, ':');) {
      found = is_program(folder + "/" + name);
    }
    return found ? "" : "no program \"" + name + "\" can be run; give its full path";
  };
  return CLI::Validator(check, "");
}

}  // namespace

void add_listen_command(CLI::App& app, std::vector<std::string>* arguments,
                        std::function<int()>* chosen) {
  const auto options = std::make_shared<Options>();
  options->reaction.command = take_command(arguments);
  CLI::App& command = *app.add_subcommand("listen", "Print the records that watchdogs send");
  command.footer(kFooter);
  command.callback([=, &command] {
    options->with_feed = command.get_option("--feed")->count() != 0;
    if (!options->with_feed && Where(options->where).names_verdicts()) {
      throw CLI::ValidationError("--where names verdicts, which requires --feed");
    }
    options->reaction.cooldown = std::chrono::seconds(options->cooldown);
    options->reaction.timeout = std::chrono::seconds(options->exec_timeout);
    *chosen = [options] { return run(*options); };
  });
  command
      .add_option("NAME", options->name,
                  "Abstract socket to listen on (default\ntaskwarden_native_socket)")
      ->option_text(" ")
      ->check(must_fit(kSocketNameMax));
  command.add_flag("--json", options->json, "Print objects instead of text");
  add_no_arguments(command, &options->no_arguments);
  command.add_option("--count", options->count, "Stop after N records and verdicts")
      ->option_text("N")
      ->check(must_be_number(1U, UINT32_MAX));
  command
      .add_option("--where", options->where,
                  "Accept only these, separated by commas: of records\n"
                  "events (\"taskwarden events\" lists them), of verdicts\n"
                  "suspected, confirmed, urgent, ended, and memory,\n"
                  "threads, open_files")
      ->option_text("EVENT[,EVENT]")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(must_be_one_of(Where::words()));
  command
      .add_option("--feed", options->feed,
                  "Take verdicts of the running watch as well, from the\n"
                  "local socket PATH (default: the service's, else that\n"
                  "of this user)")
      ->option_text("[PATH]")
      ->expected(0, 1)
      ->check(must_be_path());
  CLI::Option* const exec =
      command
          .add_option("--exec", options->program,
                      "Run COMMAND for each record and verdict; give it last\n"
                      "(all that follows belongs to the command)")
          ->option_text("COMMAND [ARG...]")
          ->check(must_be_runnable());
  command
      .add_option("--exec-limit", options->reaction.at_once,
                  "Run at most N commands at once, 1 to 64 (default 4).\n"
                  "Others beyond that run no command")
      ->option_text("N")
      ->check(must_be_number(1, kMostCommands))
      ->needs(exec);
  command
      .add_option("--exec-timeout", options->exec_timeout,
                  "End a command that runs for longer, 1 to 86400\n"
                  "(default 30): SIGTERM to its process group, and\n"
                  "SIGKILL 5 seconds later")
      ->option_text("SECONDS")
      ->check(must_be_number(1, 86400))
      ->needs(exec);
  command
      .add_option("--cooldown", options->cooldown,
                  "Wait between commands for the same process and event,\nor state of a resource "
                  "(default 0)")
      ->option_text("SECONDS")
      ->check(must_be_number(0, kYear))
      ->needs(exec);
  // The last user id stands for none at all (setuid(2)).
  CLI::Option* const allow_uid =
      command
          .add_option("--allow-uid", options->uids,
                      "Accept records from this user id only. Can be repeated\n"
                      "(default: 0 and the user id of the listener)")
          ->option_text("UID")
          ->allow_extra_args(false)
          ->check(must_be_number<uid_t>(0, UINT32_MAX - 1));
  command
      .add_flag("--allow-anyone", options->anyone,
                "Accept records from any user; not with --allow-uid")
      ->option_text(" ")
      ->excludes(allow_uid);
}

}  // namespace host
