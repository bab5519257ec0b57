// Samples as comma-separated values, read in pieces of any size; and the judge over them.
#include <vector>

#include "host/judge/sample_reader.h"
#include "host/judge/verdict_json.h"
#include "judge/judge.h"
#include "target.h"

// Everything that comes of `text` when it arrives `piece` bytes at a time.
static std::string reading(std::string_view text, size_t piece) {
  size_t at = 0;
  host::SampleReader reader([&](char* buffer, size_t size) {
    const size_t got = text.copy(buffer, std::min(size, piece), at);
    at += got;
    return got;
  });
  std::string seen;
  if (!reader.begin()) return reader.problem();
  judge::Judge judge([&](const judge::Verdict& verdict) {
    require(verdict.state != judge::State::kNone && verdict.since <= verdict.time);
    require(!judge::evidence_clause(verdict.evidence).empty());
    seen += host::verdict_json(verdict);
  });
  uint64_t line = 1;
  double last = -HUGE_VAL;
  for (judge::Sample sample; reader.next(&sample);) {
    require(reader.line() > line);
    line = reader.line();
    seen += std::to_string(line) + reader.problem();
    if (!reader.problem().empty()) continue;
    require(sample.pid > 0 && sample.time >= last && sample.resident_kb >= judge::kUnknown);
    last = sample.time;
    seen += std::to_string(sample.resident_kb) + std::string(sample.name);
    judge.take(sample);
  }
  require(at == text.size());
  return seen;
}

void fuzz(std::string_view text) {
  const std::string whole = reading(text, SIZE_MAX);
  require(whole == reading(text, 1) && whole == reading(text, 5));
}
