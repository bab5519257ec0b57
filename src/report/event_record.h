// The sending of event records behind reportEvent(), and what became of them.
#ifndef REPORT_EVENT_RECORD_H_
#define REPORT_EVENT_RECORD_H_

#include <cstdint>

// reportEvent() with its outcome: whether the service's end took the whole record. Any thread.
bool tw_send_record(int32_t pid, int64_t value, const char* event, const char* process,
                    const char* detail);

// Since the start. Any thread.
struct tw_record_counts {
  uint64_t sent;
  uint64_t lost;
};
tw_record_counts tw_records_so_far();

#endif  // REPORT_EVENT_RECORD_H_
