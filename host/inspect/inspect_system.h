// The whole system's memory, looked at once with the library's two readers.
#ifndef HOST_INSPECT_INSPECT_SYSTEM_H_
#define HOST_INSPECT_INSPECT_SYSTEM_H_

#include <string>

#include "host/inspect/document.h"

namespace host {

// Both look into the process file system at `root`, which has been set as the library's. One thread
// at a time, and none that watches.

// The kernel's object caches: how many are in use, the bytes of their live objects, and the `top`
// largest. Totals are exact, where the library's wrap at 4 GiB.
Document inspect_slabs(int top, const std::string& root);

// The four figures of the memory summary, in kB.
Document inspect_meminfo(const std::string& root);

}  // namespace host

#endif  // HOST_INSPECT_INSPECT_SYSTEM_H_
