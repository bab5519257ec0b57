#include "host/watch_command.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <cstdint>
#include <string_view>
#include <thread>
#include <utility>

#include "host/escape.h"
#include "host/output.h"
#include "host/record_server.h"
#include "host/until_signal.h"
#include "host/watch_log.h"
#include "taskwarden/taskwarden.h"

namespace host {
namespace {

// What got lost so far, if anything did. `server` is null if there is none.
void say_losses(const RecordServer* server) {
  if (const uint64_t records = undelivered_records(); records != 0) {
    say("records that could not be delivered: " + std::to_string(records));
  }
  if (const std::string refusals = server != nullptr ? server->refusals() : ""; !refusals.empty()) {
    say(refusals);
  }
}

// The record socket, answered on a thread that runs until the process ends, as does the server.
// Null if it cannot be.
const RecordServer* answer_records() {
  unique_fd listener = listen_on(kRecordSocket);
  if (!listener.ok()) {
    const std::string reason =
        errno == EADDRINUSE ? "another process already does" : ::strerror(errno);
    say("not answering \"" + std::string(kRecordSocket) + "\": " + reason);
    return nullptr;
  }
  static auto* const server =
      new RecordServer(std::move(listener), Senders::trusted(), {}, log_record, say);
  std::thread([] { server->run(); }).detach();
  return server;
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
void obey_signals(const RecordServer* server) {
  std::thread([server] {
    const sigset_t set = signal_set({SIGQUIT, SIGUSR1, SIGUSR2});
    for (int signal = 0; sigwait(&set, &signal) == 0;) {
      if (signal == SIGQUIT) {
        say_losses(server);
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
  queue_output();
  start_log(options.log);
  const RecordServer* const server = options.no_service ? nullptr : answer_records();
  obey_signals(server);
  const int status = run_until_signal([root = options.proc_root] { return run_cycle(root); });
  finish_log();
  say_losses(server);
  return status;
}

}  // namespace host
