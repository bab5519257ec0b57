// Stand-in for the diagnostic reporter's class, as its users know it: a report goes to the output's
// report side (platform/output.h) exactly as formatted, at any level.
#ifndef PLATFORM_STANDIN_CHRONICLER_CHRONICLER_H_
#define PLATFORM_STANDIN_CHRONICLER_CHRONICLER_H_

#include <stdint.h>

class Chronicler {
 public:
  // The one reporter, null until somebody who reports first creates it: see report/reporter.h.
  static Chronicler* instance;

  // One whole text per call, also when two threads report. Any thread.
  void report(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

  // What a reporter begins with; nothing here reads it.
  char text[256] = "";
  bool enabled = true;
  int32_t first = -1;
  int32_t second = -1;
};

#endif  // PLATFORM_STANDIN_CHRONICLER_CHRONICLER_H_
