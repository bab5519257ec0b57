// What descriptors' links point to.
#include "inspect/open_files.h"
#include "inventories.h"

void fuzz(std::string_view text) {
  check_inventories(text, tw_open_file_kind, {"socket:", "pipe:", "/dev/ashmem"});
}
