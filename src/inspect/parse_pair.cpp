#include "inspect/parse_pair.h"

#include "report/log.h"

int parse_pair(char* line) {
  const char* colon = strchr(line, ':');
  const size_t start =
      colon != nullptr ? static_cast<size_t>(colon - line) + 1 + strspn(colon + 1, " \t") : 0;
  if (colon == nullptr || line[start] == '\0') {
    TW_LOG(TW_TAG_STATS, ">> failed to parse the pair: \"%s\"\n", line);
    return -1;
  }
  for (char* c = line + start; *c != '\0'; ++c) {
    if (*c == ' ' || *c == '\t' || *c == '\r' || *c == '\n') {
      *c = '\0';
    }
  }
  return static_cast<int>(start);
}
