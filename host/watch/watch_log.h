// How `watch` writes what the library says: as text, marked and coloured as wished, or as objects.
#ifndef HOST_WATCH_WATCH_LOG_H_
#define HOST_WATCH_WATCH_LOG_H_

#include <cstdint>
#include <string_view>

#include "host/common/record.h"
#include "host/verdict/told_verdict.h"
#include "host/watch/explainer.h"
#include "host/watch/print_filter.h"

namespace host {

enum class Color { kAuto, kAlways, kNever };

enum class Show { kAll, kEvents, kVerdicts };

struct LogStyle {
  bool json = false;        // an object a line, on both outputs
  bool timestamps = false;  // a line with the time in each block; objects have it anyway
  Color color = Color::kAuto;
  Show show = Show::kAll;  // records belong to the events
  // Explains events, and writes all that is logged, which it may delay for moments; null for
  // neither.
  Explainer* explainer = nullptr;
  // Which events and records are printed; null for all. Lives until the process ends, as above.
  const PrintFilter* filter = nullptr;
};

// Has the library's outputs, and the program's own lines, written in this style from now on, and
// the events observed. Once, when the outputs are queued and before the library is started.
void start_log(const LogStyle& style);

// Writes a record that came from `sender`, `text` being what came. False when standard output
// fails. Any thread.
bool log_record(const Record& record, std::string_view text, const Sender& sender);

// Writes a verdict, with its explanation below: as one line that begins with "verdict: ", as an
// object, or, where the journal takes our output, as one entry with fields. Any thread.
void log_verdict(const ToldVerdict& verdict);

// Records that did not reach the service, as the events say. Any thread.
uint64_t undelivered_records();
// Counts on from `before`. Before the library is started.
void count_undelivered_from(uint64_t before);

}  // namespace host

#endif  // HOST_WATCH_WATCH_LOG_H_
