// What a saved state of the judge holds, behind a seal that fits: damaged in a way that no checksum
// shows.
#include "judge/saved_state.h"
#include "judge/sealed.h"
#include "target.h"

void fuzz(std::string_view text) {
  const std::string sealed = judge::seal(judge::kStateVersion, text);
  const auto check = [](const judge::Verdict& verdict) {
    require(verdict.state != judge::State::kNone && verdict.since <= verdict.time);
    require(!judge::evidence_clause(verdict.evidence).empty());
  };
  judge::Judge judge(check);
  if (load(sealed, "boot", &judge) != nullptr) {
    require(judge.processes() == 0);
    return;
  }
  require(save(judge, "boot") == sealed);
  judge.for_each_told(check);
  judge::Sample sample{.time = 5000, .pid = 7, .start = 1, .name = "x", .memory_limit_kb = 1 << 20};
  for (; sample.time < 20000; sample.time += 60) {
    sample.resident_kb = sample.threads = sample.open_files = static_cast<int64_t>(sample.time);
    judge.take(sample);
  }
}
