// Stand-in for the client side of local sockets. It never waits longer than a bound, so that a
// service which accepts nothing cannot hold up its client.
#ifndef PLATFORM_STANDIN_CUTILS_SOCKETS_H_
#define PLATFORM_STANDIN_CUTILS_SOCKETS_H_

enum { ANDROID_SOCKET_NAMESPACE_ABSTRACT = 0 };

// Connects to the socket `name` in the abstract namespace (the only `namespace_id` there is) with
// the given `type`, such as SOCK_STREAM. It waits no longer than platform/socket_wait.h allows.
// Returns the connected descriptor, close-on-exec, owned by the caller; or -1 with errno:
// ECONNREFUSED when nobody listens, EAGAIN when the listener's queue stayed full, ENAMETOOLONG.
// What was left of the bound stays on the descriptor as its SO_SNDTIMEO.
int socket_local_client(const char* name, int namespace_id, int type);

#endif  // PLATFORM_STANDIN_CUTILS_SOCKETS_H_
