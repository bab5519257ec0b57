// A status file against a plain reading of the same lines. Before the first 0xFF byte, if there is
// one, stands the command line.
#include <cstdlib>

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
  const std::string argument(command_line.substr(0, command_line.find('\0')));
  tw_process_desc want = {"old", -3, '?', -4, -5, 6, 7, 1, 2, 3, 4, 5, 8}, got = want;
  int zygote = 0, zygote64 = 0;
  bool ended = false;
  each_line(text, [&](std::string_view line) {
    const auto value = plain_value(line);
    const int number = value ? atoi(value->c_str()) : 0;
    const auto is = [&](std::string_view key) {
      if (ended || !line.starts_with(key)) return false;
      ended = !value || key == "Threads:" || (key == "Pid:" && number != 7);
      return value.has_value();
    };
    if (is("Name:")) {
      const std::string& base = argument.empty() || argument.size() > 57 ? *value : argument;
      strcpy(want.name, (base + "#7").substr(0, 63).c_str());
    }
    if (is("State:")) want.state = value->c_str()[0];
    if (is("PPid:")) {
      want.ppid = number;
      const std::string_view name = want.name;
      const bool is_64 = name.starts_with("zygote64");
      if (number == 1 && name.starts_with("zygote")) (is_64 ? zygote64 : zygote) = 7;
    }
    if (is("FDSize:")) want.fd_size = number;
    if (is("VmHWM:")) want.vm_hwm_kb = static_cast<uint64_t>(int64_t{number});
    if (is("VmRSS:")) want.vm_rss_kb = static_cast<uint64_t>(int64_t{number});
    if (is("Threads:")) want.threads = number;
    is("Pid:");
  });
  pid_of_zygote = pid_of_zygote64 = 0;
  LineReader lines(text);
  tw_status_parse(7, lines, read_command_line, &got);
  require(memchr(got.name, '\0', sizeof(got.name)) != nullptr && !strcmp(got.name, want.name));
  memcpy(got.name, want.name, sizeof(got.name));  // what is behind the terminator does not count
  require(memcmp(&got, &want, sizeof(got)) == 0);
  require(pid_of_zygote == zygote && pid_of_zygote64 == zygote64);
}
