// What the log blocks of all events share.
#ifndef AUDIT_EVENT_BLOCK_H_
#define AUDIT_EVENT_BLOCK_H_

// A rule across the log.
inline constexpr const char* TW_EVENT_RULE =
    "-------------------------------------------------------\n";

// Reports the first three lines of an event's block: blank, rule, the event's name. The detail line
// is its hub's own.
void tw_report_event_head(const char* event);

#endif  // AUDIT_EVENT_BLOCK_H_
