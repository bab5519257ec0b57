#include "silent_file.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

constexpr uint64_t kFile = 2;  // after FUSE_ROOT_ID
constexpr uint64_t kPage = 4096;
constexpr uint64_t kFileSize = 8 * kPage;
constexpr char kFileName[] = "silent";
constexpr size_t kRequestMax = 1 << 18;

void require(bool ok, const std::string& what) {
  if (!ok) {
    throw std::runtime_error(what + ": " + strerror(errno));
  }
}

// What the kernel is told of a file: the directory, or the one in it.
fuse_attr attributes_of(uint64_t node) {
  fuse_attr attributes = {};
  attributes.ino = node;
  attributes.mode = node == kFile ? S_IFREG | 0600 : S_IFDIR | 0700;
  attributes.size = node == kFile ? kFileSize : 0;
  attributes.nlink = 1;
  attributes.uid = getuid();
  attributes.gid = getgid();
  attributes.blksize = kPage;
  return attributes;
}

// Serves the kernel's requests: the protocol of linux/fuse.h, of which this is what one file takes.
class Server {
 public:
  Server(int device, int orders) : device_(device), orders_(orders) {}

  // Ends when nobody gives orders any more, or the file system is gone.
  void run() {
    std::vector<char> request(kRequestMax);
    pollfd awaited[] = {{device_, POLLIN, 0}, {orders_, POLLIN, 0}};
    while (poll(awaited, 2, -1) > 0 || errno == EINTR) {
      if (awaited[1].revents != 0 && !obey()) {
        return;
      }
      if (awaited[0].revents != 0) {
        const ssize_t n = read(device_, request.data(), request.size());
        if (n < 0 && errno == ENODEV) {
          return;
        }
        if (n >= static_cast<ssize_t>(sizeof(fuse_in_header))) {
          serve(request.data());
        }
      }
    }
  }

 private:
  bool obey() {
    char order;
    if (read(orders_, &order, 1) != 1) {
      return false;
    }
    answers_ = true;
    for (const auto& [unique, size] : std::exchange(unanswered_, {})) {
      reply_written(unique, size);
    }
    return true;
  }

  void serve(const char* request) {
    fuse_in_header header;
    memcpy(&header, request, sizeof(header));
    const char* const body = request + sizeof(header);
    switch (header.opcode) {
      case FUSE_INIT: {
        fuse_init_out out = {};
        out.major = FUSE_KERNEL_VERSION;
        out.minor = FUSE_KERNEL_MINOR_VERSION;
        out.max_write = kPage;
        reply(header.unique, out);
        break;
      }
      case FUSE_LOOKUP: {
        fuse_entry_out out = {};
        out.nodeid = kFile;
        out.attr = attributes_of(kFile);
        strcmp(body, kFileName) == 0 ? reply(header.unique, out) : fail(header.unique, ENOENT);
        break;
      }
      case FUSE_GETATTR:
      case FUSE_SETATTR: {
        fuse_attr_out out = {};
        out.attr = attributes_of(header.nodeid);
        reply(header.unique, out);
        break;
      }
      case FUSE_OPEN:
        reply(header.unique, fuse_open_out{});
        break;
      case FUSE_READ: {
        fuse_read_in in;
        memcpy(&in, body, sizeof(in));
        const uint64_t left = kFileSize - std::min(in.offset, kFileSize);
        const std::vector<char> zeros(std::min<uint64_t>(in.size, left));
        reply(header.unique, zeros.data(), zeros.size());
        break;
      }
      case FUSE_WRITE: {
        fuse_write_in in;
        memcpy(&in, body, sizeof(in));
        if (answers_) {
          reply_written(header.unique, in.size);
        } else {
          unanswered_.emplace_back(header.unique, in.size);
        }
        break;
      }
      case FUSE_FLUSH:
      case FUSE_FSYNC:
      case FUSE_RELEASE:
        reply(header.unique, nullptr, 0);
        break;
      case FUSE_FORGET:
      case FUSE_BATCH_FORGET:
      case FUSE_INTERRUPT:
        break;  // which take no answer
      default:
        fail(header.unique, ENOSYS);
    }
  }

  void reply_written(uint64_t unique, uint32_t size) {
    fuse_write_out out = {};
    out.size = size;
    reply(unique, out);
  }
  template <typename Out>
  void reply(uint64_t unique, const Out& out) {
    reply(unique, &out, sizeof(out));
  }
  void reply(uint64_t unique, const void* out, size_t size) { send(unique, 0, out, size); }
  void fail(uint64_t unique, int error) { send(unique, -error, nullptr, 0); }
  void send(uint64_t unique, int error, const void* out, size_t size) const {
    fuse_out_header header = {};
    header.len = static_cast<uint32_t>(sizeof(header) + size);
    header.error = error;
    header.unique = unique;
    iovec parts[] = {{&header, sizeof(header)}, {const_cast<void*>(out), size}};
    static_cast<void>(writev(device_, parts, size != 0 ? 2 : 1));
  }

  const int device_;
  const int orders_;
  bool answers_ = false;
  std::vector<std::pair<uint64_t, uint32_t>> unanswered_;  // with how much was written
};

unique_fd open_device(const std::string& directory) {
  unique_fd device(open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!device.ok()) {
    const std::string made = directory + ".device";
    static_cast<void>(mknod(made.c_str(), S_IFCHR | 0600, makedev(10, 229)));
    device.reset(open(made.c_str(), O_RDWR | O_CLOEXEC));
    unlink(made.c_str());
  }
  require(device.ok(), "/dev/fuse");
  return device;
}

std::string make_directory() {
  std::string name = "/tmp/taskwarden-fuse.XXXXXX";
  require(mkdtemp(name.data()) != nullptr, name);
  return name;
}

// The end by which orders are given, to `*given`.
unique_fd make_orders(unique_fd* given) {
  int ends[2];
  require(pipe2(ends, O_CLOEXEC) == 0, "pipe");
  given->reset(ends[1]);
  return unique_fd(ends[0]);
}

void give_order(const unique_fd& orders) {
  require(write(orders.get(), "", 1) == 1, "an order");
}

}  // namespace

SilentFile::SilentFile() : directory_(make_directory()), path_(directory_ + "/" + kFileName) {
  unique_fd device = open_device(directory_);
  const std::string options = "fd=" + std::to_string(device.get()) +
                              ",rootmode=40000,user_id=" + std::to_string(getuid()) +
                              ",group_id=" + std::to_string(getgid());
  require(mount("silent", directory_.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) == 0,
          "mount of a FUSE file system");
  const unique_fd obeyed = make_orders(&orders_);
  server_ = fork();
  require(server_ >= 0, "fork");
  if (server_ == 0) {
    orders_.reset();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Server(device.get(), obeyed.get()).run();
    _exit(0);
  }
}

// Nobody else holds the device, so that the end of the server ends the connection.
SilentFile::~SilentFile() {
  orders_.reset();
  kill(server_, SIGKILL);
  waitpid(server_, nullptr, 0);
  umount2(directory_.c_str(), MNT_DETACH);
  rmdir(directory_.c_str());
}

void SilentFile::answer() {
  give_order(orders_);
}

LockHolder::LockHolder(const SilentFile& file, int page, const std::string& name) {
  const unique_fd obeyed = make_orders(&orders_);
  pid_ = fork();
  require(pid_ >= 0, "fork");
  if (pid_ != 0) {
    return;
  }
  orders_.reset();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_NAME, name.c_str());
  char order;
  const unique_fd fd(open(file.path().c_str(), O_RDWR | O_CLOEXEC));
  void* const mapped = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(),
                            static_cast<off_t>(kPage) * page);
  if (mapped == MAP_FAILED || read(obeyed.get(), &order, 1) != 1) {
    _exit(1);
  }
  *static_cast<volatile char*>(mapped) = 1;
  mmap(mapped, kPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
  for (;;) {
    pause();
  }
}

// It ends when the file answers, or is gone.
LockHolder::~LockHolder() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, WNOHANG);
}

void LockHolder::hold() {
  give_order(orders_);
}
