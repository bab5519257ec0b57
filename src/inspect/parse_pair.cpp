#include "inspect/parse_pair.h"

#include "report/log.h"

int parse_pair(char* line) {
  char* value = line;
  while (*value != '\0' && *value != ':') {
    ++value;
  }
  if (*value == ':') {
    do {
      ++value;
    } while (*value == ' ' || *value == '\t');
  }
  if (*value == '\0') {
    TW_LOG(TW_TAG_STATS, ">> failed to parse the pair: \"%s\"\n", line);
    return -1;
  }
  for (char* c = value; *c != '\0'; ++c) {
    if (*c == ' ' || *c == '\t' || *c == '\r' || *c == '\n') {
      *c = '\0';
    }
  }
  return static_cast<int>(value - line);
}
