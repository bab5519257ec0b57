// The smallest host in C++: singles itself out for the closer look, and gives the watch a thread.
#include <interest/interest_list.h>
#include <taskwarden/taskwarden.h>

#include <thread>

int main() {
  interest_builtin_add("smallest");
  const std::jthread watch(taskwarden_start);
}
