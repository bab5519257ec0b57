// The library's visits as a program, to be measured from outside like the tools beside it:
// visit_pids PASSES <PIDS, in PASSES passes over the processes named on standard input.
#include <cstdlib>
#include <iostream>
#include <vector>

#include "child_table.h"

int main(int argc, char** argv) {
  prepare_library();
  std::vector<pid_t> pids;
  for (pid_t pid; std::cin >> pid;) {
    pids.push_back(pid);
  }
  ChildTable table(pids);
  for (long pass = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1; pass > 0; --pass) {
    if (!table.visit_all()) {
      return 1;
    }
  }
  return table.quiet() ? 0 : 1;
}
