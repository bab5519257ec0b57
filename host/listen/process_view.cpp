#include "host/listen/process_view.h"

#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "host/common/bounded_reader.h"
#include "host/common/escape.h"
#include "host/common/file_text.h"
#include "host/common/words.h"
#include "host/explain/command_words.h"
#include "host/explain/group_place.h"
#include "host/explain/process_reader.h"

namespace host {
namespace {

constexpr size_t kMost = 4096;

// NSpid lists a process's pid in each namespace from the reader's inwards, so that there is one
// alone when both have the same (proc(5)).
bool numbers_as_we_do(const Sender& sender, const std::string& proc_root) {
  const FileText status = read_file(proc_root + "/" + std::to_string(sender.pid) + "/status");
  return sender.pid > 0 && rest_of_line(status.text, "NSpid:") == "\t" + std::to_string(sender.pid);
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
  view.cgroup = place_of(parse_control_groups(files[0].text)).path;
  if (!no_arguments) {
    view.command = command_words(files[1].text);
  } else if (const std::string program = read_link(AT_FDCWD, process + "/exe"); !program.empty()) {
    view.command = {program};
  }
  return view;
}

void add_view(const ProcessView& view, Json* object) {
  (*object)["cgroup"] = view.cgroup.empty() ? Json() : Json(view.cgroup);
  (*object)["command_line"] = view.command.empty() ? Json() : Json(view.command);
}

std::string view_text(const ProcessView& view) {
  std::string text;
  if (!view.cgroup.empty()) {
    text += "\tcontrol group: " + escape_text(view.cgroup) + "\n";
  }
  for (const std::string& word : view.command) {
    text += (&word == &view.command.front() ? "\tcommand line: " : " ") + escape_text(word);
  }
  return text + (view.command.empty() ? "" : "\n");
}

}  // namespace host
