// What the library writes while it lives, kept outside the heap, which is measured, and counted by
// kind at the end.
#ifndef STORM_TRANSCRIPT_H_
#define STORM_TRANSCRIPT_H_

#include <cstddef>
#include <map>
#include <string>

#include "platform/unique_fd.h"

class Transcript {
 public:
  Transcript();
  ~Transcript();
  Transcript& operator=(Transcript&&) = delete;  // nor any copy

  // How often each kind of log line came, and of the reports each event's line and the overload's.
  // Lines that differ in their numbers only are of one kind.
  std::map<std::string, int> kinds() const;

 private:
  static void take(void* self, int output, const char* tag, const char* text, size_t length);

  unique_fd file_;
};

#endif  // STORM_TRANSCRIPT_H_
