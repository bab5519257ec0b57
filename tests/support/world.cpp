#include "support/world.h"

#include <android-base/stringprintf.h>

#include <climits>
#include <cstring>
#include <regex>
#include <stdexcept>
#include <utility>

#include "audit/audit_event_manager.h"
#include "audit/audit_initialize.h"
#include "audit/process_collector.h"
#include "platform/proc_root.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "proctable/zygote.h"
#include "taskwarden/taskwarden.h"

tw_process_list* fresh_table() {
  if (AuditEventManager::getInstance()->hubs.empty()) tw_audit_initialize();
  tw_process_list* list = tw_process_list_create();
  for (ProcessCollector* ranking : {list->runtime_collector, list->native_collector}) {
    *ranking = ProcessCollector(ranking->name);
  }
  list->native_count = list->runtime_count = list->kthread_count = 0;
  list->remaining = list->count;
  const std::string root = tw_proc_root();
  taskwarden_set_proc_root("/nowhere");  // where no process is alive any more
  tw_process_entry* cursor = nullptr;
  tw_process_list_iterate(list, list->head, INT_MAX, &cursor);
  taskwarden_set_proc_root(root.c_str());
  pid_of_zygote = pid_of_zygote64 = 0;
  return list;
}

std::vector<uint32_t> linked_pids(const tw_process_list* list) {
  std::vector<uint32_t> pids;
  for (auto* e = list->head; e != nullptr && pids.size() <= list->count; e = e->next) {
    pids.push_back(e->pid);
    if (e != &list->entries[e->pid] || (e->next != nullptr && e->next->prev != e)) {
      throw std::logic_error("broken at pid " + std::to_string(e->pid));
    }
  }
  if (pids.size() != list->count) throw std::logic_error("not as many linked as counted");
  return pids;
}

World::World(std::initializer_list<MadeProcess> processes, const char* root)
    : tree(processes), list((taskwarden_set_proc_root(root), fresh_table())) {
  for (const auto& [source, hub] : AuditEventManager::getInstance()->hubs) {
    hub->listeners.resize(1);  // the handler, which each start adds again
    hub->listeners.push_back(this);
  }
  taskwarden_set_output(take, this);
}

World::~World() {
  taskwarden_set_output(nullptr, nullptr);
  for (const auto& [source, hub] : AuditEventManager::getInstance()->hubs) {
    std::erase(hub->listeners, this);
  }
}

std::string World::told() {
  append("");
  // Texts that come often, to the letter, and what stands for them.
  static const std::pair<std::regex, const char*> kShort[] = {
      {std::regex("\n-{55}\n"), "="},
      {std::regex("(=\\w+)\n-> audit evnet: "), "$1 "},
      {std::regex("(=\\w+)\n-> audit evnet by proc (\\d+) \"([^\"\n]*)\": "), "$1 $2 $3 "},
      {std::regex("=-> Update process'RSS rank of \"(.*)\":\n"), "=rank $1\n"},
      {std::regex("-> There're (\\d+) running processes:\n\t KThread: (\\d+), Native : (\\d+), "
                  "Runtime: (\\d+)\n"),
       "all $1 k $2 n $3 r $4\n"},
      {std::regex("Dump threads' map of proc (\\d+), (\\d+) kinds of threads\nAnd, only the thread "
                  "which is more than 1 will be list:\n"),
       "threads of $1 $2\n"},
      {std::regex("Dump openfiles' map of proc (\\d+), (\\d+) kinds of files\nAnd, only the file "
                  "opened more than 10 will be list:\n"),
       "files of $1 $2\n"},
      {std::regex("E stats\\|>> failed to parse the pair: \"([^\"]*)\"\nE stats\\|>> failed to get "
                  "(.*)!!\n"),
       "unpaired \"$1\" $2\n"},
      {std::regex("E stats\\|-> failed to parse \"([^\"]*)\" of proc (\\d+) as a vma's beginning: "
                  "(-?\\d+)\n"),
       "no area of $2 \"$1\" $3\n"},
      {std::regex(">> failed to open proc (\\d+)'s (\\w+)!!\n"), "no $1/$2\n"}};
  std::unique_lock lock(mutex_);
  std::string told = std::exchange(told_, {});
  lock.unlock();
  for (const auto& [text, brief] : kShort) told = std::regex_replace(told, text, brief);
  return told;
}

std::string World::pass(double ms) {
  clock.advance_ms(ms);
  tw_process_list_refresh(list);
  for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, INT_MAX, &at);
  linked_pids(list);
  return told();
}

std::string World::row(uint32_t pid) const {
  const tw_process_entry& e = list->entries[pid];
  const tw_process_desc& d = e.desc;
  if (memcmp(&e, list->entries, sizeof(e)) == 0) return "free";  // as slot 0 is
  const auto since = [&](int64_t time) { return int(clock.us / 1000000 - time); };
  return android::base::StringPrintf(
      "%s %c%d %d/%d/%d %lu/%lu k%lu %d,%d %s%s%s%s%s", d.name, d.state, d.ppid, d.threads,
      d.open_files, d.fd_size, d.vm_rss_kb, d.vm_hwm_kb, d.vss_kgsl_kb, since(e.identity_time),
      since(e.inspected_time), e.interested ? "i" : "", e.baseline_taken ? "b" : "",
      e.divisions_block ? "d" : "", e.files_counter_block ? "f" : "",
      e.threads_counter_block ? "t" : "");
}

bool World::onEventIncoming(AuditEvent* event) {
  std::string note = "[" + std::to_string(event->id);
  if (event->source == AUDIT_SOURCE_PROCENTRY) {
    const auto& entry = *static_cast<const tw_process_entry*>(event->data);
    const bool keeps =
        entry.divisions_block || entry.files_counter_block || entry.threads_counter_block;
    note += std::string(" ") + entry.desc.name + (keeps ? "+" : "");
    if (event->id == Event_ProcExited && (entry.next || entry.prev)) note += " still linked";
    if (event->id == Event_ProcRenamed) note += " now " + row(entry.pid);
  }
  append(note + "]\n");
  on_event(event);
  return true;
}

void World::take(void* self, int output, const char* tag, const char* text, size_t length) {
  World& own = *static_cast<World*>(self);
  std::string shown(text, length);
  if (output == TASKWARDEN_OUTPUT_LOG) {
    // The steps of sending are told by the record that arrives.
    if (tag == nullptr && (shown.starts_with("socket ") || shown.ends_with("connectting"))) return;
    const std::string area = tag != nullptr ? tag : "";
    shown = "E " + (area.starts_with("taskwarden ") ? area.substr(11) : "(" + area + ")") + "|" +
            shown + (shown.ends_with('\n') ? "" : "\\\n");
  }
  own.append(shown);
  if (output == TASKWARDEN_OUTPUT_REPORT) own.on_report(shown);
}

void World::append(std::string_view text) {
  const std::lock_guard lock(mutex_);
  for (std::string record; (record = records_.next(0)) != "(nothing)";) {
    told_ += "@" + record.substr(0, record.find('\0')) + (record.ends_with('\0') ? "\n" : "!");
  }
  told_ += text;
}
