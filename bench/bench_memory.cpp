// The memory maps of one process of 2000 areas: maps to five totals, smaps to the 18 divisions, of
// a live process and of files with the names that areas have on Android.
#include <string.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "child_table.h"
#include "inspect/maps.h"
#include "inspect/smaps.h"
#include "made_files.h"
#include "measure.h"
#include "platform/proc_root.h"
#include "population.h"
#include "raw_calls.h"
#include "transcription.h"

namespace {

constexpr int kAreas = 2000;

struct MapsResult {
  tw_process_desc desc = {};
  int32_t areas = 0;
  bool operator==(const MapsResult& other) const {
    return areas == other.areas && desc.vss_dalvik_kb == other.desc.vss_dalvik_kb &&
           desc.vss_heap_kb == other.desc.vss_heap_kb &&
           desc.vss_ashmem_kb == other.desc.vss_ashmem_kb &&
           desc.vss_kgsl_kb == other.desc.vss_kgsl_kb &&
           desc.vss_dmabuf_kb == other.desc.vss_dmabuf_kb;
  }
};

struct SmapsResult {
  vma_division_t divisions[VMA_DIVISION_COUNT] = {};
  uint64_t rss_kb = 0;
  bool operator==(const SmapsResult&) const = default;
};

// The one process that is looked at: either made, which decides where the readers look, or live.
class Process {
 public:
  explicit Process(bool made) {
    if (made) {
      files_.emplace(kAreas);
      pid_ = MadeFiles::kPid;
    } else {
      const ChildShape shape = {.areas = kAreas};
      child_ = std::make_unique<Population>(std::span(&shape, 1));
      pid_ = child_->pids()[0];
    }
    const std::string directory = tw_proc_root() + ("/" + std::to_string(pid_));
    maps_path_ = directory + "/maps";
    smaps_path_ = directory + "/smaps";
    maps_ = maps(transcription::maps);
    smaps_ = smaps(transcription::smaps);
    require(maps_.areas >= kAreas && smaps_.rss_kb > 0, "the process has too few areas");
    require(maps(tw_process_check_maps) == maps_ && smaps(tw_process_check_smaps) == smaps_,
            "the transcription and the library differ on the memory of a process");
  }

  template <typename Reader>
  MapsResult maps(Reader reader) const {
    MapsResult result;
    result.areas = reader(pid_, &result.desc);
    return result;
  }
  template <typename Reader>
  SmapsResult smaps(Reader reader) const {
    SmapsResult result;
    result.rss_kb = reader(pid_, result.divisions);
    if (child_ != nullptr) {
      // How many share a live page changes with every program that comes and goes.
      for (vma_division_t& division : result.divisions) {
        division.pss_kb = division.pss_kb <= division.rss_kb ? 0 : 1;
      }
    }
    return result;
  }
  template <typename Reader>
  bool maps_right(Reader reader) const {
    return maps(reader) == maps_;
  }
  template <typename Reader>
  bool smaps_right(Reader reader) const {
    return smaps(reader) == smaps_;
  }
  size_t areas() const { return static_cast<size_t>(maps_.areas); }
  const std::string& maps_path() const { return maps_path_; }
  const std::string& smaps_path() const { return smaps_path_; }

 private:
  std::optional<MadeFiles> files_;
  std::unique_ptr<Population> child_;
  int pid_;
  std::string maps_path_, smaps_path_;
  MapsResult maps_;
  SmapsResult smaps_;
};

Process& process(const std::string& kind) {
  static std::string current;
  static std::unique_ptr<Process> made;
  if (current != kind) {
    made.reset();
    made = std::make_unique<Process>(kind == "made");
    current = kind;
  }
  return *made;
}

void add(const std::string& kind) {
  const auto enter = [&](const std::string& name, auto work) {
    benchmark::RegisterBenchmark(name.c_str(), [kind, work](benchmark::State& state) {
      const Process& p = process(kind);
      measure(state, p.areas(), [&] { return work(p); });
    })->Unit(benchmark::kMicrosecond);
  };
  enter("maps/" + kind + "/ours",
        [](const Process& p) { return p.maps_right(tw_process_check_maps); });
  enter("maps/" + kind + "/raw", [](const Process& p) { return raw_read(p.maps_path()); });
  enter("maps/" + kind + "/transcription",
        [](const Process& p) { return p.maps_right(transcription::maps); });
  enter("smaps/" + kind + "/ours",
        [](const Process& p) { return p.smaps_right(tw_process_check_smaps); });
  enter("smaps/" + kind + "/raw", [](const Process& p) { return raw_read(p.smaps_path()); });
  enter("smaps/" + kind + "/transcription",
        [](const Process& p) { return p.smaps_right(transcription::smaps); });
}

}  // namespace

int main(int argc, char** argv) {
  prepare_library();
  add("live");
  add("made");
  return run_benchmarks(argc, argv);
}
