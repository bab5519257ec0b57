// Taking a text apart by the format that it was made with.
#ifndef HOST_TEXT_PATTERN_H_
#define HOST_TEXT_PATTERN_H_

#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

namespace host {

// Matches the whole of `text` with `pattern`: literal bytes, "%d" (a decimal number of 64 bits,
// with blanks before it or none) and at most one "%s" (any bytes at all, line feeds
// and what looks like the rest of the pattern included, since what follows it is matched from the
// end). "%16s" is one that was padded with blanks on the left to 16 bytes, and comes without them.
//
// Result: whether it matches; then the fields are appended to `*fields` in their order.
bool match_pattern(std::string_view text, std::string_view pattern,
                   std::vector<nlohmann::ordered_json>* fields);

}  // namespace host

#endif  // HOST_TEXT_PATTERN_H_
