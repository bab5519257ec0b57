#include "judge/saved_state.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "judge/sealed.h"

namespace judge {

struct SavedState {
  // Each of these shows the parts to a Writer or a Reader, in the order of the bytes.
  template <typename J, typename Visit>
  static void clock(J& judge, Visit& visit) {
    visit(judge.last_);
    visit(judge.watched_);
    visit(judge.swept_);
  }

  template <typename P, typename Visit>
  static void process(P& process, Visit& visit) {
    visit(process.start);
    visit(process.first);
    visit(process.last);
    visit(process.watched);
    visit(process.memory_kb);
    visit(process.minute);
    visit(process.name);
    for (auto& history : process.histories) {
      History::visit(history, visit);
    }
  }

  static void write(const Judge& judge, Writer& visit) {
    clock(judge, visit);
    std::vector<int32_t> pids;
    for (const auto& [pid, process] : judge.processes_) {
      pids.push_back(pid);
    }
    std::sort(pids.begin(), pids.end());
    visit(static_cast<uint32_t>(pids.size()));
    for (const int32_t pid : pids) {
      visit(pid);
      process(judge.processes_.at(pid), visit);
    }
  }

  static bool is_sound(const Judge::Process& process, double now) {
    return process.start >= kUnknown && process.memory_kb >= kUnknown &&
           std::isfinite(process.first) && process.first <= process.last && process.last <= now &&
           process.minute == process.minute_at(process.last) && std::isfinite(process.watched) &&
           std::all_of(std::begin(process.histories), std::end(process.histories),
                       [&](const History& history) { return history.is_sound(process.minute); });
  }

  // Into a judge that has no processes.
  static bool read(Reader& visit, Judge* judge) {
    clock(*judge, visit);
    if (!std::isfinite(judge->last_) || !std::isfinite(judge->watched_) ||
        !std::isfinite(judge->swept_)) {
      return false;
    }
    uint32_t count = 0;
    visit(count);
    for (int64_t before = INT64_MIN; count > 0 && !visit.failed(); --count) {
      int32_t pid = 0;
      visit(pid);
      Judge::Process& fresh = judge->processes_[pid];
      process(fresh, visit);
      if (pid <= before || !is_sound(fresh, judge->last_)) {
        return false;
      }
      before = pid;
    }
    return !visit.failed() && visit.at_end();
  }

  static void take_over(Judge* judge, Judge&& loaded) {
    loaded.tell_ = std::move(judge->tell_);
    *judge = std::move(loaded);
  }
};

std::string save(const Judge& judge, std::string_view boot) {
  std::string content;
  Writer write(&content);
  write(boot);
  SavedState::write(judge, write);
  return seal(kStateVersion, content);
}

const char* load(std::string_view bytes, std::string_view boot, Judge* judge) {
  std::string_view content;
  if (const char* const problem = unseal(kStateVersion, bytes, &content)) {
    return problem;
  }
  Reader read(content);
  std::string of;
  read(of);
  if (of != boot) {
    return "it is of another boot";
  }
  Judge loaded{Judge::Tell()};
  if (!SavedState::read(read, &loaded)) {
    return "it is damaged";
  }
  SavedState::take_over(judge, std::move(loaded));
  return nullptr;
}

}  // namespace judge
