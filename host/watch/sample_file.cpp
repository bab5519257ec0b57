#include "host/watch/sample_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "host/common/escape.h"
#include "host/common/output.h"
#include "host/common/write_whole.h"

namespace host {
namespace {

constexpr std::string_view kHeader =
    "time,pid,start,name,resident_kb,threads,open_files,open_files_limit,threads_limit,"
    "memory_limit_kb,memory_available_kb\n";

void append_name(std::string_view name, std::string* row) {
  if (name.find_first_of("\",\r\n") == name.npos) {
    *row += name;
    return;
  }
  *row += '"';
  for (const char c : name) {
    row->append(c == '"' ? 2 : 1, c);
  }
  *row += '"';
}

}  // namespace

std::string sample_row(const judge::Sample& sample) {
  char time[32];
  std::snprintf(time, sizeof(time), "%.2f", sample.time);
  std::string row = std::string(time) + "," + std::to_string(sample.pid);
  const auto add = [&row](int64_t number) {
    row += ",";
    row += number < 0 ? "" : std::to_string(number);
  };
  add(sample.start);
  row += ",";
  append_name(sample.name, &row);
  for (const int64_t number :
       {sample.resident_kb, sample.threads, sample.open_files, sample.open_files_limit,
        sample.threads_limit, sample.memory_limit_kb, sample.memory_available_kb}) {
    add(number);
  }
  return row + "\n";
}

bool SampleFile::open(const std::string& path) {
  path_ = path;
  fd_.reset(
      ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
  if (!fd_.ok() || !begin()) {
    why_ = "cannot record to \"" + escape_text(path) +
           "\": " + (why_.empty() ? ::strerror(errno) : why_);
    fd_.reset();
    return false;
  }
  return true;
}

bool SampleFile::begin() {
  struct stat file = {};
  if (::fstat(fd_.get(), &file) != 0) {
    return false;
  }
  if (!S_ISREG(file.st_mode)) {
    why_ = "it is no plain file";
    return false;
  }
  if (file.st_size == 0) {
    rows_ = kHeader;
    return true;
  }
  char head[kHeader.size()];
  if (::pread(fd_.get(), head, sizeof(head), 0) != static_cast<ssize_t>(sizeof(head)) ||
      std::string_view(head, sizeof(head)) != kHeader) {
    why_ = "it holds something else";
    return false;
  }
  // A watch that was killed may have left half a row.
  char last = 0;
  whole_ = file.st_size;
  while (whole_ > 0 && ::pread(fd_.get(), &last, 1, whole_ - 1) == 1 && last != '\n') {
    --whole_;
  }
  return ::ftruncate(fd_.get(), whole_) == 0;
}

void SampleFile::add(const judge::Sample& sample) {
  if (fd_.ok()) {
    rows_ += sample_row(sample);
  }
}

void SampleFile::flush() {
  if (rows_.empty()) {
    return;
  }
  const auto rows = static_cast<unsigned long long>(std::count(rows_.begin(), rows_.end(), '\n'));
  if (write_whole(fd_.get(), rows_)) {
    whole_ += static_cast<off_t>(rows_.size());
    if (lost_ != 0) {
      say("--record: there is room again; " + std::to_string(lost_) + " rows are missing");
    }
    lost_ = 0;
    rows_.clear();
    return;
  }
  if (lost_ == 0) {
    say("--record: cannot write to \"" + escape_text(path_) + "\": " + ::strerror(errno));
  }
  lost_ += rows - (whole_ == 0 ? 1 : 0);
  // Without the half row that may have been written; the header is kept for the next time.
  static_cast<void>(!::ftruncate(fd_.get(), whole_));
  rows_.resize(whole_ == 0 ? kHeader.size() : 0);
}

}  // namespace host
