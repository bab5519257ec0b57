// A real process that grows on command: see support/child_program.cpp for the commands.
#ifndef TESTS_SUPPORT_CHILD_H_
#define TESTS_SUPPORT_CHILD_H_

#include <string>

#include "platform/unique_fd.h"

// Forks until new processes get pids that are watched: a fresh container starts at 1.
void pass_low_pids();

class Child {
 public:
  // Starts the program under `arg0` as the first argument of its command line, with descriptors 0
  // to 2 only.
  explicit Child(const std::string& arg0);
  ~Child() { end(); }  // kills and reaps it

  pid_t pid() const { return pid_; }
  // Has it run one command and returns when that is done. Throws if it does not answer.
  void command(const std::string& line);
  void end();

 private:
  pid_t pid_ = -1;
  unique_fd commands_, answers_;
};

#endif  // TESTS_SUPPORT_CHILD_H_
