#include "host/listen/where.h"

#include <algorithm>
#include <array>

#include "host/common/event_kinds.h"

namespace host {
namespace {

using judge::Resource;
using judge::State;

constexpr std::array kStates = {State::kSuspected, State::kConfirmed, State::kUrgent,
                                State::kEnded};
constexpr std::array kResources = {Resource::kMemory, Resource::kThreads, Resource::kOpenFiles};

bool has(const auto& list, const auto& one) {
  return std::find(list.begin(), list.end(), one) != list.end();
}

}  // namespace

std::vector<std::string> Where::words() {
  std::vector<std::string> all;
  for (const taskwarden_event_kind* kind : event_kinds()) {
    if (kind->has_record != 0) {
      all.emplace_back(kind->name);
    }
  }
  for (const State state : kStates) {
    all.emplace_back(judge::state_name(state));
  }
  for (const Resource resource : kResources) {
    all.emplace_back(judge::resource_name(resource));
  }
  return all;
}

Where::Where(const std::vector<std::string>& words)
    : any_(words.empty()), alerts_(State::kConfirmed) {
  for (const std::string& word : words) {
    const auto is_state = [&word](State state) { return word == judge::state_name(state); };
    const auto is_resource = [&word](Resource one) { return word == judge::resource_name(one); };
    const auto* const state = std::find_if(kStates.begin(), kStates.end(), is_state);
    const auto* const resource = std::find_if(kResources.begin(), kResources.end(), is_resource);
    if (state != kStates.end()) {
      states_.push_back(*state);
    } else if (resource != kResources.end()) {
      resources_.push_back(*resource);
    } else {
      events_.push_back(word);
    }
  }
}

bool Where::accepts(const Record& record) const {
  return any_ || has(events_, record.event);
}

bool Where::accepts(const ToldVerdict& verdict) {
  const bool is_alert = alerts_->want(verdict);
  return wants_verdicts() && (states_.empty() ? is_alert : has(states_, verdict.state)) &&
         (resources_.empty() || has(resources_, verdict.resource));
}

void Where::stand(const std::vector<ToldVerdict>& standing) {
  alerts_.emplace(State::kConfirmed);
  for (const ToldVerdict& verdict : standing) {
    alerts_->want(verdict);
  }
}

}  // namespace host
