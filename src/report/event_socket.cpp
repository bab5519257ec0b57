#include "report/event_socket.h"

#include <cutils/sockets.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "platform/locks.h"
#include "platform/text_field.h"
#include "platform/unique_fd.h"
#include "report/event_record.h"
#include "report/log.h"
#include "taskwarden/taskwarden.h"

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

// Whose ends records go to; everybody's unless the host has said otherwise. Under Lock::kReceivers.
constexpr size_t kMostReceivers = 16;
bool receivers_are_limited = false;
uint32_t receivers[kMostReceivers];
size_t receiver_count = 0;

// The kernel vouches for who listens (SO_PEERCRED in unix(7)).
bool may_receive(int fd) {
  const LockGuard lock(Lock::kReceivers);
  if (!receivers_are_limited) {
    return true;
  }
  ucred peer = {};
  socklen_t size = sizeof(peer);
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return false;
  }
  return peer.uid == 0 || peer.uid == ::geteuid() ||
         std::count(receivers, receivers + receiver_count, peer.uid) > 0;
}

}  // namespace

int taskwarden_limit_receivers(const uint32_t* users, size_t count) {
  if (count > kMostReceivers || (users == nullptr && count > 0)) {
    errno = EINVAL;
    return -1;
  }
  const LockGuard lock(Lock::kReceivers);
  receivers_are_limited = true;
  std::copy_n(users, count, receivers);
  receiver_count = count;
  return 0;
}

int32_t setupConnection() {
  unique_fd fd(socket_local_client("taskwarden_native_socket", ANDROID_SOCKET_NAMESPACE_ABSTRACT,
                                   SOCK_STREAM));
  if (fd.ok() && !may_receive(fd.get())) {
    fd.reset();
    errno = EPERM;
  }
  TW_LOG(nullptr, "taskwarden  client socket connectting");
  if (!fd.ok()) {
    TW_LOG(nullptr, "Fail to connect to socket . return code: %d", fd.get());
  }
  return fd.release();
}

namespace {

bool send_record(int32_t pid, int64_t value, const char* event, const char* process,
                 const char* detail) {
  const unique_fd fd(setupConnection());
  if (!fd.ok()) {
    return false;
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
  const bool whole = written >= 0 && static_cast<size_t>(written) == size;
  if (!whole) {
    TW_LOG(nullptr, "trigger vk service written:%zu", static_cast<size_t>(written));
  }
  return whole;
}

std::atomic<uint64_t> records_sent{0};
std::atomic<uint64_t> records_lost{0};

}  // namespace

bool tw_send_record(int32_t pid, int64_t value, const char* event, const char* process,
                    const char* detail) {
  const bool sent = send_record(pid, value, event, process, detail);
  ++(sent ? records_sent : records_lost);
  return sent;
}

tw_record_counts tw_records_so_far() {
  return {records_sent, records_lost};
}

void reportEvent(int32_t pid, int64_t value, const char* event, const char* process,
                 const char* detail) {
  tw_send_record(pid, value, event, process, detail);
}
