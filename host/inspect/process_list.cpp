#include "host/inspect/process_list.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include "host/common/escape.h"
#include "host/common/file_text.h"
#include "host/common/words.h"
#include "host/explain/process_reader.h"

namespace host {
namespace {

constexpr size_t kStatusMost = 16384;

bool is_number(std::string_view word) {
  return !word.empty() && word.find_first_not_of("0123456789") == word.npos;
}

std::vector<int> all_pids(const std::string& root) {
  std::vector<int> pids;
  std::error_code error;
  std::filesystem::directory_iterator entry(root, error);
  if (error) {
    throw std::runtime_error("cannot read \"" + escape_text(root) + "\": " + error.message());
  }
  for (; entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    int pid = 0;
    if (parse_number(entry->path().filename().string(), &pid) && pid > 0) {
      pids.push_back(pid);
    }
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

int64_t count_entries(const std::string& path) {
  std::error_code error;
  std::filesystem::directory_iterator entry(path, error);
  int64_t count = 0;
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    ++count;
  }
  return error ? ProcessRow::kNotKnown : count;
}

// The status file writes a line feed and a backslash in a name as \n and \\.
std::string unescaped(std::string_view name) {
  std::string out;
  for (size_t i = 0; i < name.size(); ++i) {
    const bool escape = name[i] == '\\' && i + 1 < name.size();
    i += escape ? 1 : 0;
    out += escape && name[i] == 'n' ? '\n' : name[i];
  }
  return out;
}

std::string file_name(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

void parse_status(std::string_view status, ProcessRow* row) {
  const std::map<std::string_view, int64_t*> numbers = {
      {"VmRSS", &row->resident_kb}, {"VmSwap", &row->swapped_kb}, {"Threads", &row->threads}};
  each_line_of(status, [&](std::string_view line) {
    const std::string_view key = take_until(&line, ':');
    if (const auto number = numbers.find(key); number != numbers.end()) {
      *number->second = take_amount(&line);
    } else if (key == "Name" && row->name.empty()) {
      row->name = unescaped(line.substr(line.starts_with('\t') ? 1 : 0));
    }
  });
}

std::vector<ProcessRow> list_processes(const std::string& root) {
  std::vector<ProcessRow> rows;
  for (const int pid : all_pids(root)) {
    const std::string process = root + "/" + std::to_string(pid);
    const FileText status = read_file(process + "/status", kStatusMost);
    if (status.error == 0) {
      ProcessRow& row = rows.emplace_back();
      row.pid = pid;
      parse_status(status.text, &row);
      row.open_files = count_entries(process + "/fd");
    }
  }
  return rows;
}

std::vector<int> find_processes(const std::string& word, const std::string& root) {
  std::vector<int> found;
  if (is_number(word)) {
    int pid = 0;
    return parse_number(word, &pid) ? std::vector{pid} : found;
  }
  const auto is_meant = [&](const std::string& name) {
    return !name.empty() && ::fnmatch(word.c_str(), name.c_str(), 0) == 0;
  };
  for (const int pid : all_pids(root)) {
    const std::string process = root + "/" + std::to_string(pid);
    ProcessRow row;
    parse_status(read_file(process + "/status", kStatusMost).text, &row);
    if (is_meant(row.name) || is_meant(file_name(read_link(AT_FDCWD, process + "/exe")))) {
      found.push_back(pid);
    }
  }
  return found;
}

void sort_processes(const std::string& by, std::vector<ProcessRow>* rows) {
  const std::map<std::string, int64_t ProcessRow::*> numbers = {
      {"resident", &ProcessRow::resident_kb},
      {"threads", &ProcessRow::threads},
      {"open_files", &ProcessRow::open_files}};
  std::stable_sort(rows->begin(), rows->end(), [&](const ProcessRow& a, const ProcessRow& b) {
    if (const auto number = numbers.find(by); number != numbers.end()) {
      return a.*number->second > b.*number->second;
    }
    return by == "name" ? a.name < b.name : a.pid < b.pid;
  });
}

std::string process_table(const std::vector<ProcessRow>& rows) {
  const auto cell = [](int64_t number) {
    return number == ProcessRow::kNotKnown ? std::string("-") : std::to_string(number);
  };
  std::vector<std::vector<std::string>> lines = {
      {"pid", "resident kB", "swapped kB", "threads", "open files"}};
  for (const ProcessRow& row : rows) {
    lines.push_back({cell(row.pid), cell(row.resident_kb), cell(row.swapped_kb), cell(row.threads),
                     cell(row.open_files)});
  }
  std::vector<size_t> widths(lines[0].size());
  for (const auto& line : lines) {
    for (size_t i = 0; i < line.size(); ++i) {
      widths[i] = std::max(widths[i], line[i].size());
    }
  }
  std::string text;
  for (size_t n = 0; n < lines.size(); ++n) {
    for (size_t i = 0; i < widths.size(); ++i) {
      text += std::string(widths[i] - lines[n][i].size(), ' ') + lines[n][i] + "  ";
    }
    text += (n == 0 ? "name" : escape_text(rows[n - 1].name)) + "\n";
  }
  return text;
}

Json process_object(const ProcessRow& row) {
  const auto known = [](int64_t number) {
    return number == ProcessRow::kNotKnown ? Json() : Json(number);
  };
  return {{"pid", row.pid},
          {"name", row.name},
          {"resident_kb", known(row.resident_kb)},
          {"swapped_kb", known(row.swapped_kb)},
          {"threads", known(row.threads)},
          {"open_files", known(row.open_files)}};
}

}  // namespace host
