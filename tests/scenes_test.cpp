// Scenes: texts of commands, each followed by all that came of it, two blanks in front. A scene is
// run on a world of its own, and must come out as it is written. tests/scenes/ has them.
#include <android-base/stringprintf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "audit/audit_event_handler.h"
#include "audit/poll.h"
#include "audit/process_collector.h"
#include "inspect/maps.h"
#include "inspect/open_files.h"
#include "inspect/smaps.h"
#include "inspect/start_time.h"
#include "inspect/status.h"
#include "inspect/system/meminfo.h"
#include "inspect/system/slabinfo.h"
#include "inspect/threads.h"
#include "inspect/vma_desc.h"
#include "interest/interest_dump.h"
#include "interest/interest_list.h"
#include "interest/interest_mark.h"
#include "proctable/desc_field.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/suspicious_dump.h"
#include "proctable/table_view.h"
#include "proctable/zygote.h"
#include "support/row_file.h"
#include "support/telling.h"
#include "support/world.h"
#include "taskwarden/observers.h"
#include "taskwarden/taskwarden.h"

// The build routes the library's calls through here.
static bool no_blocks = false, no_links = false;
void* real_allocate(uint64_t size) __asm__("__real__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) __asm__("__wrap__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) {
  return no_blocks ? nullptr : real_allocate(size);
}
extern "C" ssize_t __real_readlinkat(int at, const char* path, char* to, size_t size);
extern "C" ssize_t __wrap_readlinkat(int at, const char* path, char* to, size_t size) {
  return no_links ? -1 : __real_readlinkat(at, path, to, size);
}

namespace {

using android::base::StringPrintf;
using D = tw_process_desc;

// Undoes decoded() for bytes that no text has, and for runs of more than 20.
std::string escaped(const std::string& text) {
  std::string shown;
  for (size_t i = 0; i < text.size(); ++i) {
    const size_t run = text.find_first_not_of(text[i], i) - i;
    if (text[i] != ' ' && run > 20 && run < text.size()) {
      shown += StringPrintf("<%c*%zu>", text[i], run), i += run - 1;
    } else if (isprint(text[i]) || text[i] == '\n' || text[i] == '\t') {
      shown += text[i];
    } else {
      shown += StringPrintf("\\x%02x", static_cast<unsigned char>(text[i]));
    }
  }
  return shown;
}

// A command and what it is about.
class Line {
 public:
  explicit Line(const std::string& line) : line_(line) {
    std::istringstream words(line);
    for (std::string word; words >> word;) words_.push_back(word);
  }
  std::string word(size_t i, const std::string& otherwise = "") const {
    return i < words_.size() ? decoded(words_[i]) : otherwise;
  }
  int64_t number(size_t i, int64_t otherwise = 0) const {
    return i < words_.size() ? std::stoll(words_[i]) : otherwise;
  }
  double real(size_t i) const { return std::stod(word(i, "0")); }
  int pid() const { return static_cast<int>(number(1)); }
  // What is behind the first `words` and a blank.
  std::string text(size_t words) const {
    size_t at = 0;
    while (words-- > 0 && at < line_.size())
      at = std::min(line_.find(' ', at), line_.size() - 1) + 1;
    return decoded(line_.substr(at));
  }

 private:
  const std::string line_;
  std::vector<std::string> words_;
};

// All rows of a table, at the end of the text that `to` is.
void show_table(void* to, const taskwarden_table* table) {
  auto& text = *static_cast<std::string*>(to);
  taskwarden_process row = {};
  for (row.size = sizeof(row); taskwarden_next_process(table, &row) == 1;) {
    text += StringPrintf("%s %x %d%c%d %d/%d %jd<%jd k%jd %d%d%d %jd\n", text_of(row.name).c_str(),
                         row.known, row.parent, row.state ? row.state : '-', row.threads,
                         row.open_files, row.descriptor_table, intmax_t(row.resident_kb),
                         intmax_t(row.peak_kb), intmax_t(row.kgsl_kb), row.is_watched,
                         row.is_interesting, row.is_kernel_task, intmax_t(row.start_time));
  }
  text += StringPrintf("%u processes, %u unreadable, pass %u.%u%s\n", table->processes,
                       table->unreadable, table->pass, table->slice,
                       table->is_complete ? " complete" : "");
  // A host that knows fewer members, too few, and one that begins behind all.
  taskwarden_process part = {};
  part.size = offsetof(taskwarden_process, known);
  EXPECT_EQ(taskwarden_next_process(table, &part), table->processes > 0);
  EXPECT_TRUE(part.known == 0 && part.size == offsetof(taskwarden_process, known));
  part.size = offsetof(taskwarden_process, known) - 1;
  EXPECT_EQ(taskwarden_next_process(table, &part), 0);
  part.size = sizeof(part);
  part.pid = 400;
  EXPECT_EQ(taskwarden_next_process(table, &part), 0);
}

class Scene : public testing::TestWithParam<std::string> {
 protected:
  // Behind what has come out so far.
  void say(const std::string& text) { said_ += w.told() + text; }

  void put(const Line& line) {
    MadeProcess p = {line.pid()};
    const std::map<std::string, int*> counts = {
        {"ppid", &p.ppid}, {"threads", &p.threads}, {"fds", &p.fds}, {"size", &p.fd_size}};
    const std::map<std::string, uint64_t*> sizes = {
        {"rss", &p.rss}, {"hwm", &p.hwm}, {"kgsl", &p.kgsl}};
    for (size_t i = 2; line.word(i) != ""; ++i) {
      const std::string word = line.word(i), key = word.substr(0, word.find('='));
      const std::string value = word.substr(key.size() + 1);
      if (counts.contains(key)) *counts.at(key) = std::stoi(value);
      if (sizes.contains(key)) *sizes.at(key) = std::stoull(value);
      if (key == "name") p.name = value;
      if (key == "arg0") p.cmdline = value;
      if (key == "state") p.state = value[0];
    }
    w.tree.put(p);
  }
  void status(const std::string& text) {
    tw_process_desc d = {"o", 1, '?', 5, 2, 3, 4, 0, 0, 0, 0, 0, 0};
    pid_of_zygote = pid_of_zygote64 = 0;
    if (text != "-") w.tree.write("3/status", text);
    tw_process_check_status(3, &d);
    say(StringPrintf("%s %c %d %d %jd %jd %d zygotes %d %d\n", d.name, d.state, d.ppid, d.fd_size,
                     intmax_t(d.vm_hwm_kb), intmax_t(d.vm_rss_kb), d.threads, pid_of_zygote,
                     pid_of_zygote64));
  }
  void meminfo(const std::string& text) {
    tw_meminfo_t m = {9, 9, 9, 9};
    if (text != "-") w.tree.write("meminfo", text);
    w.clock.steps_ms = {0, 7};
    const unsigned ms = tw_system_check_meminfo(&m);
    say(StringPrintf("%d %d %d %d in %u ms\n", m.mem_total_kb, m.mem_free_kb, m.mem_available_kb,
                     m.sunreclaim_kb, ms));
  }
  void maps(const std::string& text) {
    tw_process_desc d = {"", 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 0};
    if (text != "-") w.tree.write("9/maps", text);
    const int areas = tw_process_check_maps(9, &d);
    say(StringPrintf("%d: %ju %ju %ju %ju %ju\n", areas, d.vss_dalvik_kb, d.vss_heap_kb,
                     d.vss_ashmem_kb, d.vss_kgsl_kb, d.vss_dmabuf_kb));
  }
  void smaps(const std::string& text) {
    vma_division_t divisions[VMA_DIVISION_COUNT];
    std::fill_n(divisions, VMA_DIVISION_COUNT, vma_division_t{9, 9, 9, 9});
    if (text != "-") w.tree.write("9/smaps", text);
    say(StringPrintf("%jd:", intmax_t(tw_process_check_smaps(9, divisions))));
    for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
      const vma_division_t& d = divisions[i];
      if (d == vma_division_t{}) continue;
      say(StringPrintf(" %s %jd %jd %jd in %u", vma_division_typename(VMA_DIVISION_TYPE(i)),
                       intmax_t(d.vss_kb), intmax_t(d.rss_kb), intmax_t(d.pss_kb), d.vma_count));
    }
    say("\n");
  }
  void slabinfo(int rows, const std::string& text) {
    static tw_slabinfo_t census;
    memset(&census, 'x', sizeof(census));
    if (text != "-") w.tree.write("slabinfo", text);
    w.clock.steps_ms = {0, 7};
    say(StringPrintf("%u ms\n", tw_system_check_slabinfo(&census)));
    tw_slabinfo_dump(&census, rows);
  }
  void division(const std::string& path) {
    vma_desc_t vma = {};
    strcpy(vma.path, path.c_str());
    vma_division_t divisions[VMA_DIVISION_COUNT];
    const auto index = match_vma_division(divisions, vma) - divisions;
    say(StringPrintf("%s\n", vma_division_typename(VMA_DIVISION_TYPE(index))));
  }

  void list(const StringCounter& counter) {
    for (const auto& [name, count] : counter) say(StringPrintf("%s=%d ", name.c_str(), count));
    say("\n");
  }
  // An inventory into a counter that has something already, and what grew since the last.
  void inventory(bool of_files, int pid) {
    StringCounter counter, &last = last_[of_files];
    counter.add("before", 2);
    tw_process_desc desc = {};
    desc.open_files = -1;
    if (of_files) tw_process_check_openfiles(pid, &desc, &counter);
    if (!of_files) tw_process_check_threads(pid, &counter);
    if (of_files) say(StringPrintf("%d in all\n", desc.open_files));
    list(counter), say("+ "), list(StringCounter_diff(&last, &counter));
    last = counter;
  }

  // The cycle over some kernel tasks, up to a number of rests, from a time on.
  void cycle(int processes, size_t rests, double start_ms) {
    const auto steps = std::exchange(w.clock.steps_ms, {});
    fresh_table();
    w.told(), w.clock.steps_ms = steps;
    w.tree.write("meminfo", "MemFree: 2000000 kB\n");
    for (int i = 0; i < processes; ++i) w.tree.put({.pid = 300 + i, .ppid = 2});
    w.clock.us = 0, w.clock.rests_ms.clear(), w.clock.advance_ms(start_ms);
    w.clock.on_rest = [&] {
      say(std::to_string(w.clock.rests_ms.back()) + " ms of rest\n");
      if (w.clock.rests_ms.size() == rests) w.tree.remove("");
    };
    EXPECT_EQ(taskwarden_start(), -1);
    EXPECT_TRUE(w.clock.steps_ms.empty());
  }

  // The slot of a process that the table does not have.
  tw_process_entry& slot(uint32_t pid, const std::string& name) {
    tw_process_entry& entry = slots_.at(pid);
    entry.pid = pid;
    snprintf(entry.desc.name, sizeof(entry.desc.name), "%s#%u", name.c_str(), pid);
    return entry;
  }
  // Polls it with one number at a level, another number being 777.
  void level(const std::string& field, uint64_t level, uint64_t current) {
    const std::map<std::string, DescField> fields = {
        {"rss", &D::vm_rss_kb},        {"heap", &D::vss_heap_kb}, {"dalvik", &D::vss_dalvik_kb},
        {"ashmem", &D::vss_ashmem_kb}, {"kgsl", &D::vss_kgsl_kb}, {"dmabuf", &D::vss_dmabuf_kb},
        {"threads", &D::threads},      {"files", &D::open_files}, {"size", &D::fd_size}};
    const DescField current_of = fields.at(field);
    const DescField level_of = field == "rss" ? DescField(&D::vm_hwm_kb) : current_of;
    tw_process_entry& entry = slots_[7] = {};
    slot(7, "zygote").desc.vm_hwm_kb = 777;
    level_of.set(&entry.baseline, level), current_of.set(&entry.desc, current);
    tw_event_poll_process_entry(w.list, &entry);
    say(std::to_string(level_of.get(entry.baseline)) + " is kept\n");
    raise(Event_ProcExited, 7);
  }
  void raise(int32_t id, uint32_t pid) {
    AuditEvent event = {.id = id, .source = AUDIT_SOURCE_PROCENTRY, .data = &slots_.at(pid)};
    EXPECT_TRUE(AuditEventHandler().onEventIncoming(&event));
  }
  // Offers one that grows to a size; tells the ranks then.
  void offer(const Line& line) {
    tw_process_entry& entry = slot(static_cast<uint32_t>(line.pid()), line.word(4, "p"));
    entry.desc.vm_rss_kb = entry.baseline.vm_hwm_kb = static_cast<uint64_t>(line.number(2));
    entry.desc.ppid = static_cast<int32_t>(line.number(3, 1));
    tw_event_poll_process_entry(w.list, &entry);
    for (const ProcessCollector* c : {w.list->runtime_collector, w.list->native_collector}) {
      if (c->members.empty()) continue;
      say(StringPrintf("%s:", c->name));
      for (const tw_process_entry* member : c->members) say(StringPrintf(" %u", member->pid));
      for (const auto& [came, went] : c->changes)
        say(StringPrintf(" +%u-%u", came->pid, went ? went->pid : 0));
      say("\n");
    }
  }

  World w;
  std::string said_;
  StringCounter last_[2];
  tw_process_entry* cursor_ = nullptr;
  std::vector<tw_process_entry> slots_ = std::vector<tw_process_entry>(500);
  using L = const Line&;
  const std::map<std::string, std::function<void(L)>> commands_ = {
      {"put", [&](L l) { put(l); }},
      {"write", [&](L l) { w.tree.write(l.word(1), l.text(2)); }},
      {"link", [&](L l) { w.tree.link(l.word(1), l.text(2)); }},
      {"remove", [&](L l) { w.tree.remove(l.word(1)); }},
      {"scan", [&](L) { say(std::to_string(tw_process_list_refresh(w.list)) + " ms\n"); }},
      {"pass", [&](L l) { said_ += w.pass(static_cast<double>(l.number(1))); }},
      {"pids",
       [&](L) {
         for (const uint32_t pid : linked_pids(w.list)) say(std::to_string(pid) + "\n");
       }},
      {"steps",
       [&](L l) {
         for (size_t i = 1; l.word(i) != ""; ++i) w.clock.steps_ms.push_back(l.real(i));
       }},
      {"cycle", [&](L l) { cycle(l.pid(), size_t(l.number(2)), l.real(3)); }},
      {"slice",
       [&](L l) {
         const int spent = tw_process_list_iterate(w.list, cursor_ ? cursor_ : w.list->head,
                                                   int(l.number(1)), &cursor_);
         say(StringPrintf("%d ms, then %u, %u left\n", spent, cursor_ ? cursor_->pid : 0,
                          w.list->remaining));
       }},
      {"end",
       [&](L l) {
         w.list->remaining = uint32_t(l.number(1)), cursor_ = &w[0];
         say(StringPrintf("%d ms\n", tw_process_list_iterate(w.list, nullptr, 60, &cursor_)));
         EXPECT_EQ(std::exchange(cursor_, nullptr), &w[0]);
       }},
      {"row", [&](L l) { say(w.row(static_cast<uint32_t>(l.pid())) + "\n"); }},
      {"watched",
       [&](L) {
         EXPECT_EQ(taskwarden_observe_table(show_table, &said_, TASKWARDEN_EVERY_PASS), 0);
         said_ += w.pass(3000);
         tw_show_table_after_slice(w.list, {9, 2, 5, 1, true});
         taskwarden_observe_table(nullptr, nullptr, 0);
       }},
      {"start", [&](L l) { say(std::to_string(tw_parse_start_time(l.text(1))) + "\n"); }},
      {"counts",
       [&](L) {
         say(StringPrintf("%u native, %u runtime, %u kernel\n", w.list->native_count,
                          w.list->runtime_count, w.list->kthread_count));
       }},
      {"unranked",
       [&](L) { w.list->native_collector->capacity = w.list->runtime_collector->capacity = 0; }},
      {"suspicious", [&](L) { tw_process_list_dump(w.list); }},
      {"interesting", [&](L) { interested_proc_dumpall(w.list); }},
      {"property",
       [&](L l) { setenv("TW_STATS_INTEREST", l.text(1).c_str(), 1), interest_builtin_load(); }},
      {"interest", [&](L l) { interest_builtin_add(l.text(1).c_str()); }},
      {"mark",
       [&](L l) {
         tw_process_entry& entry = w[static_cast<size_t>(l.pid())];
         interested_proc_set(&entry, l.number(2) != 0);
         say(entry.interested ? "interesting\n" : "not\n");
       }},
      {"status", [&](L l) { status(l.text(1)); }},
      {"cmdline", [&](L l) { w.tree.write("3/cmdline", l.text(1)), status("Name: p q\n"); }},
      {"meminfo", [&](L l) { meminfo(l.text(1)); }},
      {"maps", [&](L l) { maps(l.text(1)); }},
      {"smaps", [&](L l) { smaps(l.text(1)); }},
      {"summary", [&](L l) { tw_process_smaps_dump(l.pid()); }},
      {"slabinfo", [&](L l) { slabinfo(l.pid(), l.text(2)); }},
      {"division",
       [&](L l) {
         for (size_t i = 1; l.word(i) != ""; ++i) division(l.word(i));
       }},
      {"files", [&](L l) { inventory(true, l.pid()); }},
      {"threads", [&](L l) { inventory(false, l.pid()); }},
      {"nolinks", [&](L l) { no_links = l.number(1); }},
      {"noblocks", [&](L l) { no_blocks = l.number(1); }},
      {"memory",
       [&](L l) {
         tw_meminfo_t m = {0, int(l.number(1)), int(l.number(2)), int(l.number(3))};
         tw_event_poll_meminfo(&m);
       }},
      {"tasks",
       [&](L l) {
         w.list->count = uint32_t(l.number(1)), w.list->native_count = uint32_t(l.number(2));
         w.list->runtime_count = uint32_t(l.number(3)),
         w.list->kthread_count = uint32_t(l.number(4));
         tw_event_poll_process_list(w.list);
         w.list->count = 0;
       }},
      {"level", [&](L l) { level(l.word(1), uint64_t(l.number(2)), uint64_t(l.number(3))); }},
      {"grown",
       [&](L l) {
         D& d = slot(uint32_t(l.pid()), "app").desc;
         d.threads = 99, d.open_files = 98, d.vm_rss_kb = 5000, d.fd_size = 97;
         raise(int32_t(l.number(2)), uint32_t(l.pid()));
       }},
      {"offer", [&](L l) { offer(l); }},
      {"freed", [&](L l) { slots_.at(size_t(l.pid())) = {}; }},
      {"zygotes", [&](L l) { pid_of_zygote = l.pid(), pid_of_zygote64 = int(l.number(2)); }},
      {"marked",
       [&](L) {
         for (const auto& s : slots_) say(s.interested ? std::to_string(s.pid) + "\n" : "");
       }},
  };
};

TEST_P(Scene, ComesOutAsWritten) {
  std::ifstream file(TASKWARDEN_SCENES + GetParam() + ".txt");
  std::string written, now;
  for (std::string line; std::getline(file, line); written += line + "\n") {
    if (line.starts_with("  ")) continue;
    now += line + "\n";
    if (line.empty() || line[0] == '#') continue;
    const Line command(line);
    const auto known = commands_.find(command.word(0));
    ASSERT_NE(known, commands_.end()) << line;
    known->second(command);
    say("");
    std::istringstream told(std::exchange(said_, {}));
    for (std::string came; std::getline(told, came);) now += "  " + escaped(came) + "\n";
  }
  EXPECT_EQ(now, written);
  if (now != written) std::ofstream(GetParam() + ".now") << now;
}

INSTANTIATE_TEST_SUITE_P(All, Scene,
                         testing::Values("closer", "cycle", "events", "handler", "inventories",
                                         "listings", "maps", "meminfo", "pass", "ranking", "scan",
                                         "slabinfo", "slices", "status", "table"),
                         [](const auto& name) { return name.param; });

}  // namespace
