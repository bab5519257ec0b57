#include "host/watch/state_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>
#include <utility>

#include "host/common/escape.h"
#include "host/common/file_text.h"
#include "host/common/output.h"
#include "host/common/write_whole.h"
#include "judge/saved_state.h"
#include "judge/sealed.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

// More than the state of all processes that there can be is not read.
constexpr size_t kMostBytes = size_t{4} << 30;

std::string variable(const char* name) {
  const char* const value = ::getenv(name);
  return value != nullptr ? value : "";
}

std::string state_folder() {
  // There may be several, with colons between them (systemd.exec(5)).
  if (const std::string given = variable("STATE_DIRECTORY"); !given.empty()) {
    return given.substr(0, given.find(':'));
  }
  if (::geteuid() == 0) {
    return "/var/lib/taskwarden";
  }
  const std::string state = variable("XDG_STATE_HOME");
  if (state.starts_with('/')) {
    return state + "/taskwarden";
  }
  const std::string home = variable("HOME");
  return home.starts_with('/') ? home + "/.local/state/taskwarden" : "";
}

}  // namespace

std::string default_state_path() {
  const std::string folder = state_folder();
  return folder.empty() ? "" : folder + "/judge.state";
}

StateFile::StateFile(std::string path, std::string boot)
    : path_(std::move(path)), boot_(std::move(boot)) {}

void StateFile::load(judge::Judge* judge) {
  if (path_.empty()) {
    return;
  }
  const FileText file = read_file(path_, kMostBytes);
  if (file.error == ENOENT) {
    return;
  }
  const bool empty = file.error == ENODATA;
  const char* const why =
      file.error != 0 ? ::strerror(file.error) : judge::load(file.text, boot_, judge);
  if (why == nullptr) {
    return;
  }
  say("the state in \"" + escape_text(path_) +
      "\" is left aside: " + (empty ? "it is empty" : why));
  if (!empty && !judge::is_sealed(file.text)) {
    say("no state is kept; --state names another file");
    path_.clear();
  }
}

void StateFile::save(const judge::Judge& judge) {
  if (path_.empty()) {
    return;
  }
  const bool written = write(judge::save(judge, boot_));
  if (!written && !failing_) {
    say("cannot keep the state in \"" + escape_text(path_) + "\": " + ::strerror(errno));
  }
  failing_ = !written;
}

bool StateFile::write(const std::string& bytes) const {
  const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
  const std::string fresh = path_ + ".new";
  unique_fd fd(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  // Root may write the state of a service that has a user of its own.
  struct stat place = {};
  if (fd.ok() && ::geteuid() == 0 && ::stat(folder.c_str(), &place) == 0) {
    static_cast<void>(!::fchown(fd.get(), place.st_uid, place.st_gid));
  }
  if (!fd.ok() || !write_whole(fd.get(), bytes) || ::fsync(fd.get()) != 0 ||
      ::rename(fresh.c_str(), path_.c_str()) != 0) {
    const int reason = errno;
    if (fd.ok()) {
      ::unlink(fresh.c_str());
    }
    errno = reason;
    return false;
  }
  // The new name outlasts a crash of the machine as well.
  const unique_fd directory(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_CLOEXEC));
  ::fsync(directory.get());
  return true;
}

}  // namespace host
