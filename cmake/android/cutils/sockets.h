// Connects to a local socket. Nothing is said of a bound, nor of close-on-exec.
#ifndef ANDROID_CUTILS_SOCKETS_H_
#define ANDROID_CUTILS_SOCKETS_H_

#define ANDROID_SOCKET_NAMESPACE_ABSTRACT 0

extern "C" int socket_local_client(const char* name, int namespaceId, int type);

#endif  // ANDROID_CUTILS_SOCKETS_H_
