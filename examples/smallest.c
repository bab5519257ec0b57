// The smallest host: gives the watchdog its one thread. Reports go to standard output, failures to
// standard error.
#include <taskwarden/taskwarden.h>

int main(void) {
  taskwarden_start();  // comes back only when there is nothing to watch
  return 1;
}
