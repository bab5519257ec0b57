// The judge's whole state as bytes, so that it survives a restart of the watch: histories go on,
// and what was told is not told again. No files: the caller keeps the bytes.
#ifndef JUDGE_SAVED_STATE_H_
#define JUDGE_SAVED_STATE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "judge/judge.h"

namespace judge {

// Goes up with each change of what is written.
constexpr uint32_t kStateVersion = 2;

// The state. `boot` says which boot of the system its pids and times belong to; any bytes. The same
// state gives the same bytes on every system.
std::string save(const Judge& judge, std::string_view boot);

// Puts the state from save() in place of what `judge` knows; nothing is told. Returns null, or why
// the bytes are of no use: then `judge` is as it was. Samples go on after those of the saved state,
// on the same clock.
const char* load(std::string_view bytes, std::string_view boot, Judge* judge);

}  // namespace judge

#endif  // JUDGE_SAVED_STATE_H_
