#include "inspect/parse_pair.h"

#include <string.h>

#include "report/log.h"

int parse_pair(char* line) {
  const char* colon = strchr(line, ':');
  size_t start = 0;
  if (colon != nullptr) {
    start = static_cast<size_t>(colon - line) + 1;
    while (line[start] == ' ' || line[start] == '\t') {
      ++start;
    }
  }
  if (colon == nullptr || line[start] == '\0') {
    TW_LOG(TW_TAG_STATS, ">> failed to parse the pair: \"%s\"\n", line);
    return -1;
  }
  char* end = line + start;
  while (*end != '\0' && *end != ' ' && *end != '\t' && *end != '\r' && *end != '\n') {
    ++end;
  }
  *end = '\0';
  return static_cast<int>(start);
}
