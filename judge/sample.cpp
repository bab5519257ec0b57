#include "judge/sample.h"

#include <cmath>

namespace judge {
namespace {

// "40 minutes", "14 hours".
std::string duration(double seconds) {
  const bool minutes = seconds < 5400;
  const long count = std::lround(seconds / (minutes ? 60 : 3600));
  return std::to_string(count) + (minutes ? " minute" : " hour") + (count == 1 ? "" : "s");
}

}  // namespace

const char* resource_name(Resource resource) {
  constexpr const char* kNames[] = {"memory", "threads", "open_files"};
  return kNames[static_cast<size_t>(resource)];
}

const char* state_name(State state) {
  constexpr const char* kNames[] = {"none", "suspected", "confirmed", "urgent", "ended"};
  return kNames[static_cast<size_t>(state)];
}

std::string evidence_clause(const Evidence& evidence) {
  switch (evidence.kind) {
    case Evidence::Kind::kGrowth:
      return "its floor rose all through " + duration(evidence.span);
    case Evidence::Kind::kSameHour:
      return "its floor stands above that of the same hour a day before, for " +
             duration(evidence.span);
    case Evidence::Kind::kFellBack:
      return "the floor fell back";
    case Evidence::Kind::kStopped:
      return "it has not grown for " + duration(evidence.span);
    case Evidence::Kind::kProcessEnded:
      return "the process ended";
  }
  return "";
}

}  // namespace judge
