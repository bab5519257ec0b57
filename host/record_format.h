// Records, and what is seen of their processes, in forms that are always whole, whatever bytes
// other programs chose for names. Any thread.
#ifndef HOST_RECORD_FORMAT_H_
#define HOST_RECORD_FORMAT_H_

#include <chrono>
#include <string>

#include "host/process_view.h"
#include "host/record.h"

namespace host {

// One JSON object without a line feed, in ASCII. Bytes that are not UTF-8 become U+FFFD. `arrival`
// is written in UTC with milliseconds.
std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival);

// The same with what is seen of the process: "cgroup" and "command_line", an array, or null.
std::string record_json(const Record& record, const Sender& sender, const ProcessView& view,
                        std::chrono::system_clock::time_point arrival);

// What is seen of the process as lines that begin with a tab, escaped; empty if nothing is.
std::string view_text(const ProcessView& view);

}  // namespace host

#endif  // HOST_RECORD_FORMAT_H_
