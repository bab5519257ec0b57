// How `watch` writes what the library says: as text, marked and coloured as wished, or as objects.
#ifndef HOST_WATCH_WATCH_LOG_H_
#define HOST_WATCH_WATCH_LOG_H_

#include <cstdint>
#include <string_view>

#include "host/common/record.h"

namespace host {

enum class Color { kAuto, kAlways, kNever };

struct LogStyle {
  bool json = false;        // an object a line, on both outputs
  bool timestamps = false;  // a line with the time in each block; objects have it anyway
  Color color = Color::kAuto;
};

// Has the library's outputs, and the program's own lines, written in this style from now on, and
// the events observed. Once, when the outputs are queued and before the library is started.
void start_log(const LogStyle& style);

// Writes a record that came from `sender`, `text` being what came. False when standard output
// fails. Any thread.
bool log_record(const Record& record, std::string_view text, const Sender& sender);

// Records that did not reach the service, as the events say. Any thread.
uint64_t undelivered_records();

}  // namespace host

#endif  // HOST_WATCH_WATCH_LOG_H_
