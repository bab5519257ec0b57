// What the command of --exec finds in its environment.
#ifndef HOST_LISTEN_HOOK_FIELDS_H_
#define HOST_LISTEN_HOOK_FIELDS_H_

#include <chrono>

#include "host/common/record.h"
#include "host/listen/process_view.h"
#include "host/listen/reaction.h"
#include "host/verdict/told_verdict.h"

namespace host {

// TIME, PID, VALUE, EVENT, NAME, DETAIL, SENDER_UID, SENDER_PID, CGROUP and COMMAND_LINE (its words
// with blanks between them); what is not known is left out.
HookFields hook_fields(const Record& record, const Sender& sender, const ProcessView& view,
                       std::chrono::system_clock::time_point arrival);

// VERDICT, the sentence, and what verdict_fields() has.
HookFields hook_fields(const ToldVerdict& verdict);

}  // namespace host

#endif  // HOST_LISTEN_HOOK_FIELDS_H_
