// A verdict as an entry of the journal. Any thread.
#ifndef HOST_VERDICT_JOURNAL_ENTRY_H_
#define HOST_VERDICT_JOURNAL_ENTRY_H_

#include "host/common/journal.h"
#include "host/verdict/told_verdict.h"

namespace host {

// MESSAGE is the sentence and, below it, the explanation; PRIORITY is notice for what is suspected
// or has ended, warning for what is confirmed, critical for what is urgent. The members of
// verdict_object() are TASKWARDEN_PID, _START, _NAME, _UNIT, _RESOURCE, _STATE, _FROM, _NOW,
// _SINCE, _RATE_PER_HOUR, _LIMIT, _SECONDS_TO_LIMIT and _EVIDENCE; what is unknown is left out.
JournalFields journal_fields(const ToldVerdict& verdict);

}  // namespace host

#endif  // HOST_VERDICT_JOURNAL_ENTRY_H_
