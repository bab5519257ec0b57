// JSON as this program writes it.
#ifndef HOST_COMMON_JSON_LINE_H_
#define HOST_COMMON_JSON_LINE_H_

#include <nlohmann/json.hpp>
#include <string>

namespace host {

using Json = nlohmann::ordered_json;

// `value` on one line without a line feed, in ASCII. Bytes that are not UTF-8 become U+FFFD.
inline std::string json_line(const Json& value) {
  return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace host

#endif  // HOST_COMMON_JSON_LINE_H_
