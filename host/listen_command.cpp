#include "host/listen_command.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "host/escape.h"
#include "host/output.h"
#include "host/process_view.h"
#include "host/record_format.h"
#include "host/until_signal.h"

namespace host {
namespace {

// Prints and reacts to the records that come until there have been enough, or standard output
// fails.
class Printer {
 public:
  Printer(const ListenOptions& options, unique_fd listener)
      : options_(options),
        reaction_(options.reaction),
        server_(
            std::move(listener), options.senders, {},
            [this](const Record& record, std::string_view text, const Sender& sender) {
              return print(record, text, sender);
            },
            say) {}

  // Waits for the commands that run when there have been enough. Returns the exit status.
  int run() {
    const bool served = server_.run();
    reaction_.wait();
    return served && written_ ? 0 : 1;
  }
  // As of the server and the reaction.
  std::string refusals() const { return server_.refusals(); }
  std::string omissions() const { return reaction_.omissions(); }

 private:
  bool print(const Record& record, std::string_view text, const Sender& sender) {
    const auto now = std::chrono::system_clock::now();
    if (!options_.events.empty() && std::find(options_.events.begin(), options_.events.end(),
                                              record.event) == options_.events.end()) {
      return true;
    }
    const ProcessView view = view_process(record, sender);
    written_ = options_.json ? write_line(Stream::kOut, record_json(record, sender, view, now))
                             : write_text(Stream::kOut, escape_text(text) + "\n" + view_text(view));
    if (written_ && !options_.reaction.command.empty()) {
      reaction_.react(record, sender, view, now);
    }
    return written_ && ++printed_ != options_.count;
  }

  const ListenOptions options_;
  Reaction reaction_;
  RecordServer server_;
  uint64_t printed_ = 0;
  bool written_ = true;
};

}  // namespace

int run_listen(const ListenOptions& options) {
  block_signals({});
  unique_fd listener = listen_on(options.name);
  if (!listener.ok()) {
    const std::string reason =
        errno == EADDRINUSE ? "another process already has this name; end it, or give another NAME"
                            : ::strerror(errno);
    say("cannot listen on \"" + escape_text(options.name) + "\": " + reason);
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

}  // namespace host
