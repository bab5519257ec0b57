#include "host/common/output.h"

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>

namespace host {
namespace {

constexpr std::chrono::milliseconds kFinishPatience{500};

std::atomic<bool> failure_said{false};
OutputChannel::FormatFn message_format = OutputChannel::with_program_name;

void tell_failure(int fd, int error) {
  if (fd == STDOUT_FILENO && !failure_said.exchange(true)) {
    say(std::string("cannot write to standard output: ") + ::strerror(error));
  }
}

bool are_one_file(int a, int b) {
  struct stat of_a;
  struct stat of_b;
  return ::fstat(a, &of_a) == 0 && ::fstat(b, &of_b) == 0 && of_a.st_dev == of_b.st_dev &&
         of_a.st_ino == of_b.st_ino;
}

std::string formatted(const std::string& message) {
  return message_format(message);
}

struct Channels {
  OutputChannel out{tell_failure, {}, formatted};
  OutputChannel err_alone{tell_failure, {}, formatted};
  OutputChannel& err = are_one_file(STDOUT_FILENO, STDERR_FILENO) ? out : err_alone;

  bool put(OutputText text) { return (text.fd == STDOUT_FILENO ? out : err).put(std::move(text)); }
};

// Never destroyed: main() returns while other threads still write.
Channels& channels() {
  static Channels& both = *new Channels;
  return both;
}

}  // namespace

void queue_output() {
  channels().out.start_queue();
  if (&channels().err != &channels().out) {
    channels().err.start_queue();
  }
}

void finish_output() {
  const auto unwritten = [](OutputChannel& channel) {
    return channel.unwritten(std::chrono::steady_clock::now() + kFinishPatience);
  };
  const uint64_t lost = unwritten(channels().out);
  if (&channels().err == &channels().out) {
    return;
  }
  if (lost != 0) {
    say(std::to_string(lost) + " lines of the log were lost, since standard output is stalled");
  }
  unwritten(channels().err);
}

bool write_text(Stream stream, std::string_view text, Place place) {
  return channels().put({static_cast<int>(stream), std::string(text), place, false});
}

bool write_line(Stream stream, const std::string& line) {
  return channels().put({static_cast<int>(stream), line + "\n", Place::kBegins, true});
}

void say(const std::string& message) {
  write_line(Stream::kErr, formatted(message));
}

void set_message_format(OutputChannel::FormatFn format) {
  message_format = std::move(format);
}

}  // namespace host
