// This program, to be run again in its own place: the same file, arguments and process.
#ifndef HOST_COMMON_OWN_IMAGE_H_
#define HOST_COMMON_OWN_IMAGE_H_

#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace host {

class OwnImage {
 public:
  // Looks at it by /proc/self, now, so that it need not be there later.
  OwnImage();

  // Ends all other threads, also those that wait in the kernel where a signal may end them, and
  // begins at main() with the environment as it is. Descriptors that are not close-on-exec, blocked
  // signals and pending ones stay. Returns only on failure, with an errno value.
  int run_again() const;

  // The name that ps(1) shows; run_again() changes it.
  static std::string comm();
  static void set_comm(const std::string& name);

 private:
  unique_fd file_;
  std::vector<std::string> arguments_;
};

}  // namespace host

#endif  // HOST_COMMON_OWN_IMAGE_H_
