// The host's observers (taskwarden/observers.h), and how they are called. Any thread; the calls
// come on the cycle's.
#ifndef REPORT_OBSERVERS_H_
#define REPORT_OBSERVERS_H_

#include "taskwarden/observers.h"

// What is observed. Cheap enough to ask at every visit.
enum class tw_observation { kNone, kWithText, kWithoutText };
tw_observation tw_event_observation();
bool tw_is_observed();  // anything
bool tw_is_table_observed(bool pass_is_complete);

// Call the observer, if there still is one.
void tw_show_event(const taskwarden_event& event);
void tw_show_table(const taskwarden_table& table);

#endif  // REPORT_OBSERVERS_H_
