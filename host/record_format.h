// How records are shown: as text that cannot drive a terminal, and as JSON that is always whole.
// The names in them are bytes that other programs chose. Any thread.
#ifndef HOST_RECORD_FORMAT_H_
#define HOST_RECORD_FORMAT_H_

#include <chrono>
#include <string>
#include <string_view>

#include "host/record.h"

namespace host {

// `text` as one line of printable characters: the backslash is doubled, and control characters
// (also those of C1), line and paragraph separators, marks that turn the direction of writing, and
// bytes that are not UTF-8 become \xNN, byte by byte. No two texts come out the same.
std::string escape_text(std::string_view text);

// One JSON object without a line feed, in ASCII. Bytes that are not UTF-8 become U+FFFD. `arrival`
// is written in UTC with milliseconds.
std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival);

}  // namespace host

#endif  // HOST_RECORD_FORMAT_H_
