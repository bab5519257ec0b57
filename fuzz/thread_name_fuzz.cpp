// What threads are called.
#include "inspect/threads.h"
#include "inventories.h"

void fuzz(std::string_view text) {
  check_inventories(text, tw_thread_family, {"Binder:", "HwBinder:", "Thread-", "POSIX timer"});
}
