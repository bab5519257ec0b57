// The verdicts of the running watch, and of the next one when it has ended.
#ifndef HOST_LISTEN_VERDICT_SOURCE_H_
#define HOST_LISTEN_VERDICT_SOURCE_H_

#include <functional>
#include <string>
#include <vector>

#include "host/verdict/told_verdict.h"

namespace host {

struct VerdictSink {
  // A change of a state. False ends the reading.
  std::function<bool(const ToldVerdict&)> change{};
  // All that is told now: at first, each minute, and whenever changes may have been missed.
  std::function<void(const std::vector<ToldVerdict>&)> standing{};
};

// Reads the feed at `path`, or that of feed_places() if it is empty, until `sink` has had enough.
// While there is none it tries again every few seconds, and says so once.
void read_verdicts(const std::string& path, const VerdictSink& sink);

}  // namespace host

#endif  // HOST_LISTEN_VERDICT_SOURCE_H_
