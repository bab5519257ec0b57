// The `taskwarden` program: the command line.
#include <fcntl.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/demo_command.h"
#include "host/inspect_command.h"
#include "host/listen_command.h"
#include "host/option_checks.h"
#include "host/output.h"
#include "host/watch_command.h"
#include "platform/unique_fd.h"

namespace {

constexpr int kWrongUsage = 2;
// What the library takes of the property (91 bytes and a NUL, as on Android), and of a path.
constexpr size_t kInterestMax = 91;
constexpr size_t kProcRootMax = 127;

constexpr char kAbout[] =
    "Task Warden watches the memory, threads and open files of processes, and explains what grew.";

constexpr char kFooter[] =
    "Exit status: 0 when ended as asked, 1 on failure, 2 on wrong usage.\n"
    "\"taskwarden COMMAND --help\" tells the whole of a command.";

constexpr char kWatchFooter[] =
    R"(Every 2 seconds a slice of all processes of pid 300 and above is inspected. What grew, by how
much and in which threads, files or memory areas goes to standard output; failures go to standard
error as "E/tag: text". Run it as root to see the processes of other users whole.

The most important events are also sent as records to the abstract socket taskwarden_native_socket.
Unless another process answers it already, this one does, and prints each record of root or of the
user it runs as on a line of standard output: "record: " and its text, unprintable bytes as \xNN and
the backslash doubled.

Names are what the processes chose. On a terminal their unprintable bytes are shown as \xNN. Anywhere
else they stay as they are, except that none can begin a line with "record: " or "taskwarden: ".

With --log-format json each line of both outputs is one object with the time, UTC:
  event, pid, name,       one event, whole; kB or counts. Those of the system have their figures
  before, after           instead, rankings (Event_ProcRankNative, Event_ProcRankRuntime) neither
  explanation             its rows: what grew by name ("created", "opened", "divisions"), which only
                          the second event of a kind can tell, or the "ranking"
  text                    any other line of the log
  record                  one record, with the members that "listen --json" gives it
  tag, failure            a line of standard error that begins "E/" in the text
  message                 a line that begins "taskwarden: " in the text
An event whose list of rows may go on is written after 1 second without a further row.

An output that is not read for long costs lines of it, the oldest first, and a line says how many.
Records that could not be delivered and such as were refused are counted on standard error at the
end, and on SIGQUIT.

Signals:
  SIGUSR1          pause at the end of the pass under way
  SIGUSR2          resume
  SIGQUIT          when the pass under way has ended, or at once if paused, print two listings:
                   processes with suspicious numbers, and the memory of interesting ones
  SIGINT, SIGTERM  end at once, with status 0

Exit status: 0 when ended by a signal, 1 when there is nothing to watch or the process file system
cannot be opened, 2 on wrong usage. A closed pipe ends the program as it does any filter.

Examples: taskwarden watch --interest surfaceflinger 2>errors.log | grep -A 20 Event_
          taskwarden watch --log-format json | jq -c 'select(.event == "Event_ThreadAmount")')";

constexpr char kListenFooter[] =
    R"(A record is "pid@@value@@event@@process name@@detail" and a NUL, on a connection of its own;
the value is in kB or a count. As text it is printed as it came, unprintable bytes as \xNN and the
backslash doubled. What is not a record, or comes from a user who is not allowed to send, is refused
on standard error with the reason and the sender, at most once a second and the rest counted; at the
end a line tells how many were refused in all. Any process in the same network namespace can try.

With --json each line is one object:
  time                    of arrival, UTC, ISO 8601 with milliseconds
  pid, value              whom the event is about, and the number that raised it
  event, name, detail     text; bytes that are not UTF-8 become U+FFFD
  sender_uid, sender_pid  who sent it, as the kernel tells
  cgroup, command_line    of the process, as /proc shows them when the record arrives; null if that
                          cannot be read or the sender is in another pid namespace
As text, lines that begin with a tab tell the last two, where they are known.

The command of --exec is run as it is, without a shell, with TASKWARDEN_TIME, _PID, _VALUE, _EVENT,
_NAME, _DETAIL, _SENDER_UID, _SENDER_PID, _CGROUP and _COMMAND_LINE in its environment: any bytes, so
quote them. It reads nothing, and its output goes to standard error. The end by --count waits for the
commands under way, the end by a signal leaves them running.

Exit status: 0 after N records or when ended by SIGINT or SIGTERM, 1 when another process has the
name or standard output fails, 2 on wrong usage.

Examples: taskwarden listen --json | jq 'select(.event == "Event_ThreadAmount")'
          taskwarden listen --where Event_ThreadAmount --cooldown 600 \
            --exec sh -c 'logger "$TASKWARDEN_NAME has $TASKWARDEN_VALUE threads"')";

constexpr char kDemoFooter[] =
    R"(Starts a child for each KIND, lets them settle, and has them leak in turn, then once more: the
first event of a kind only takes an inventory, the second tells what came since. It says on standard
error what to expect. Start "taskwarden watch" first. It takes 59 seconds in all, up to 200
MiB of memory and some hundred descriptors, and gives all back however it ends.

  threads                 threads of the name demo-worker
  sockets, pipes, files   descriptors, of the last so many that the descriptor table grows as well
  memory                  memory without a name (division UNNAMED)
  shared                  shared memory: for root under a name like a device's, /dev/ashmem-demo, in
                          a mount namespace of its own (ASHMEM), else in /dev/shm (DEVNODE)
  rename                  descriptors, after it has become another program, so that it starts afresh

With thousands of processes a watch comes round less often, and its first round takes longest: give
it a head start then, or set a larger --pace.

Exit status: 0 at the end or when ended by a signal, 1 on failure, 2 on wrong usage.

Example: taskwarden demo --only threads)";

// Takes the words that `meanings` has, and nothing else.
template <typename Meaning>
CLI::Validator one_of(const std::map<std::string, Meaning>& meanings) {
  const auto take = [meanings](std::string& word) {
    const auto found = meanings.find(word);
    if (found != meanings.end()) {
      word = std::to_string(static_cast<int>(found->second));
      return std::string();
    }
    std::string words;
    for (const auto& [other, meaning] : meanings) {
      words += (words.empty() ? "" : ", ") + other;
    }
    return word + " is none of: " + words;
  };
  return CLI::Validator(take, "");
}

// The events of which records are sent.
CLI::Validator recorded_event() {
  const auto check = [](const std::string& name) {
    constexpr std::string_view kEvents[] = {
        "Event_ResidentSize", "Event_ThreadAmount", "Event_OpenFileAmount", "Event_VssHeap",
        "Event_VssDalvik",    "Event_VssKgsl",      "Event_VssDmaBuf"};
    std::string all;
    for (const std::string_view event : kEvents) {
      all += (all.empty() ? "" : ", ") + std::string(event);
    }
    const bool known = std::find(std::begin(kEvents), std::end(kEvents), name) != std::end(kEvents);
    return known ? "" : "records are sent of " + all + ", not of \"" + name + "\"";
  };
  return CLI::Validator(check, "");
}

// The words behind "--exec" of a "listen", of which the first alone stays in `arguments`: the
// others may look like options.
std::vector<std::string> take_command(std::vector<std::string>* arguments) {
  const auto exec = std::find(arguments->begin(), arguments->end(), "--exec");
  if (arguments->empty() || arguments->front() != "listen" || exec == arguments->end() ||
      exec + 1 == arguments->end()) {
    return {};
  }
  std::vector<std::string> command(exec + 1, arguments->end());
  *exec = "--exec=" + command.front();
  arguments->erase(exec + 1, arguments->end());
  return command;
}

// A standard descriptor that comes closed would be taken by the next thing opened, and be written
// to in its place.
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

  host::WatchOptions watch;
  CLI::App* const watch_command = app.add_subcommand("watch", "Watch until told to stop");
  watch_command->footer(kWatchFooter);
  watch_command
      ->add_option("--interest", watch.interest,
                   "Also read the memory areas of processes whose\n"
                   "\"name#pid\" contains TEXT, of at most 91 bytes; one that\n"
                   "begins with 0 means none. Overrides the environment's\n"
                   "TW_STATS_INTEREST")
      ->option_text("TEXT")
      ->check(host::bytes_up_to(kInterestMax));
  watch_command
      ->add_option("--proc-root", watch.proc_root,
                   "Watch the process file system at DIR, not /proc")
      ->option_text("DIR")
      ->check(host::bytes_up_to(kProcRootMax));
  watch_command->add_flag("--no-service", watch.no_service, "Leave the record socket to others");
  const std::map<std::string, bool> formats = {{"text", false}, {"json", true}};
  watch_command
      ->add_option("--log-format", watch.log.json, "Write the log as text, unless told, or as JSON")
      ->option_text("text|json")
      ->transform(one_of(formats));
  watch_command->add_flag("--timestamps", watch.log.timestamps,
                          "Begin each block of the text with a line that tells\nthe time");
  const std::map<std::string, host::Color> colors = {{"auto", host::Color::kAuto},
                                                     {"always", host::Color::kAlways},
                                                     {"never", host::Color::kNever}};
  watch_command
      ->add_option("--color", watch.log.color,
                   "Colour the headlines of the text. Unless told, auto:\n"
                   "on a terminal, if NO_COLOR is not set")
      ->option_text("auto|always|never")
      ->transform(one_of(colors));

  host::ListenOptions listen;
  CLI::App* const listen_command =
      app.add_subcommand("listen", "Print the records that watchdogs send");
  listen_command->footer(kListenFooter);
  listen_command
      ->add_option("NAME", listen.name,
                   "Abstract socket to bind instead of\ntaskwarden_native_socket")
      ->option_text(" ")
      ->check(host::bytes_up_to(host::kSocketNameMax));
  listen_command->add_flag("--json", listen.json, "Print objects instead of text");
  listen_command->add_option("--count", listen.count, "End after N records")
      ->option_text("N")
      ->check(host::decimal())
      ->check(CLI::Range(1U, UINT32_MAX));
  listen_command
      ->add_option("--where", listen.events,
                   "Take only records of these events, separated by\ncommas")
      ->option_text("EVENT[,EVENT]")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(recorded_event());
  std::string program;
  CLI::Option* const exec =
      listen_command
          ->add_option("--exec", program,
                       "Run this for each record. All that follows is\nthe command: give it last")
          ->type_name("COMMAND")
          ->option_text("COMMAND [ARG...]")
          ->check(host::runnable());
  listen_command
      ->add_option("--exec-limit", listen.reaction.at_once,
                   "Run N commands at once at the most, 1 to 64; 4\n"
                   "unless told. Records beyond go without")
      ->option_text("N")
      ->check(host::decimal())
      ->check(CLI::Range(1, 64))
      ->needs(exec);
  int cooldown = 0;
  listen_command
      ->add_option("--cooldown", cooldown,
                   "Run nothing for the same process and event again\nwithin this time")
      ->option_text("SECONDS")
      ->check(host::decimal())
      ->check(CLI::Range(0, 31536000))
      ->needs(exec);
  std::vector<uid_t> allowed;
  CLI::Option* const allow_uid =
      listen_command
          ->add_option("--allow-uid", allowed,
                       "Take records from processes of this user id\n"
                       "alone. May be given several times. Unless told:\n"
                       "0 and the one that the listener runs as")
          ->option_text("UID")
          ->allow_extra_args(false)
          ->check(host::decimal());
  listen_command
      ->add_flag("--allow-anyone", listen.senders.anyone, "Take records from processes of any user")
      ->excludes(allow_uid);

  host::DemoOptions demo;
  CLI::App* const demo_command =
      app.add_subcommand("demo", "Start programs that leak, for a watch to see");
  demo_command->footer(kDemoFooter);
  demo_command->add_option("--only", demo.kinds, "Leak this alone. May be given several times")
      ->option_text("KIND")
      ->allow_extra_args(false)
      ->check(CLI::IsMember(host::demo_kinds()));
  demo_command
      ->add_option("--pace", demo.pace, "From one leak to the next, 1 to 3600; 3 unless told")
      ->option_text("SECONDS")
      ->check(host::decimal())
      ->check(CLI::Range(1, 3600));
  std::string leak;
  CLI::App* const demo_child = app.add_subcommand("demo-child", "What demo starts")->group("");
  demo_child->add_option("KIND", leak)->required()->check(CLI::IsMember(host::demo_kinds()));

  std::function<int()> inspect;
  host::add_inspect_commands(app, &inspect);

  std::vector<std::string> arguments(argv + 1, argv + argc);
  listen.reaction.command = take_command(&arguments);
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUsage;
  }
  if (!allowed.empty()) {
    listen.senders.uids = allowed;
  }
  listen.reaction.cooldown = std::chrono::seconds(cooldown);
  if (inspect) {
    return inspect();
  }
  if (demo_child->parsed()) {
    host::run_demo_child(leak);
  }
  if (demo_command->parsed()) {
    return host::run_demo(demo);
  }
  return watch_command->parsed() ? host::run_watch(watch) : host::run_listen(listen);
}

}  // namespace

int main(int argc, char** argv) {
  hold_standard_descriptors();
  ::signal(SIGPIPE, SIG_DFL);
  int status = 1;
  try {
    status = run(argc, argv);
  } catch (const std::exception& error) {
    host::say(error.what());
  }
  host::finish_output();
  return status;
}
