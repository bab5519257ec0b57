#include "proctable/new_pids.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <charconv>
#include <string_view>

#include "platform/proc_root.h"
#include "platform/process_calls.h"
#include "platform/small_file.h"

namespace {

struct MadeSoFar {
  uint32_t last_pid;  // 0: unknown
  uint64_t processes;

  bool operator==(const MadeSoFar&) const = default;
};

MadeSoFar asked = {};
MadeSoFar listed = {};
uint32_t scans_since = 0;

// The last word of a line like "0.20 0.18 0.12 1/80 11206".
uint32_t last_pid_in(std::string_view load) {
  load = load.substr(0, load.find('\n'));
  load.remove_prefix(load.rfind(' ') + 1);
  uint32_t pid = 0;
  std::from_chars(load.data(), load.data() + load.size(), pid);
  return pid;
}

MadeSoFar made_so_far() {
  const ProcPath load("/loadavg");
  char text[128];
  struct stat root;
  // Containers may have a file of their own in its place.
  const bool is_kernels = tw_is_on_procfs(load.c_str());
  const ssize_t length =
      is_kernels ? tw_read_small_file(AT_FDCWD, load.c_str(), 0, text, sizeof(text)) : 0;
  if (length <= 0 || ::stat(tw_proc_root(), &root) != 0) {
    return {};
  }
  return {last_pid_in({text, static_cast<size_t>(length)}), root.st_nlink};
}

}  // namespace

bool tw_may_have_new_pids() {
  asked = made_so_far();
  return asked.last_pid == 0 || asked != listed || ++scans_since >= TW_LISTING_RHYTHM;
}

void tw_note_listing() {
  listed = asked;
  scans_since = 0;
}

void tw_forget_new_pids() {
  listed = {};
}
