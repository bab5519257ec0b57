#include "host/watch_command.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <thread>

#include "host/output.h"
#include "host/record_format.h"
#include "host/record_server.h"
#include "host/until_signal.h"
#include "taskwarden/taskwarden.h"

namespace host {
namespace {

// The library asks that nothing be thrown here: out of memory for a log line ends the program.
void print(void* /*context*/, int output, const char* tag, const char* text,
           size_t length) noexcept {
  const std::string_view view(text, length);
  if (output == TASKWARDEN_OUTPUT_REPORT) {
    write_text(Stream::kOut, view);
    return;
  }
  std::string line = std::string("E/") + (tag != nullptr ? tag : "") + ": " + std::string(view);
  line += view.ends_with('\n') ? "" : "\n";
  write_text(Stream::kErr, line);
}

// The record socket, answered on a thread that runs until the process ends.
void answer_records() {
  const auto listener = std::make_shared<unique_fd>(listen_on(kRecordSocket));
  if (!listener->ok()) {
    const std::string reason =
        errno == EADDRINUSE ? "another process already does" : ::strerror(errno);
    say("not answering \"" + std::string(kRecordSocket) + "\": " + reason);
    return;
  }
  std::thread([listener] {
    RecordServer server(
        std::move(*listener), {},
        [](const Record&, std::string_view text, const Sender&) {
          write_line(Stream::kOut, "record: " + escape_text(text));
          return true;
        },
        say);
    server.run();
  }).detach();
}

// Runs the cycle and, should it return, says why. Returns the exit status.
int run_cycle(const std::string& proc_root) {
  if (taskwarden_start() == -1) {
    say("the process file system at \"" + escape_text(proc_root.empty() ? "/proc" : proc_root) +
        "\" cannot be opened");
  } else {
    say("nothing to watch: only processes of pid 300 and above are watched, and there is none; a "
        "small container may have no such process");
  }
  return 1;
}

// On a thread of its own, since a call to the library waits for its output, and the end of the
// program must not.
void obey_signals() {
  std::thread([] {
    const sigset_t set = signal_set({SIGQUIT, SIGUSR1, SIGUSR2});
    for (int signal = 0; sigwait(&set, &signal) == 0;) {
      if (signal == SIGQUIT) {
        taskwarden_request_dump();
      } else {
        taskwarden_notify(signal == SIGUSR1 ? 1 : 0);
      }
    }
  }).detach();
}

}  // namespace

int run_watch(const WatchOptions& options) {
  block_signals({SIGQUIT, SIGUSR1, SIGUSR2});
  if (!options.interest.empty()) {
    ::setenv("TW_STATS_INTEREST", options.interest.c_str(), 1);
  }
  if (!options.proc_root.empty() && taskwarden_set_proc_root(options.proc_root.c_str()) != 0) {
    say(std::string("--proc-root: ") + ::strerror(errno));
    return 2;
  }
  taskwarden_set_output(print, nullptr);
  if (!options.no_service) {
    answer_records();
  }
  obey_signals();
  return run_until_signal([root = options.proc_root] { return run_cycle(root); });
}

}  // namespace host
