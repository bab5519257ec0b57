// A process that makes the weather, step by step, as it is told.
#ifndef STORM_MAKER_H_
#define STORM_MAKER_H_

#include <sys/types.h>

#include <functional>
#include <vector>

#include "platform/unique_fd.h"

class Maker {
 public:
  // Forks it. The calling process must have one thread.
  explicit Maker(std::vector<std::function<void()>> steps);
  // Ends it, which clears.
  ~Maker();
  Maker& operator=(Maker&&) = delete;  // nor any copy

  pid_t pid() const { return pid_; }
  // Has it make the next step, and returns when that is made. Throws if it fails or
  // takes five minutes.
  void step();
  // Has it destroy the steps and what they own; it goes on living.
  void clear() { step(); }

 private:
  pid_t pid_ = -1;
  unique_fd told_;
};

#endif  // STORM_MAKER_H_
