#include "host/listen/process_view.h"

#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "host/common/bounded_reader.h"
#include "host/common/escape.h"
#include "host/common/file_text.h"
#include "host/explain/command_words.h"
#include "host/explain/process_reader.h"

namespace host {
namespace {

constexpr size_t kMost = 4096;

// The rest of the first line of `text` that begins with `key`.
std::optional<std::string> line_after(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    if (line.starts_with(key)) {
      return std::string(line.substr(key.size()));
    }
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return std::nullopt;
}

// NSpid lists a process's pid in each namespace from the reader's inwards, so that there is one
// alone when both have the same (proc(5)).
bool numbers_as_we_do(const Sender& sender, const std::string& proc_root) {
  const FileText status = read_file(proc_root + "/" + std::to_string(sender.pid) + "/status");
  const std::optional<std::string> pids = line_after(status.text, "NSpid:");
  return sender.pid > 0 && pids == "\t" + std::to_string(sender.pid);
}

}  // namespace

ProcessView view_process(const Record& record, const Sender& sender, const std::string& proc_root,
                         bool no_arguments) {
  ProcessView view;
  if (record.pid <= 0 || !numbers_as_we_do(sender, proc_root)) {
    return view;
  }
  const std::string process = proc_root + "/" + std::to_string(record.pid);
  const std::vector<FileText> files =
      no_arguments ? std::vector{read_file(process + "/cgroup", kMost)}
                   : read_files_within({process + "/cgroup", process + "/cmdline"}, kMost);
  const FileText& cgroup = files[0];
  if (cgroup.error == 0) {
    // The unified hierarchy's, or else that by which systemd knows it (cgroups(7)).
    view.cgroup = line_after(cgroup.text, "0::");
    view.cgroup = view.cgroup ? view.cgroup : line_after(cgroup.text, "1:name=systemd:");
  }
  if (!no_arguments) {
    view.command = command_words(files[1].text);
  } else if (const std::string program = read_link(AT_FDCWD, process + "/exe"); !program.empty()) {
    view.command = {program};
  }
  return view;
}

void add_view(const ProcessView& view, Json* object) {
  (*object)["cgroup"] = view.cgroup ? Json(*view.cgroup) : Json();
  (*object)["command_line"] = view.command.empty() ? Json() : Json(view.command);
}

std::string view_text(const ProcessView& view) {
  std::string text;
  if (view.cgroup) {
    text += "\tcontrol group: " + escape_text(*view.cgroup) + "\n";
  }
  for (const std::string& word : view.command) {
    text += (&word == &view.command.front() ? "\tcommand line: " : " ") + escape_text(word);
  }
  return text + (view.command.empty() ? "" : "\n");
}

}  // namespace host
