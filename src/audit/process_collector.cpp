#include "audit/process_collector.h"

#include <stdio.h>

#include <algorithm>

#include "audit/event_ids.h"
#include "report/reporter.h"

ProcessCollector::ProcessCollector(const char* collector_name)
    : metric(Event_ResidentSize), capacity(5) {
  snprintf(name, sizeof(name), "%s", collector_name);
  members.reserve(static_cast<size_t>(capacity));
}

int32_t ProcessCollector::collect(void* entry) {
  auto* offered = static_cast<tw_process_entry*>(entry);
  bool present = false;
  auto candidate = members.end();
  int64_t greatest = 0;
  // To the end also after a match, so that freed members are cleared in any case. An erasure only
  // invalidates what lies behind it, and the candidate lies before.
  for (auto member = members.begin(); member != members.end();) {
    if ((*member)->pid == 0) {
      std::erase_if(changes, [&](const Change& change) { return change.first == *member; });
      const auto place = candidate == members.end() ? -1 : candidate - members.begin();
      member = members.erase(member);
      candidate = place < 0 ? members.end() : members.begin() + place;
      continue;
    }
    present = present || (*member)->pid == offered->pid;
    const auto difference =
        static_cast<int64_t>(offered->desc.vm_rss_kb - (*member)->desc.vm_rss_kb);
    if (difference > greatest) {
      greatest = difference;
      candidate = member;
    }
    ++member;
  }
  if (present) {
    return 0;
  }
  if (members.size() < static_cast<size_t>(capacity)) {
    changes.emplace_back(offered, nullptr);
  } else if (candidate != members.end()) {
    changes.emplace_back(offered, *candidate);
    members.erase(candidate);
  } else {
    return 0;
  }
  members.push_back(offered);
  return 1;
}

void ProcessCollector::sort() {
  if (metric == Event_ResidentSize) {
    std::sort(members.begin(), members.end(),
              [](const tw_process_entry* a, const tw_process_entry* b) {
                return a->desc.vm_rss_kb > b->desc.vm_rss_kb;
              });
  }
}

bool ProcessCollector::is_newcomer(const tw_process_entry* member) const {
  return std::any_of(changes.begin(), changes.end(),
                     [member](const Change& change) { return change.first == member; });
}

void ProcessCollector::dump() const {
  static char dumpbuf[512];
  if (metric != Event_ResidentSize) {
    return;
  }
  int rank = 0;
  for (const tw_process_entry* member : members) {
    const bool newcomer = is_newcomer(member);
    snprintf(dumpbuf, sizeof(dumpbuf), "\t [%c %2d] pid %u \"%s\": RSS %u\n", newcomer ? '*' : ' ',
             ++rank, member->pid, member->desc.name, static_cast<uint32_t>(member->desc.vm_rss_kb));
    TW_REPORT("%s", dumpbuf);
  }
}
