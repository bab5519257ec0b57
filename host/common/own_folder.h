// Folders of the program's own. Those that somebody names are never made: a wrong word would leave
// one behind.
#ifndef HOST_COMMON_OWN_FOLDER_H_
#define HOST_COMMON_OWN_FOLDER_H_

#include <sys/types.h>

#include <string>

namespace host {

// Makes the folder of the file at `path` with `mode`, and those above it, where they are not there.
// Whoever writes the file learns of a failure. Any thread.
void make_own_folder(const std::string& path, mode_t mode);

}  // namespace host

#endif  // HOST_COMMON_OWN_FOLDER_H_
