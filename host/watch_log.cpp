#include "host/watch_log.h"

#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/escape.h"
#include "host/iso_time.h"
#include "host/log_parser.h"
#include "host/output.h"
#include "host/record_format.h"
#include "taskwarden/taskwarden.h"

namespace host {
namespace {

using Json = LogParser::Json;
using std::chrono::system_clock;

// An explanation has no end mark, but the cycle rests for a second at least once a slice is done.
constexpr std::chrono::milliseconds kQuiet{1000};

constexpr std::string_view kRule = "-------------------------------------------------------\n";

std::atomic<uint64_t> undelivered{0};

std::string now_text() {
  return iso_time(system_clock::now());
}

// By how the text begins: no name is quoted in those that begin so.
bool tells_of_undelivered(const char* tag, std::string_view text) {
  return tag == nullptr && (text.starts_with("Fail to connect to socket") ||
                            text.starts_with("trigger vk service written:"));
}

std::string tag_text(const char* tag) {
  return tag != nullptr ? tag : "";
}

class TextLog {
 public:
  explicit TextLog(const LogStyle& style)
      : timestamps_(style.timestamps), color_(is_coloured(style.color)) {}

  void report(std::string_view text) {
    // An empty line is the first of each event's.
    const Place place = text == "\n" ? Place::kBegins : Place::kContinues;
    const bool headline =
        text.starts_with("-> ") || text.starts_with("Event_") || text.starts_with("AuditEvent_");
    if (color_ && headline) {
      write_text(Stream::kOut, coloured(text), place);
    } else {
      print(Stream::kOut, text, place);
    }
    if (timestamps_ && text == kRule) {
      print(Stream::kOut, "at " + now_text() + "\n", Place::kContinues);
    }
  }

  void failure(const char* tag, std::string_view text) {
    const std::string line = "E/" + tag_text(tag) + ": " + std::string(text);
    print(Stream::kErr, text.ends_with('\n') ? line : line + "\n", Place::kBegins);
  }

 private:
  static bool is_coloured(Color color) {
    const char* const no_color = ::getenv("NO_COLOR");
    const bool wanted = no_color == nullptr || *no_color == '\0';
    return color == Color::kAlways ||
           (color == Color::kAuto && wanted && ::isatty(STDOUT_FILENO) == 1);
  }

  static void print(Stream stream, std::string_view text, Place place) {
    const bool terminal = ::isatty(static_cast<int>(stream)) == 1;
    write_text(stream, terminal ? log_text_for_terminal(text) : log_text_for_pipe(text), place);
  }

  // What is coloured ends on a terminal, also by way of a pipe.
  static std::string coloured(std::string_view text) {
    const std::string shown = log_text_for_terminal(text);
    const size_t end = shown.find_last_not_of('\n') + 1;
    const char* const begin = text.starts_with("-> ") ? "\033[1m" : "\033[1;33m";
    return begin + shown.substr(0, end) + "\033[0m" + shown.substr(end);
  }

  const bool timestamps_;
  const bool color_;
};

std::string line_of(const Json& object) {
  return object.dump(-1, ' ', true, Json::error_handler_t::replace);
}

class JsonLog {
 public:
  JsonLog() {
    std::thread([this] { flush_when_quiet(); }).detach();
  }

  void report(std::string_view text) {
    const std::lock_guard lock(mutex_);
    write(parser_.take(text, now_text()));
    ++texts_;
    changed_.notify_all();
  }

  static void failure(const char* tag, std::string_view text) {
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    write_line(
        Stream::kErr,
        line_of({{"time", now_text()}, {"tag", tag_text(tag)}, {"failure", std::string(text)}}));
  }

  void flush() {
    const std::lock_guard lock(mutex_);
    write(parser_.flush());
  }

 private:
  static void write(const std::vector<Json>& objects) {
    for (const Json& object : objects) {
      write_line(Stream::kOut, line_of(object));
    }
  }

  void flush_when_quiet() {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return parser_.holds(); });
      const uint64_t seen = texts_;
      if (!changed_.wait_for(lock, kQuiet, [&] { return texts_ != seen; })) {
        write(parser_.flush());
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  LogParser parser_;
  uint64_t texts_ = 0;
};

// One of both, and never destroyed: the library's thread runs until the process ends.
TextLog* text_log = nullptr;
JsonLog* json_log = nullptr;

// The library asks that nothing be thrown here: out of memory for a log line ends the program.
void take(void* /*context*/, int output, const char* tag, const char* text,
          size_t length) noexcept {
  const std::string_view view(text, length);
  const auto pass_on = [&](auto* log) {
    output == TASKWARDEN_OUTPUT_REPORT ? log->report(view) : log->failure(tag, view);
  };
  if (output != TASKWARDEN_OUTPUT_REPORT && tells_of_undelivered(tag, view)) {
    ++undelivered;
  }
  json_log != nullptr ? pass_on(json_log) : pass_on(text_log);
}

}  // namespace

void start_log(const LogStyle& style) {
  if (style.json) {
    json_log = new JsonLog;
    set_message_format([](const std::string& message) {
      return line_of({{"time", now_text()}, {"message", message}});
    });
  } else {
    text_log = new TextLog(style);
  }
  taskwarden_set_output(take, nullptr);
}

bool log_record(const Record& record, std::string_view text, const Sender& sender) {
  return write_line(Stream::kOut,
                    json_log != nullptr
                        ? "{\"record\":" + record_json(record, sender, system_clock::now()) + "}"
                        : "record: " + escape_text(text));
}

void finish_log() {
  if (json_log != nullptr) {
    json_log->flush();
  }
}

uint64_t undelivered_records() {
  return undelivered;
}

}  // namespace host
