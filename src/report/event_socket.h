// Sends event records to the system service that listens on the local stream socket
// "taskwarden_native_socket" (abstract namespace): one connection and one record per event, every
// step logged under no tag. An event that cannot be delivered is lost; nothing is retried.
#ifndef REPORT_EVENT_SOCKET_H_
#define REPORT_EVENT_SOCKET_H_

#include <stdint.h>

#include "taskwarden/export.h"

// Connects to the service. Returns the connected descriptor, close-on-exec and owned by the caller,
// or a negative value with errno after logging it. Waits at most 50 ms, and
// the cycle at most 100 ms in all of a pass. Where the
// system's own socket_local_client() connects, neither bound nor close-on-exec is promised. Any
// thread.
TW_EXPORT int32_t setupConnection();

// Sends one record, "pid@@value@@event@@process@@detail" and a NUL, in one write, and closes the
// connection. The value goes out as its low 32 bits, signed. Texts (NUL-terminated, not null) are
// cut at 29, 99 and 6143 bytes. Waits for nothing but the connection, and raises no SIGPIPE; a
// failure is logged and the caller not told. errno is unspecified afterwards. Any thread.
TW_EXPORT void reportEvent(int32_t pid, int64_t value, const char* event, const char* process,
                           const char* detail);

#endif  // REPORT_EVENT_SOCKET_H_
