// A status file, and before its first 0xFF byte, if there is one, the command line.
#include "inspect/status.h"

#include "proctable/zygote.h"
#include "target.h"

static std::string_view command_line;  // null: cannot be read

static bool read_command_line(int /*pid*/, std::string* content) {
  *content = command_line;
  return command_line.data() != nullptr;
}

void fuzz(std::string_view text) {
  const size_t cut = text.find('\xff');
  command_line = cut != text.npos ? text.substr(0, cut) : std::string_view();
  text.remove_prefix(cut != text.npos ? cut + 1 : 0);
  const tw_process_desc before = {"old", -3, '?', -4, -5, 6, 7, 1, 2, 3, 4, 5, 8};
  tw_process_desc desc = before;
  pid_of_zygote = pid_of_zygote64 = 0;
  LineReader lines(text);
  tw_status_parse(7, lines, read_command_line, &desc);

  const auto keeps = [&](std::string_view key, auto field) {
    require(desc.*field == before.*field || text.find(key) != text.npos);
  };
  keeps("PPid:", &tw_process_desc::ppid);
  keeps("State:", &tw_process_desc::state);
  keeps("Threads:", &tw_process_desc::threads);
  keeps("FDSize:", &tw_process_desc::fd_size);
  keeps("VmHWM:", &tw_process_desc::vm_hwm_kb);
  keeps("VmRSS:", &tw_process_desc::vm_rss_kb);
  keeps("\xff", &tw_process_desc::vss_heap_kb);
  keeps("\xff", &tw_process_desc::open_files);

  const std::string_view name(desc.name, strnlen(desc.name, sizeof(desc.name)));
  const std::string_view argument = command_line.substr(0, command_line.find('\0'));
  if (name == "old") {
    require(pid_of_zygote == 0 && pid_of_zygote64 == 0);
  } else if (argument.empty() || argument.size() > 57) {
    require(name.size() == sizeof(desc.name) - 1 || (name.size() < 63 && name.ends_with("#7")));
  } else {
    require(name == std::string(argument) + "#7");
  }
  require((pid_of_zygote == 0 || pid_of_zygote == 7) &&
          (pid_of_zygote64 == 0 || pid_of_zygote64 == 7));
}
