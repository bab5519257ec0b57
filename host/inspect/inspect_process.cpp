#include "host/inspect/inspect_process.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "host/common/bounded_reader.h"
#include "host/common/escape.h"
#include "host/common/file_text.h"
#include "host/inspect/reader_output.h"
#include "inspect/open_files.h"
#include "inspect/smaps.h"
#include "inspect/status.h"
#include "inspect/threads.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

constexpr char kEnded[] = "the process has ended";

// The kernel may have to walk gigabytes for the areas.
constexpr std::chrono::seconds kAreasPatience{10};

// What no reader fills in, so that a field it left alone can be told.
constexpr int32_t kUnset = INT32_MIN;
constexpr uint64_t kUnsetKb = UINT64_MAX;

Json ranked(const StringCounter& counter, const char* key) {
  std::vector<std::pair<std::string, int32_t>> entries(counter.begin(), counter.end());
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  Json list = Json::array();
  for (const auto& [name, count] : entries) {
    list.push_back({{"count", count}, {key, name}});
  }
  return list;
}

int list_error(const std::string& directory) {
  std::error_code error;
  const std::filesystem::directory_iterator first(directory, error);
  return error.value();
}

class Inspection {
 public:
  Inspection(int pid, const std::string& root)
      : pid_(pid),
        path_(root + "/" + std::to_string(pid)),
        held_(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    struct stat status = {};
    if (!held_.ok() || ::fstat(held_.get(), &status) != 0) {
      throw std::runtime_error("no process at \"" + escape_text(path_) +
                               "\": " + ::strerror(errno));
    }
    inode_ = status.st_ino;
  }

  Inspected take() {
    take_status();
    take_divisions();
    take_threads();
    take_open_files();
    if (document_.why_nothing() == kEnded) {
      throw std::runtime_error("no process at \"" + escape_text(path_) + "\" any more");
    }
    return {std::move(document_), memory_answers_};
  }

 private:
  enum class Memory { kUnknown, kNone, kSome };

  // A process that ends gives its memory back first, then its files (which from then on look like
  // none at all), and can be seen as a zombie before its pid is free for another.
  bool ended() const {
    const FileText status = read_file(path_ + "/status");
    const bool without_memory =
        status.error == 0 && status.text.find("\nVmRSS:") == std::string::npos;
    struct stat now;
    return (memory_ == Memory::kSome && without_memory) || ::stat(path_.c_str(), &now) != 0 ||
           now.st_ino != inode_;
  }

  // Has `reader` read what is there. Result: why what it read does not count, or not all of it;
  // empty if it does. `error` is the answer of the file itself.
  template <typename Reader>
  std::string read(int error, Reader reader) {
    if (error == 0) {
      reader();
    }
    return reason(error, output_.failure());
  }

  std::string reason(int error, const std::string& failure) const {
    return ended()              ? kEnded
           : error == ETIMEDOUT ? kNoAnswer
           : error != 0         ? ::strerror(error)
                                : failure;
  }

  // The same of a file that may never answer: `*result` is what `reader` makes of it in a child.
  // The file's own answer goes to `*error`.
  template <typename Result, typename Reader>
  std::string read_within(std::chrono::milliseconds patience, const char* file, Result* result,
                          int* error, Reader reader) {
    const FileText answer =
        answer_within(patience, sizeof(*result) + kMostOfFile, [&](const Tell& tell) {
          const int own_answer = read_file(path_ + file, 1, 0).error;
          if (own_answer == 0) {
            reader(result);
            tell({reinterpret_cast<const char*>(result), sizeof(*result)});
            tell(output_.failure());
          }
          return own_answer;
        });
    *error = answer.error;
    std::string failure;
    if (answer.text.size() >= sizeof(*result)) {
      ::memcpy(result, answer.text.data(), sizeof(*result));
      failure = answer.text.substr(sizeof(*result));
    }
    return reason(answer.error, failure);
  }

  void take_status() {
    tw_process_desc blank = {};
    blank.ppid = blank.threads = blank.fd_size = kUnset;
    blank.vm_hwm_kb = blank.vm_rss_kb = kUnsetKb;
    tw_process_desc desc = blank;
    int error = 0;
    std::string why = read_within(kReadPatience, "/status", &desc, &error,
                                  [&](auto* to) { tw_process_check_status(pid_, to); });
    if (error == ETIMEDOUT) {
      // Its command line is what does not answer: the rest is read without.
      memory_answers_ = false;
      taskwarden_spare_user(TASKWARDEN_EVERYBODY, 1);
      why = read(0, [&] { tw_process_check_status(pid_, &desc); });
      taskwarden_spare_user(TASKWARDEN_EVERYBODY, 0);
    }
    if (why == kEnded) {
      desc = blank;
    } else if (desc.vm_rss_kb != kUnsetKb) {
      memory_ = Memory::kSome;
    } else if (desc.threads != kUnset) {
      // The lines on memory would have come before this one.
      memory_ = Memory::kNone;
    }
    why = why.empty() ? "not in the status file" : why;
    const auto set = [&](const char* key, bool filled, Json value) {
      document_.set(key, std::move(value), filled ? "" : why);
    };
    const auto set_size = [&](const char* key, uint64_t kb) {
      const bool filled = kb != kUnsetKb;
      set(key, filled || memory_ == Memory::kNone, filled ? Json(kb) : Json());
    };
    set("name", desc.name[0] != '\0', desc.name);
    set("state", desc.state != '\0', std::string(1, desc.state));
    set("parent", desc.ppid != kUnset, desc.ppid);
    set("threads", desc.threads != kUnset, desc.threads);
    set("descriptor_table", desc.fd_size != kUnset, desc.fd_size);
    set_size("resident_kb", desc.vm_rss_kb);
    set_size("peak_kb", desc.vm_hwm_kb);
  }

  void take_divisions() {
    std::array<vma_division_t, VMA_DIVISION_COUNT> divisions = {};
    int error = ETIMEDOUT;
    const std::string why =
        memory_answers_ ? read_within(kAreasPatience, "/smaps", &divisions, &error,
                                      [&](auto* to) { tw_process_check_smaps(pid_, to->data()); })
                        : reason(error, "");
    memory_answers_ &= error != ETIMEDOUT;
    if (!why.empty()) {
      const bool none = error != 0 && memory_ == Memory::kNone && why != kEnded;
      document_.set("divisions", {}, none ? "" : why);
      return;
    }
    Json list = Json::array();
    for (size_t i = 0; i < divisions.size(); ++i) {
      list.push_back({{"virtual_kb", divisions[i].vss_kb},
                      {"resident_kb", divisions[i].rss_kb},
                      {"proportional_kb", divisions[i].pss_kb},
                      {"areas", divisions[i].vma_count},
                      {"division", vma_division_typename(static_cast<VMA_DIVISION_TYPE>(i))}});
    }
    document_.set("divisions", std::move(list));
  }

  void take_threads() {
    StringCounter names;
    const std::string why =
        read(list_error(path_ + "/task"), [&] { tw_process_check_threads(pid_, &names); });
    document_.set("thread_names", why.empty() ? ranked(names, "name") : Json(), why);
  }

  void take_open_files() {
    StringCounter kinds;
    tw_process_desc desc = {};
    desc.open_files = kUnset;
    std::string why =
        read(list_error(path_ + "/fd"), [&] { tw_process_check_openfiles(pid_, &desc, &kinds); });
    if (why.empty() && desc.open_files == kUnset) {
      why = ::strerror(EACCES);  // the one failure on which that reader is silent
    }
    document_.set("descriptors", desc.open_files, why);
    if (!why.empty()) {
      document_.set("open_files", {}, why);
      return;
    }
    int32_t unread = desc.open_files;
    for (const auto& [kind, count] : kinds) {
      unread -= count;
    }
    document_.set("open_files", ranked(kinds, "kind"),
                  unread == 0 ? ""
                              : std::to_string(unread) + " of " + std::to_string(desc.open_files) +
                                    " targets");
  }

  const int pid_;
  const std::string path_;
  // Keeps the kernel from using the inode's number again, by which the process is known.
  const unique_fd held_;
  ino_t inode_ = 0;
  Memory memory_ = Memory::kUnknown;
  bool memory_answers_ = true;
  ReaderOutput output_;
  Document document_;
};

}  // namespace

Inspected inspect_process(int pid, const std::string& root) {
  return Inspection(pid, root).take();
}

}  // namespace host
