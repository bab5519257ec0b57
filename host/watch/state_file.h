// The judge's state in a file, so that it survives a restart of the watch. One thread at a time.
#ifndef HOST_WATCH_STATE_FILE_H_
#define HOST_WATCH_STATE_FILE_H_

#include <string>

#include "judge/judge.h"

namespace host {

// Where the state is kept unless told otherwise: "judge.state" in systemd's $STATE_DIRECTORY, else
// for root in /var/lib/taskwarden, else in $XDG_STATE_HOME/taskwarden or ~/.local/state/taskwarden.
// Empty if there is no such place.
std::string default_state_path();

class StateFile {
 public:
  // The file at `path`; none if that is empty. `boot` is the boot of the system that the judge's
  // times belong to (/proc/sys/kernel/random/boot_id).
  StateFile(std::string path, std::string boot);

  // Puts what the file holds in place of what the judge knows, if it is of use; if not, says why.
  // A file of something else is never written to.
  void load(judge::Judge* judge);
  // Writes the state, whole or not at all: to a new file that then takes the place of the old.
  // The first failure is said, until one succeeds.
  void save(const judge::Judge& judge);

 private:
  bool write(const std::string& bytes) const;

  std::string path_;
  const std::string boot_;
  bool failing_ = false;
};

}  // namespace host

#endif  // HOST_WATCH_STATE_FILE_H_
