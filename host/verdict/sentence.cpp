#include "host/verdict/sentence.h"

#include <time.h>

#include <cmath>
#include <cstdio>

#include "host/common/escape.h"
#include "host/common/time_words.h"

namespace host {
namespace {

using judge::Resource;
using judge::State;

constexpr double kDay = 86400;

// With one decimal below 10, where that is not 0.
std::string number(double value) {
  char text[32];
  const double tenths = std::round(value * 10) / 10;
  const bool fraction = std::fabs(tenths) < 10 && tenths != std::floor(tenths);
  std::snprintf(text, sizeof(text), fraction ? "%.1f" : "%.0f", fraction ? tenths : value);
  return text;
}

double seconds_between(ToldVerdict::Time from, ToldVerdict::Time to) {
  return std::chrono::duration<double>(to - from).count();
}

// The time of day, with the date where it is another day's by now.
std::string clock_words(ToldVerdict::Time time, double seconds_ago) {
  const time_t clock = std::chrono::system_clock::to_time_t(time);
  tm parts = {};
  ::localtime_r(&clock, &parts);
  char text[32];
  ::strftime(text, sizeof(text), seconds_ago < kDay ? "%H:%M" : "%b %e %H:%M", &parts);
  return text;
}

std::string head(const ToldVerdict& verdict) {
  const std::string what = resource_words(verdict.resource);
  switch (verdict.state) {
    case State::kSuspected:
      return "may leak " + what;
    case State::kConfirmed:
      return "leaks " + what;
    case State::kUrgent:
      return "is running out of " + what;
    default:
      return "no longer leaks " + what;
  }
}

std::string limit_words(const ToldVerdict& verdict) {
  if (verdict.state == State::kEnded || !verdict.limit) {
    return "";
  }
  const std::string limit = ", limit " + level_words(verdict.resource, *verdict.limit);
  return verdict.seconds_to_limit ? limit + " in " + span_words(*verdict.seconds_to_limit) : limit;
}

}  // namespace

std::string resource_words(Resource resource) {
  return resource == Resource::kOpenFiles ? "open files" : judge::resource_name(resource);
}

std::string level_words(Resource resource, double level) {
  if (resource != Resource::kMemory) {
    return number(std::round(level));
  }
  const char* unit = "kB";
  for (const char* larger : {"MB", "GB", "TB"}) {
    if (std::fabs(level) < 1000) {
      break;
    }
    level /= 1024;
    unit = larger;
  }
  return number(unit[0] == 'k' ? std::round(level) : level) + " " + unit;
}

std::string rate_words(Resource resource, double rate_per_hour) {
  return (resource == Resource::kMemory ? level_words(resource, rate_per_hour)
                                        : number(rate_per_hour)) +
         " an hour";
}

std::string verdict_sentence(const ToldVerdict& verdict) {
  const double ago = seconds_between(verdict.since, verdict.time);
  std::string text = quote_text(verdict.name) + " (pid " + std::to_string(verdict.pid) +
                     (verdict.unit.empty() ? "" : ", " + escape_text(verdict.unit)) + ") " +
                     head(verdict) + ": " + level_words(verdict.resource, verdict.from) + " -> " +
                     level_words(verdict.resource, verdict.now) + " since " +
                     clock_words(verdict.since, ago) + " (" + span_words(ago) + " ago)";
  if (verdict.rate_per_hour) {
    text += ", " + rate_words(verdict.resource, *verdict.rate_per_hour);
  }
  text += limit_words(verdict);
  return text + (verdict.evidence.empty() ? "" : "; " + escape_text(verdict.evidence));
}

}  // namespace host
