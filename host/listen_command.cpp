#include "host/listen_command.h"

#include <errno.h>
#include <string.h>

#include <chrono>
#include <memory>
#include <utility>

#include "host/escape.h"
#include "host/output.h"
#include "host/record_format.h"
#include "host/until_signal.h"

namespace host {
namespace {

// Prints the records that come until there have been enough, or standard output fails.
class Printer {
 public:
  Printer(const ListenOptions& options, unique_fd listener)
      : options_(options),
        server_(
            std::move(listener), options.senders, {},
            [this](const Record& record, std::string_view text, const Sender& sender) {
              return print(record, text, sender);
            },
            say) {}

  // Returns the exit status.
  int run() { return server_.run() && written_ ? 0 : 1; }
  // As of the server.
  std::string refusals() const { return server_.refusals(); }

 private:
  bool print(const Record& record, std::string_view text, const Sender& sender) {
    const auto now = std::chrono::system_clock::now();
    written_ = write_line(Stream::kOut,
                          options_.json ? record_json(record, sender, now) : escape_text(text));
    return written_ && ++printed_ != options_.count;
  }

  const ListenOptions options_;
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
        errno == EADDRINUSE ? "another process already has this name" : ::strerror(errno);
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
  return status;
}

}  // namespace host
