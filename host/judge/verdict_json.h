// A verdict as one JSON object.
#ifndef HOST_JUDGE_VERDICT_JSON_H_
#define HOST_JUDGE_VERDICT_JSON_H_

#include <string>

#include "judge/sample.h"

namespace host {

// The object in ASCII, without a line feed. Memory is in kB, what is unknown null; bytes of the
// name that are not UTF-8 become U+FFFD.
std::string verdict_json(const judge::Verdict& verdict);

}  // namespace host

#endif  // HOST_JUDGE_VERDICT_JSON_H_
