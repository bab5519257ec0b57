#include "leaks/recorded.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <utility>

#include "host/judge/sample_reader.h"

namespace leaks {

std::vector<Trace> read_recorded(const std::string& path, double stretch) {
  std::ifstream file(path, std::ios::binary);
  host::SampleReader reader([&](char* buffer, size_t size) {
    file.read(buffer, static_cast<std::streamsize>(size));
    return static_cast<size_t>(file.gcount());
  });
  if (!reader.begin()) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), reader.problem().c_str());
    std::exit(1);
  }
  std::map<std::pair<int32_t, int64_t>, Trace> traces;
  for (judge::Sample sample; reader.next(&sample);) {
    Trace& trace = traces[{sample.pid, sample.start}];
    trace.kind = sample.name;
    trace.leaks = sample.name.ends_with("-leaking");
    trace.points.push_back({sample.time * stretch, sample.resident_kb, sample.swap_kb,
                            sample.threads, sample.open_files});
  }
  std::vector<Trace> all;
  for (auto& [identity, trace] : traces) {
    all.push_back(std::move(trace));
  }
  return all;
}

}  // namespace leaks
