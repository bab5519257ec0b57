#include "report/event_socket.h"

#include <cutils/sockets.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "platform/text_field.h"
#include "platform/unique_fd.h"
#include "report/log.h"

namespace {

constexpr size_t kSendBufferSize = 8192;

struct EventRecord {
  int32_t pid;
  int64_t value;
  char event[30];
  char process[100];
  char detail[6144];
};
static_assert(sizeof(EventRecord) == 6296);

}  // namespace

int32_t setupConnection() {
  const int fd = socket_local_client("taskwarden_native_socket", ANDROID_SOCKET_NAMESPACE_ABSTRACT,
                                     SOCK_STREAM);
  TW_LOG(nullptr, "taskwarden  client socket connectting");
  if (fd < 0) {
    TW_LOG(nullptr, "Fail to connect to socket . return code: %d", fd);
  }
  return fd;
}

void reportEvent(int32_t pid, int64_t value, const char* event, const char* process,
                 const char* detail) {
  const unique_fd fd(setupConnection());
  if (!fd.ok()) {
    return;
  }
  EventRecord record;
  record.pid = pid;
  record.value = value;
  copy_cut(record.event, event);
  copy_cut(record.process, process);
  copy_cut(record.detail, detail);
  const auto shown = static_cast<int32_t>(record.value);
  TW_LOG(nullptr, "socket size = %d", static_cast<int>(sizeof(record)));
  TW_LOG(nullptr, "socket data = %d,%d,%s,%s.%s", record.pid, shown, record.event, record.process,
         record.detail);

  char buffer[kSendBufferSize] = "";
  const int length = snprintf(buffer, sizeof(buffer), "%d@@%d@@%s@@%s@@%s", record.pid, shown,
                              record.event, record.process, record.detail);
  if (length < 0 || static_cast<size_t>(length) >= sizeof(buffer)) {
    TW_LOG(nullptr, "tigger taskwarden write buffer error!");
  }
  TW_LOG(nullptr, "socket sendbuff = %s", buffer);

  // A connection just made has room for the whole record, so there is nothing to wait for. A
  // service that takes only the head of one has not got it either.
  const size_t size = strlen(buffer) + 1;
  const ssize_t written = ::send(fd.get(), buffer, size, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (written < 0 || static_cast<size_t>(written) != size) {
    TW_LOG(nullptr, "trigger vk service written:%zu", static_cast<size_t>(written));
  }
}
