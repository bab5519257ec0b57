// Passes over a made process tree while its processes come, go, change their names and grow, and
// the clock jumps: after each the table is whole and every tagged block has one owner.
#include <set>

#include "blocks/tagged_block.h"
#include "interest/interest_list.h"
#include "support/world.h"
#include "target.h"

namespace {

constexpr int kFirstPid = 300, kPids = 16;

std::set<const void*> live_blocks;

void pass(World& w, double ms) {
  require(w.pass(ms).find("wrong") == std::string::npos);
  std::set<const void*> owned;
  for (const uint32_t pid : linked_pids(w.list)) {
    const tw_process_entry& slot = w[pid];
    for (void* block :
         {slot.divisions_block, slot.files_counter_block, slot.threads_counter_block}) {
      require(block == nullptr || (tw_check(block) != nullptr && owned.insert(block).second));
    }
  }
  require(owned == live_blocks);
}

void change(World& w, Bytes& input) {
  const int pid = kFirstPid + input.next() % kPids, what = input.next() % 4;
  const std::string file =
      std::to_string(pid) + input.one_of({"/status", "/cmdline", "/maps", "/smaps", "/fd"});
  if (what == 0) w.tree.remove(pid);
  if (what == 1) w.tree.remove(file);
  if (what == 2) w.tree.remove(file), w.tree.write(file, input.rest.substr(0, input.next()));
  if (what < 3) return;
  MadeProcess process = {
      .pid = pid,
      .name = input.one_of({"app", "app_b", "zygote", "zygote64", "<dummy 3", "\n"}),
      .ppid = input.one_of({1000, 0, 1, 2, kFirstPid, kFirstPid + 1}),
      .threads = input.next() % 8,
      .fds = input.next() % 16};
  process.rss = process.hwm = uint64_t{1000} << input.next() % 16;
  w.tree.put(process);
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
  [[maybe_unused]] static const bool prepared = (interest_builtin_add("_b"), true);
  World w;
  for (Bytes input{text}; !input.rest.empty();) {
    const uint8_t step = input.next();
    if (step < 128) change(w, input);
    if (step >= 128) pass(w, 1000.0 * static_cast<int8_t>(step + 64));
  }
  for (int pid = kFirstPid; pid < kFirstPid + kPids; ++pid) w.tree.remove(pid);
  pass(w, 0);
  require(w.list->count == 0 && live_blocks.empty());
}
