#include "host/watch/watch_log.h"

#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/common/escape.h"
#include "host/common/event_kinds.h"
#include "host/common/journal.h"
#include "host/common/json_line.h"
#include "host/common/output.h"
#include "host/common/record_format.h"
#include "host/common/time_words.h"
#include "host/verdict/journal_entry.h"
#include "host/verdict/sentence.h"
#include "host/verdict/verdict_object.h"
#include "host/watch/event_object.h"
#include "host/watch/event_sieve.h"
#include "host/watch/explaining.h"
#include "host/watch/process_identity.h"
#include "host/watch/record_steps.h"
#include "taskwarden/observers.h"
#include "taskwarden/taskwarden.h"

namespace host {
namespace {

using std::chrono::system_clock;

// About what an event that waits to be written holds.
constexpr size_t kEventCost = 4096;

std::atomic<uint64_t> undelivered{0};

std::string now_text() {
  return iso_time(system_clock::now());
}

std::string tag_text(const char* tag) {
  return tag != nullptr ? tag : "";
}

class TextLog {
 public:
  explicit TextLog(const LogStyle& style)
      : timestamps_(style.timestamps), color_(is_coloured(style.color)) {}

  void report(std::string_view text, system_clock::time_point time) {
    // Rows begin with a tab, and nothing else does.
    if (text.starts_with('\t')) {
      if (++rows_ > kMostRows) {
        return;
      }
    } else {
      tell_more_rows();
    }
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
      print(Stream::kOut, "at " + iso_time(time) + "\n", Place::kContinues);
    }
  }

  // Says how many rows were left out since the last other text, if any were.
  void tell_more_rows() {
    const size_t rows = std::exchange(rows_, 0);
    if (rows > kMostRows) {
      print(Stream::kOut, "\t ... and " + std::to_string(rows - kMostRows) + " more\n",
            Place::kContinues);
    }
  }

  std::string verdict(const ToldVerdict& verdict) const {
    const std::string line = "verdict: " + verdict_sentence(verdict);
    std::string text = color_ ? color_of(verdict.state) + line + "\033[0m" : line;
    for (const std::string& row : verdict.explanation) {
      text += "\n\t" + row;
    }
    return text;
  }

  void failure(const std::string& tag, std::string_view text) {
    const std::string line = "E/" + tag + ": " + std::string(text);
    print(Stream::kErr, text.ends_with('\n') ? line : line + "\n", Place::kBegins);
  }

 private:
  static bool is_coloured(Color color) {
    const char* const no_color = ::getenv("NO_COLOR");
    const bool wanted = no_color == nullptr || *no_color == '\0';
    return color == Color::kAlways ||
           (color == Color::kAuto && wanted && ::isatty(STDOUT_FILENO) == 1);
  }

  static std::string color_of(judge::State state) {
    return state == judge::State::kUrgent      ? "\033[1;37;41m"
           : state == judge::State::kConfirmed ? "\033[1;31m"
           : state == judge::State::kSuspected ? "\033[33m"
                                               : "\033[32m";
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
  size_t rows_ = 0;  // since the last other text
};

// Events come by the observer; here is all else. Blank lines and rules are not told.
struct JsonLog {
  static void report(std::string_view text, system_clock::time_point time) {
    if (text == "\n" || text == kRule) {
      return;
    }
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    write_line(Stream::kOut, json_line({{"time", iso_time(time)}, {"text", std::string(text)}}));
  }

  static void failure(const std::string& tag, std::string_view text,
                      system_clock::time_point time) {
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    write_line(Stream::kErr,
               json_line({{"time", iso_time(time)}, {"tag", tag}, {"failure", std::string(text)}}));
  }
};

Show shown = Show::kAll;
bool to_journal = false;

// Null: objects. Never destroyed: the library's thread runs until the process ends.
TextLog* text_log = nullptr;

// Null: what is logged is written at once. Else its thread writes.
Explainer* explainer = nullptr;

void write_in_turn(size_t bytes, std::function<void()> write) {
  if (explainer == nullptr) {
    write();
  } else {
    explainer->put(bytes, [write = std::move(write)](const Explanation*) { write(); });
  }
}

void write_log_text(LogText text) {
  const size_t bytes = text.text.size();
  write_in_turn(bytes, [one = std::move(text)] {
    if (text_log == nullptr) {
      one.is_report ? JsonLog::report(one.text, one.time)
                    : JsonLog::failure(one.tag, one.text, one.time);
    } else {
      one.is_report ? text_log->report(one.text, one.time) : text_log->failure(one.tag, one.text);
    }
  });
}

// Null: all is printed.
const PrintFilter* filter = nullptr;

bool steps_are_shown = true;

// The cycle's thread alone logs events and records.
void pass_on(LogText text) {
  static thread_local RecordSteps steps(write_log_text);
  if (steps_are_shown) {
    write_log_text(std::move(text));
  } else {
    steps.take(std::move(text));
  }
}
EventSieve& sieve() {
  static thread_local EventSieve events(pass_on);
  return events;
}

bool is_shown(const taskwarden_event& event) {
  if (filter == nullptr || event.kind == nullptr) {
    return true;
  }
  if (event.kind->about == TASKWARDEN_ABOUT_PROCESS) {
    return filter->shows({{event.process.data, event.process.length}, event.pid, event.start_time});
  }
  return !is_ranking(*event.kind) || filter->shows_rankings();
}

// The pids of other senders may be of another pid namespace.
bool is_shown(const Record& record, const Sender& sender) {
  const bool ours = sender.pid == ::getpid() && record.pid > 0;
  const uint32_t pid = ours ? static_cast<uint32_t>(record.pid) : 0;
  return filter == nullptr ||
         filter->shows({without_pid(record.name, static_cast<uint32_t>(record.pid)), pid});
}

// The library asks that nothing be thrown here: out of memory for a log line ends the program.
void take(void* /*context*/, int output, const char* tag, const char* text,
          size_t length) noexcept {
  LogText one{output == TASKWARDEN_OUTPUT_REPORT, tag_text(tag), std::string(text, length),
              system_clock::now()};
  if (filter != nullptr) {
    sieve().take(std::move(one));
  } else {
    pass_on(std::move(one));
  }
}

// Writes what is left to write of an event.
void write_event(Json object, const Explanation* explanation) {
  if (text_log == nullptr) {
    if (explanation != nullptr) {
      explanation->add_to(&object);
    }
    write_line(Stream::kOut, json_line(object));
    return;
  }
  text_log->tell_more_rows();
  for (const std::string& line :
       explanation != nullptr ? explanation->lines() : std::vector<std::string>()) {
    text_log->report(line + "\n", system_clock::now());
  }
}

void take_event(void* /*context*/, const taskwarden_event* event) noexcept {
  undelivered += event->record == TASKWARDEN_RECORD_LOST ? 1 : 0;
  if (shown == Show::kVerdicts || event->kind == nullptr || !is_logged(*event->kind)) {
    return;
  }
  const bool wanted = is_shown(*event);
  sieve().tell(wanted);
  if (!wanted) {
    return;
  }
  Json object;
  if (text_log == nullptr) {
    object = event_object(*event);
  }
  std::optional<Question> question = explainer != nullptr ? question_about(*event) : std::nullopt;
  if (!question) {
    write_in_turn(kEventCost, [object = std::move(object)] { write_event(object, nullptr); });
    return;
  }
  explainer->ask(*std::move(question), kEventCost,
                 [object = std::move(object)](const Explanation* explanation) {
                   write_event(object, explanation);
                 });
}

}  // namespace

void start_log(const LogStyle& style) {
  shown = style.show;
  explainer = style.explainer;
  filter = style.filter;
  steps_are_shown = filter == nullptr && ::isatty(STDERR_FILENO) == 0;
  to_journal = is_journal(STDOUT_FILENO) || is_journal(STDERR_FILENO);
  if (style.json) {
    set_message_format([](const std::string& message) {
      return json_line({{"time", now_text()}, {"message", message}});
    });
  } else {
    text_log = new TextLog(style);
  }
  taskwarden_set_output(take, nullptr);
  taskwarden_observe_events(
      take_event, nullptr,
      style.json || style.show == Show::kVerdicts ? TASKWARDEN_WITHOUT_TEXT : TASKWARDEN_WITH_TEXT);
}

void log_verdict(const ToldVerdict& verdict) {
  if (shown == Show::kEvents || (to_journal && send_to_journal(journal_fields(verdict)))) {
    return;
  }
  std::string line = text_log != nullptr ? text_log->verdict(verdict)
                                         : json_line({{"verdict", verdict_object(verdict)}});
  const size_t bytes = line.size();
  write_in_turn(bytes, [line = std::move(line)] { write_line(Stream::kOut, line); });
}

bool log_record(const Record& record, std::string_view text, const Sender& sender) {
  if (shown == Show::kVerdicts || !is_shown(record, sender)) {
    return true;
  }
  return write_line(
      Stream::kOut,
      text_log == nullptr
          ? json_line({{"record", record_object(record, sender, system_clock::now())}})
          : "record: " + escape_text(text));
}

uint64_t undelivered_records() {
  return undelivered;
}

void count_undelivered_from(uint64_t before) {
  undelivered = before;
}

}  // namespace host
