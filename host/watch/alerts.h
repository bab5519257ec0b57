// Which changes of a state are worth a line: those to a state that is bad enough, and the end of
// one that was told.
#ifndef HOST_WATCH_ALERTS_H_
#define HOST_WATCH_ALERTS_H_

#include <cstdint>
#include <set>
#include <tuple>

#include "host/verdict/told_verdict.h"

namespace host {

class Alerts {
 public:
  explicit Alerts(judge::State least) : least_(least) {}

  // Whether to print the verdict. One thread.
  bool want(const ToldVerdict& verdict) {
    const std::tuple key(verdict.pid, verdict.start, verdict.resource);
    if (verdict.state == judge::State::kEnded) {
      return told_.erase(key) != 0;
    }
    if (verdict.state < least_) {
      return false;
    }
    told_.insert(key);
    return true;
  }

 private:
  const judge::State least_;
  std::set<std::tuple<int32_t, int64_t, judge::Resource>> told_{};
};

}  // namespace host

#endif  // HOST_WATCH_ALERTS_H_
