// Passes over a made process tree while its processes come, go, change their names and grow, and
// the clock jumps: after each step the table is whole and every tagged block has one owner.
#include <set>

#include "audit/process_collector.h"
#include "blocks/tagged_block.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/captured_output.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"
#include "support/own_network.h"
#include "target.h"

namespace {

constexpr int kFirstPid = 300, kPids = 16;

std::set<const void*> live_blocks;

// The input byte by byte; zeros once it is used up.
struct Bytes {
  std::string text() {
    std::string taken(rest.substr(0, next()));
    rest.remove_prefix(taken.size());
    return taken;
  }
  uint8_t next() {
    const char byte = rest.empty() ? '\0' : rest[0];
    rest.remove_prefix(!rest.empty());
    return static_cast<uint8_t>(byte);
  }
  template <typename T, size_t N>
  const T& one_of(const T (&choices)[N]) {
    return choices[next() % N];
  }
  std::string_view rest;
};

void check(const tw_process_list& list) {
  static constexpr char kFree[sizeof(tw_process_entry)] = {};
  const std::vector<uint32_t> linked = linked_pids(&list);
  std::set<const void*> owned;
  for (uint32_t pid = kFirstPid - 1; pid <= kFirstPid + kPids; ++pid) {
    const tw_process_entry& slot = list.entries[pid];
    require(slot.pid == 0 ? memcmp(&slot, kFree, sizeof(kFree)) == 0 : slot.pid == pid);
    require(std::count(linked.begin(), linked.end(), pid) == (slot.pid != 0));
    for (const void* block :
         {slot.divisions_block, slot.files_counter_block, slot.threads_counter_block}) {
      require(block == nullptr || (tw_check(block) != nullptr && owned.insert(block).second));
    }
  }
  require(owned == live_blocks);
  for (const ProcessCollector* ranking : {list.runtime_collector, list.native_collector}) {
    const std::set<const void*> ranked(ranking->members.begin(), ranking->members.end());
    require(ranked.size() == ranking->members.size() && ranked.size() <= 5);
  }
}

void change(MadeTree& tree, FakeClock& clock, Bytes& input) {
  static const std::string kFiles[] = {"/status", "/cmdline",     "/maps",
                                       "/smaps",  "/task/1/comm", "/fd"};
  const int pid = kFirstPid + input.next() % kPids;
  const std::string folder = std::to_string(pid);
  const int what = input.next() % 5;
  if (what == 0) {
    MadeProcess process = {
        .pid = pid,
        .name = input.one_of({"app", "app_b", "zygote", "zygote64", "<dummy 3", "\n"}),
        .ppid = input.one_of({1000, 0, 1, 2, kFirstPid, kFirstPid + 1}),
        .threads = input.next() % 8,
        .fds = input.next() % 16};
    process.rss = process.hwm = uint64_t{1000} << input.next() % 16;
    tree.put(process);
  } else if (what == 1) {
    tree.remove(pid);
  } else if (what == 2) {
    tree.remove(folder + input.one_of(kFiles));
  } else if (what == 3) {
    const std::string& file = input.one_of(kFiles);
    tree.write(folder + file, input.text());
  } else {
    clock.advance_ms(int64_t{1000} * static_cast<int8_t>(input.next()));
  }
}

}  // namespace

// The library's calls come here (see --wrap in ld(1)).
extern "C" {
void* __real__Z11tw_allocatem(uint64_t size);
tw_alloc_hdr* __real__Z10tw_releasePv(void* block);

void* __wrap__Z11tw_allocatem(uint64_t size) {
  return const_cast<void*>(*live_blocks.insert(__real__Z11tw_allocatem(size)).first);
}
tw_alloc_hdr* __wrap__Z10tw_releasePv(void* block) {
  require(live_blocks.erase(block) == 1);
  return __real__Z10tw_releasePv(block);
}
}

void fuzz(std::string_view text) {
  [[maybe_unused]] static const bool prepared = (own_network(), interest_builtin_add("_b"), true);
  CapturedOutput output;
  MadeTree tree;
  FakeClock clock;
  tw_process_list* list = fresh_table();
  tw_process_entry* cursor = nullptr;
  const auto slice = [&](int32_t budget_ms) {
    if (cursor == nullptr) {
      require(tw_process_list_refresh(list) >= 0);
      cursor = list->head;
    }
    tw_process_list_iterate(list, cursor, budget_ms, &cursor);
    check(*list);
  };
  for (Bytes input{text}; !input.rest.empty();) {
    const uint8_t step = input.next();
    if (step < 128) {
      change(tree, clock, input);
    } else {
      clock.steps_ms.assign(8, step % 4);  // what each visit takes
      slice(step / 4 % 8);
    }
  }
  for (int pid = kFirstPid; pid < kFirstPid + kPids; ++pid) tree.remove(pid);
  do {
    slice(0);
  } while (list->count != 0 || cursor != nullptr);
  require(live_blocks.empty());
  require(output.log().find("something goes wrong") == std::string::npos);
}
