#include "platform/directory.h"

#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// The kernel's record, linux_dirent64 (getdents(2)): a fixed head, then the name.
struct DirentHead {
  uint64_t ino;
  int64_t off;
  uint16_t reclen;
  uint8_t type;
};
constexpr size_t kNameOffset = offsetof(DirentHead, type) + 1;

}  // namespace

Directory::Directory(const char* path)
    : owned_(tw_own_fd(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK))),
      fd_(owned_.get()) {}

void Directory::rewind(int fd) {
  fd_ = ::lseek(fd, 0, SEEK_SET) == 0 ? fd : -1;
}

bool Directory::next(tw_dirent* entry) {
  if (position_ >= filled_) {
    const long n = ::syscall(SYS_getdents64, fd_, buffer_, sizeof(buffer_));
    if (n <= 0) {
      failed_ = n < 0;
      return false;
    }
    position_ = 0;
    filled_ = static_cast<size_t>(n);
  }
  DirentHead head;
  memcpy(&head, buffer_ + position_, kNameOffset);
  entry->name = buffer_ + position_ + kNameOffset;
  entry->type = tw_entry_type(fd_, entry->name, head.type);
  position_ += head.reclen;
  return true;
}

unsigned char tw_entry_type(int directory_fd, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) {
    return type;
  }
  struct stat status;
  if (::fstatat(directory_fd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return DT_UNKNOWN;
  }
  // As the kernel forms it (S_DT() in its include/linux/fs_types.h); bionic may not name it.
  return static_cast<unsigned char>((status.st_mode & S_IFMT) >> 12);
}
