#include "support/child.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>

#include <stdexcept>

void pass_low_pids() {
  for (pid_t pid = 0; pid >= 0 && pid < 300; waitpid(pid, nullptr, 0)) {
    pid = fork();
    if (pid == 0) _exit(0);
  }
}

Child::Child(const std::string& arg0) {
  pass_low_pids();
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  const unique_fd child_in(in[0]);
  unique_fd child_out(out[1]);
  commands_.reset(in[1]);
  answers_.reset(out[0]);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(child_in.get(), 0);
    dup2(child_out.get(), 1);
    dup2(open("/dev/null", O_WRONLY), 2);
    close_range(3, ~0U, 0);
    execl(TASKWARDEN_TEST_CHILD, arg0.c_str(), nullptr);
    _exit(127);
  }
  // Else a program that did not start would be waited for in vain.
  child_out.reset();
  command("");
}

void Child::command(const std::string& line) {
  char answer = 0;
  dprintf(commands_.get(), "%s\n", line.c_str());
  if (read(answers_.get(), &answer, 1) != 1) throw std::runtime_error("no answer to: " + line);
}

void Child::end() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}
