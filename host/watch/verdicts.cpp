#include "host/watch/verdicts.h"

#include <errno.h>
#include <malloc.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "host/common/escape.h"
#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/common/own_folder.h"
#include "host/common/time_words.h"
#include "host/feed/feed_place.h"
#include "host/feed/feed_server.h"
#include "host/verdict/sentence.h"
#include "host/watch/alerts.h"
#include "host/watch/explaining.h"
#include "host/watch/judging.h"
#include "host/watch/watch_log.h"

namespace host {
namespace {

using judge::State;

// What lives for as long as the process.
struct Verdicts {
  Verdicts(const VerdictOptions& options, const PrintFilter* shown)
      : alerts(options.alert_on), filter(shown) {}

  // Whether to print it: as for the alerts, the end of what was printed is.
  bool is_wanted(const ToldVerdict& verdict) {
    const bool is_shown =
        filter == nullptr || verdict.state == State::kEnded ||
        filter->shows({verdict.name, static_cast<uint32_t>(verdict.pid),
                       static_cast<uint64_t>(std::max<int64_t>(verdict.start, 0))});
    return is_shown && alerts.want(verdict);
  }

  void tell(const ToldVerdict& verdict) {
    ++counts[static_cast<size_t>(verdict.state)];
    if (feed != nullptr) {
      feed->publish(verdict);
    }
    const Key key(verdict.pid, verdict.start, verdict.resource);
    if (verdict.state == State::kEnded) {
      explained.erase(key);
    } else if (!verdict.explanation.empty()) {
      explained[key] = {verdict.explanation, verdict.details};
    }
    if (is_wanted(verdict)) {
      log_verdict(verdict);
    }
  }
  // Each with the explanation that it was told with.
  void stand(std::vector<ToldVerdict> standing) {
    for (ToldVerdict& verdict : standing) {
      is_wanted(verdict);
      const auto found = explained.find({verdict.pid, verdict.start, verdict.resource});
      if (found != explained.end()) {
        std::tie(verdict.explanation, verdict.details) = found->second;
      }
    }
    if (feed != nullptr) {
      feed->refresh(figures, standing);
    }
  }
  void after_pass(const Judging::Pass& pass) {
    processes = pass.processes;
    figures.processes = pass.processes;
    figures.pass_ms = pass.duration_ms;
    if (feed != nullptr) {
      feed->set_figures(figures);
    }
    if (!std::exchange(said, true)) {
      say("watching " + std::to_string(pass.processes) + " processes; a pass takes " +
          std::to_string(pass.duration_ms) + " ms" +
          (pass.slices > 1 ? " in " + std::to_string(pass.slices) + " slices" : ""));
    }
  }

  using Key = std::tuple<int32_t, int64_t, judge::Resource>;

  Alerts alerts;
  const PrintFilter* const filter;
  std::map<Key, std::pair<std::vector<std::string>, Json>> explained{};
  FeedFigures figures{::getpid(), std::chrono::system_clock::now(), 0, 0};
  std::unique_ptr<FeedServer> feed{};  // null without a feed
  std::string feed_place{};
  bool is_second = false;  // another watch has the feed, and the state with it
  SampleFile record{};
  std::unique_ptr<Judging> judging{};
  bool said = false;
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  std::atomic<uint32_t> processes{0};  // that were watched last
  std::atomic<uint32_t> counts[5]{};   // of changes to each state
};

// Never destroyed; null without a judge.
Verdicts* verdicts = nullptr;

// ---- What goes on in the next image of the program: a line of figures, then the judge's bytes.

std::string figures_line() {
  std::string line = std::to_string(verdicts->begin.time_since_epoch().count());
  for (const auto& count : verdicts->counts) {
    line += " " + std::to_string(count.load());
  }
  return line + "\n";
}

void take_figures(const std::string& line) {
  std::istringstream numbers(line);
  std::chrono::steady_clock::rep begin = 0;
  if (numbers >> begin) {
    verdicts->begin =
        std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(begin));
  }
  for (uint32_t number = 0; auto& count : verdicts->counts) {
    numbers >> number;
    count = numbers ? number : 0;
  }
}

// Offers the feed, or says why it cannot be.
void start_feed(const std::string& path) {
  if (path.empty()) {
    say("no feed for \"taskwarden leaks\": XDG_RUNTIME_DIR is not set; --feed names a place");
    return;
  }
  unique_fd listener = offer_feed(path);
  if (!listener.ok()) {
    const int reason = errno;
    verdicts->is_second = reason == EADDRINUSE;
    say("no feed at \"" + escape_text(path) + "\": " +
        (verdicts->is_second ? "another watch offers its own there, and keeps the state"
                             : ::strerror(reason)));
    return;
  }
  verdicts->feed_place = path;
  verdicts->feed = std::make_unique<FeedServer>(std::move(listener), verdicts->figures);
  std::thread([] { verdicts->feed->run(); }).detach();
}

// The file that keeps the state; empty for none. What is not this system has pids of its own.
std::string state_path(const VerdictOptions& options, const std::string& proc_root) {
  if (options.no_state || (verdicts->is_second && options.state.empty())) {
    return "";
  }
  if (!options.state.empty() || proc_root != "/proc") {
    return options.state;
  }
  const std::string path = default_state_path();
  make_own_folder(path, 0700);
  return path;
}

}  // namespace

void add_verdict_options(CLI::App& command, VerdictOptions* options) {
  command
      .add_option("--alert-on", options->alert_on,
                  "Print verdicts from this state on, and the end of\n"
                  "what was printed (default confirmed)")
      ->option_text("suspected|confirmed|urgent")
      ->transform(must_stand_for<State>({{"suspected", State::kSuspected},
                                         {"confirmed", State::kConfirmed},
                                         {"urgent", State::kUrgent}}));
  command
      .add_option("--record", options->record,
                  "Add a sample of each process to FILE every 10\n"
                  "seconds, for \"taskwarden judge\"")
      ->option_text("FILE");
  CLI::Option* const state = command
                                 .add_option("--state", options->state,
                                             "Keep in FILE what is known of growth, for the next\n"
                                             "watch (default: judge.state in $STATE_DIRECTORY or\n"
                                             "/var/lib/taskwarden; of other users than root in\n"
                                             "~/.local/state/taskwarden)")
                                 ->option_text("FILE");
  command.add_flag("--no-state", options->no_state, "Keep no such file")
      ->option_text(" ")
      ->excludes(state);
  CLI::Option* const feed = command
                                .add_option("--feed", options->feed,
                                            "Offer verdicts to \"taskwarden leaks\" at the local\n"
                                            "socket PATH (default /run/taskwarden/feed; of other\n"
                                            "users than root $XDG_RUNTIME_DIR/taskwarden/feed)")
                                ->option_text("PATH")
                                ->check(must_fit(kPathMax));
  command.add_flag("--no-feed", options->no_feed, "Offer no verdicts")
      ->option_text(" ")
      ->excludes(feed);
  command.add_flag("--no-judge", options->off, "Give no verdicts");
}

bool start_verdicts(const VerdictOptions& options, const std::string& proc_root,
                    const PrintFilter* filter, const std::string& carried) {
  if (options.off) {
    return true;
  }
  // What a state that is saved takes goes back to the system at once.
  ::mallopt(M_MMAP_THRESHOLD, 128 << 10);
  verdicts = new Verdicts(options, filter);
  if (!options.record.empty() && !verdicts->record.open(options.record)) {
    say(verdicts->record.why());
    return false;
  }
  if (!options.no_feed) {
    const std::string own = options.feed.empty() ? own_feed_place() : "";
    make_own_folder(own, ::geteuid() == 0 ? 0755 : 0700);
    start_feed(options.feed.empty() ? own : options.feed);
  }
  Judging::Options judging;
  judging.places.proc_root = proc_root;
  judging.record = options.record.empty() ? nullptr : &verdicts->record;
  judging.state = state_path(options, proc_root);
  judging.standing = [](const std::vector<ToldVerdict>& all) { verdicts->stand(all); };
  judging.explain = verdict_explainer();
  judging.tell = [](const ToldVerdict& verdict) { verdicts->tell(verdict); };
  judging.after_pass = [](const Judging::Pass& pass) { verdicts->after_pass(pass); };
  const size_t end = carried.find('\n');
  if (end != carried.npos) {
    take_figures(carried.substr(0, end));
    judging.carried = carried.substr(end + 1);
  }
  verdicts->judging = std::make_unique<Judging>(judging);
  verdicts->judging->start();
  return true;
}

std::string carry_verdicts() {
  return verdicts != nullptr ? figures_line() + verdicts->judging->bytes() : "";
}

void end_verdicts() {
  if (verdicts == nullptr) {
    return;
  }
  if (verdicts->feed != nullptr) {
    ::unlink(verdicts->feed_place.c_str());
  }
  if (verdicts->processes == 0) {
    return;
  }
  verdicts->judging->save();
  const auto passed = std::chrono::steady_clock::now() - verdicts->begin;
  const auto count = [](State state) {
    return std::to_string(verdicts->counts[static_cast<size_t>(state)].load()) + " " +
           judge::state_name(state);
  };
  say("watched " + std::to_string(verdicts->processes.load()) + " processes for " +
      span_words(std::chrono::duration<double>(passed).count()) + "; leaks: " +
      count(State::kSuspected) + ", " + count(State::kConfirmed) + ", " + count(State::kUrgent));
}

}  // namespace host
