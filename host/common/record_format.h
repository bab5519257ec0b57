// Records as JSON. Any thread.
#ifndef HOST_COMMON_RECORD_FORMAT_H_
#define HOST_COMMON_RECORD_FORMAT_H_

#include <chrono>
#include <string>

#include "host/common/json_line.h"
#include "host/common/record.h"

namespace host {

// `arrival` is written in UTC with milliseconds. Names are the bytes that came.
Json record_object(const Record& record, const Sender& sender,
                   std::chrono::system_clock::time_point arrival);

// The same as json_line() writes it.
std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival);

}  // namespace host

#endif  // HOST_COMMON_RECORD_FORMAT_H_
