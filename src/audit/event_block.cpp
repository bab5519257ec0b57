#include "audit/event_block.h"

#include "report/reporter.h"

void tw_report_event_head(const char* event) {
  tw_reporter().report(1, "\n");
  tw_reporter().report(1, "%s", TW_EVENT_RULE);
  tw_reporter().report(1, "%s\n", event);
}
