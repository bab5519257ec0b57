// A record as JSON that is always whole, whatever bytes other programs chose for its names. Any
// thread.
#ifndef HOST_RECORD_FORMAT_H_
#define HOST_RECORD_FORMAT_H_

#include <chrono>
#include <string>

#include "host/record.h"

namespace host {

// One JSON object without a line feed, in ASCII. Bytes that are not UTF-8 become U+FFFD. `arrival`
// is written in UTC with milliseconds.
std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival);

}  // namespace host

#endif  // HOST_RECORD_FORMAT_H_
