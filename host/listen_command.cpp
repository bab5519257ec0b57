#include "host/listen_command.h"

#include <errno.h>
#include <string.h>

#include <chrono>
#include <memory>
#include <utility>

#include "host/output.h"
#include "host/record_format.h"
#include "host/until_signal.h"

namespace host {
namespace {

// Prints the records that come to `listener` until there have been enough, or standard output
// fails. Returns the exit status.
int print_records(const ListenOptions& options, unique_fd listener) {
  uint64_t printed = 0;
  bool written = true;
  RecordServer server(
      std::move(listener), {},
      [&](const Record& record, std::string_view text, const Sender& sender) {
        const auto now = std::chrono::system_clock::now();
        written = write_line(Stream::kOut,
                             options.json ? record_json(record, sender, now) : escape_text(text));
        return written && ++printed != options.count;
      },
      say);
  return server.run() && written ? 0 : 1;
}

}  // namespace

int run_listen(const ListenOptions& options) {
  block_signals({});
  const auto listener = std::make_shared<unique_fd>(listen_on(options.name));
  if (!listener->ok()) {
    const std::string reason =
        errno == EADDRINUSE ? "another process already has this name" : ::strerror(errno);
    say("cannot listen on \"" + escape_text(options.name) + "\": " + reason);
    return 1;
  }
  const auto work = [options, listener] { return print_records(options, std::move(*listener)); };
  return run_until_signal(work);
}

}  // namespace host
