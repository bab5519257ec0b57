#include "transcript.h"

#include <sys/mman.h>
#include <unistd.h>

#include <regex>
#include <stdexcept>
#include <string_view>

#include "taskwarden/taskwarden.h"

Transcript::Transcript() : file_(memfd_create("transcript", MFD_CLOEXEC)) {
  if (!file_.ok()) {
    throw std::runtime_error("no memory file");
  }
  taskwarden_set_output(take, this);
}

Transcript::~Transcript() {
  taskwarden_set_output(nullptr, nullptr);
}

// Each text with its NUL. Of the reports, only lines that say of something that it happened.
void Transcript::take(void* self, int output, const char* /*tag*/, const char* text,
                      size_t length) {
  const std::string_view line(text, length);
  if (output == TASKWARDEN_OUTPUT_LOG || line.starts_with("-> audit evnet") ||
      line.starts_with(">>")) {
    [[maybe_unused]] const ssize_t written =
        write(static_cast<Transcript*>(self)->file_.get(), text, length + 1);
  }
}

std::map<std::string, int> Transcript::kinds() const {
  std::string all(static_cast<size_t>(lseek(file_.get(), 0, SEEK_CUR)), '\0');
  if (pread(file_.get(), all.data(), all.size(), 0) != static_cast<ssize_t>(all.size())) {
    throw std::runtime_error("the transcript cannot be read");
  }
  static const std::regex kNumber("\\d+");
  std::map<std::string, int> kinds;
  for (size_t at = 0; at < all.size(); at = all.find('\0', at) + 1) {
    std::string kind = std::regex_replace(std::string(&all[at]), kNumber, "N");
    while (kind.ends_with('\n')) {
      kind.pop_back();
    }
    ++kinds[kind];
  }
  return kinds;
}
