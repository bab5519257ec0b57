// A status file. Before the first 0xFF byte, if there is one, stands the command line.
#include "inspect/status_parse.h"
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
  const tw_process_desc old = {"old", -3, '?', -4, -5, 6, 7, 1, 2, 3, 4, 5, 8};
  tw_process_desc got = old;
  pid_of_zygote = pid_of_zygote64 = 0;
  LineReader lines(text);
  tw_status_parse(7, lines, read_command_line, &got);
  require(memchr(got.name, '\0', sizeof(got.name)) != nullptr);
  const std::string_view name = got.name;
  const bool named = name != "old";
  require(!named || name.ends_with("#7") || name.size() == sizeof(got.name) - 1);
  require(may_change(text, "Name:", named) && may_change(text, "State:", got.state != old.state) &&
          may_change(text, "PPid:", got.ppid != old.ppid) &&
          may_change(text, "FDSize:", got.fd_size != old.fd_size) &&
          may_change(text, "VmHWM:", got.vm_hwm_kb != old.vm_hwm_kb) &&
          may_change(text, "VmRSS:", got.vm_rss_kb != old.vm_rss_kb) &&
          may_change(text, "Threads:", got.threads != old.threads));
  require(memcmp(&got.vss_dalvik_kb, &old.vss_dalvik_kb, 5 * sizeof(uint64_t)) == 0 &&
          got.open_files == old.open_files);
  for (const int zygote : {pid_of_zygote, pid_of_zygote64}) {
    require(zygote == 0 || (zygote == 7 && named && text.find("PPid:") != text.npos));
  }
}
