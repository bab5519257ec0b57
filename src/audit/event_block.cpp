#include "audit/event_block.h"

#include "report/reporter.h"

void tw_report_event_head(const char* event) {
  TW_REPORT("\n");
  TW_REPORT("%s", TW_EVENT_RULE);
  TW_REPORT("%s\n", event);
}
