// Polls over slots with any names and numbers, whose inventories are made up as well: what the log
// says of the events of a poll follows from their data alone, to the letter, and each record that
// was sent belongs to one of them.
#include <sys/types.h>

#include <cstdio>
#include <map>
#include <vector>

#include "audit/event_ids.h"
#include "audit/poll.h"
#include "inspect/system/meminfo.h"
#include "support/made_tree.h"
#include "support/telling.h"
#include "support/world.h"
#include "target.h"
#include "taskwarden/taskwarden.h"

namespace {

constexpr uint32_t kFirstPid = 300, kPids = 8;
constexpr size_t kNames = 64;

// Of what the processes seem to hold: the descriptor or thread number N is names[N].
std::vector<std::string> names;

// What came of the poll under way.
struct Told {
  std::string log, raised, explained;
  std::multimap<std::string, int64_t> sent, records;
} told;
bool service_answers = true;

std::string record_of(const char* event, int64_t pid) {
  return std::string(event) + "@" + std::to_string(pid);
}

void take_event(void* /*context*/, const taskwarden_event* event) {
  const EventTexts texts = texts_of(*event);
  told.raised += texts.raised;
  told.explained += texts.explained;
  if (event->record != TASKWARDEN_RECORD_NONE) {
    require((event->record == TASKWARDEN_RECORD_SENT) == service_answers);
    told.records.emplace(record_of(event->kind->name, event->pid), event->after);
  }
}

void take_output(void* /*context*/, int output, const char* /*tag*/, const char* text,
                 size_t length) {
  if (output == TASKWARDEN_OUTPUT_REPORT) told.log.append(text, length);
}

template <typename Poll>
void check(Bytes& input, Poll poll) {
  told = {};
  service_answers = input.next() % 2 == 0;
  poll();
  require(told.log == told.raised + told.explained);
  require(told.sent == told.records);
}

int64_t number(Bytes& input) {
  int64_t value = 0;
  const size_t width = input.one_of<size_t>({1, 1, 2, 4, 8});
  const std::string_view bytes = input.take(width);
  memcpy(&value, bytes.data(), bytes.size());
  return value;
}

std::string text(Bytes& input) {
  const std::string_view bytes = input.take(input.next());
  return std::string(bytes.substr(0, bytes.find('\0')));
}

// A few new names, each often.
void rename_inventory(Bytes& input) {
  names.clear();
  for (size_t kinds = input.next() % 8; kinds > 0; --kinds) {
    const std::string name = text(input);
    for (size_t often = input.next() % 16; often > 0 && names.size() < kNames; --often)
      names.push_back(name);
  }
}

void set_number(Bytes& input, tw_process_desc& desc) {
  int32_t* const counts[] = {&desc.ppid, &desc.threads, &desc.fd_size, &desc.open_files};
  uint64_t* const sizes[] = {&desc.vm_hwm_kb,    &desc.vm_rss_kb,     &desc.vss_dalvik_kb,
                             &desc.vss_heap_kb,  &desc.vss_ashmem_kb, &desc.vss_kgsl_kb,
                             &desc.vss_dmabuf_kb};
  if (input.next() % 2 == 0) {
    *input.one_of(counts) = static_cast<int32_t>(number(input));
  } else {
    *input.one_of(sizes) = static_cast<uint64_t>(number(input));
  }
}

void write_smaps(Bytes& input, MadeTree& tree) {
  std::string smaps;
  for (size_t areas = input.next() % 4; areas > 0; --areas) {
    smaps += made_area(input.one_of({"[heap]", "", "[anon:dalvik-main]", "/dev/kgsl", "/a.so"}), 4);
    smaps += "Size: 4 kB\nRss: " + std::to_string(static_cast<int32_t>(number(input))) +
             " kB\nPss: 1 kB\nVmFlags: rd\n";
  }
  tree.write(std::to_string(kFirstPid) + "/smaps", smaps);
}

void end(Bytes& input, tw_process_entry& entry, int32_t id) {
  check(input, [&] { tw_event_poll_proc2exit(&entry, id); });
  require(entry.divisions_block == nullptr && entry.files_counter_block == nullptr &&
          entry.threads_counter_block == nullptr);
}

void step(Bytes& input, tw_process_list* list, MadeTree& tree) {
  const uint32_t pid = kFirstPid + input.next() % kPids;
  tw_process_entry& entry = list->entries[pid];
  entry.pid = pid;
  switch (input.next() % 10) {
    case 0:
      snprintf(entry.desc.name, sizeof(entry.desc.name), "%s", text(input).c_str());
      break;
    case 1:
      set_number(input, entry.baseline);
      break;
    case 2:
      rename_inventory(input);
      break;
    case 3:
      write_smaps(input, tree);
      break;
    case 4:
      check(input, [&] { tw_event_poll_newproc(&entry); });
      break;
    case 5:
      end(input, entry, input.one_of({Event_ProcExited, Event_ProcRenamed}));
      entry = {};
      break;
    case 6: {
      tw_meminfo_t memory = {};
      memory.mem_free_kb = static_cast<int32_t>(number(input));
      memory.mem_available_kb = static_cast<int32_t>(number(input));
      memory.sunreclaim_kb = static_cast<int32_t>(number(input));
      check(input, [&] { tw_event_poll_meminfo(&memory); });
      break;
    }
    case 7:
      for (uint32_t* count :
           {&list->count, &list->native_count, &list->runtime_count, &list->kthread_count})
        *count = static_cast<uint32_t>(number(input));
      check(input, [&] { tw_event_poll_process_list(list); });
      break;
    default:
      set_number(input, entry.desc);
      check(input, [&] { tw_event_poll_process_entry(list, &entry); });
  }
}

// Of one process, with as many descriptors and threads as there can be names; the others are it.
struct OneProcess : MadeTree {
  OneProcess() : MadeTree({{.pid = kFirstPid, .threads = kNames, .fds = kNames}}) {
    for (uint32_t pid = kFirstPid + 1; pid < kFirstPid + kPids; ++pid)
      link(std::to_string(pid), std::to_string(kFirstPid));
    write("slabinfo", "dentry 3 3 100 1\n");
  }
};

}  // namespace

// The library's calls come here (see --wrap in ld(1)).
extern "C" {
ssize_t __real__Z18tw_read_small_fileiPKciPcm(int fd, const char* path, int flags, char* buffer,
                                              size_t size);

ssize_t __wrap__Z18tw_read_small_fileiPKciPcm(int fd, const char* path, int flags, char* buffer,
                                              size_t size) {
  if (strstr(path, "/comm") == nullptr)
    return __real__Z18tw_read_small_fileiPKciPcm(fd, path, flags, buffer, size);
  const size_t number = static_cast<size_t>(atoi(path)) - kFirstPid;
  if (number >= names.size()) return -1;
  return static_cast<ssize_t>((names[number] + "\n").copy(buffer, size));
}
ssize_t __wrap_readlinkat(int /*fd*/, const char* path, char* buffer, size_t size) {
  const auto number = static_cast<size_t>(atoi(path));
  return number < names.size() ? static_cast<ssize_t>(names[number].copy(buffer, size)) : -1;
}
bool __wrap__Z14tw_send_recordilPKcS0_S0_(int32_t pid, int64_t value, const char* event,
                                          const char* /*process*/, const char* /*detail*/) {
  told.sent.emplace(record_of(event, pid), value);
  return service_answers;
}
}

void fuzz(std::string_view bytes) {
  static OneProcess tree;
  tw_process_list* const list = fresh_table();
  taskwarden_set_output(take_output, nullptr);
  taskwarden_observe_events(take_event, nullptr, TASKWARDEN_WITH_TEXT);
  Bytes input{bytes};
  taskwarden_limit_inventories(input.one_of<size_t>({0, 500, 2000, 100000}));
  names.clear();
  tree.write(std::to_string(kFirstPid) + "/smaps", "");
  while (!input.rest.empty()) step(input, list, tree);
  for (uint32_t pid = kFirstPid; pid < kFirstPid + kPids; ++pid) {
    end(input, list->entries[pid], Event_ProcExited);
    list->entries[pid] = {};
  }
  list->count = 0;
}
