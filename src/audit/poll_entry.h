// What the inspection polls at a visit. Cycle's thread only.
#ifndef AUDIT_POLL_ENTRY_H_
#define AUDIT_POLL_ENTRY_H_

struct tw_process_entry;
struct tw_process_list;

// tw_event_poll_process_entry(), and whether an event was raised.
bool tw_poll_process_entry(tw_process_list* list, tw_process_entry* entry);

#endif  // AUDIT_POLL_ENTRY_H_
