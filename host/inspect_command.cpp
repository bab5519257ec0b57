#include "host/inspect_command.h"

#include <errno.h>
#include <string.h>

#include <cstdint>
#include <memory>
#include <string>

#include "host/escape.h"
#include "host/inspect_process.h"
#include "host/inspect_system.h"
#include "host/option_checks.h"
#include "host/output.h"
#include "inspect/system/slabinfo_record.h"
#include "taskwarden/taskwarden.h"

namespace host {
namespace {

using Json = Document::Json;

constexpr char kInspectFooter[] =
    R"(Looks at the process PID once, as a watch does on its rounds and after an event, and prints:
  name, state, parent     the name with the pid, as in events; the state's letter as in ps(1)
  threads, thread names   how many, and how often each name occurs; numbered families are folded
  descriptor table        how many descriptors the process has room for
  resident, peak          physical memory in use, now and at most
  divisions               memory areas by what they are for: mapped, resident and proportional
                          (shared pages divided among their users) sizes
  descriptors, open files how many, and how often each file or kind of file occurs

What the kernel does not let you read is told as "not readable" with the reason, never as 0; what
the process does not have, such as a kernel thread's memory, is "none". If the process ends during
the look, what was not read by then is not readable for that reason. An ordinary user sees the open
files and divisions of its own processes only.

With --json it is one object of the same names, with "_" for blanks and in small letters. Both "not
readable" and "none" are null, and "unreadable" is an object of the reasons by name. Bytes of names
that are not UTF-8 become U+FFFD there, and \xNN in the text.

Exit status: 0 when something was read, 1 when the process does not exist or nothing of it could be
read, 2 on wrong usage.

Example: taskwarden inspect --json $$ | jq '.divisions[] | select(.resident_kb > 100)')";

constexpr char kSlabsFooter[] =
    R"(Reads /proc/slabinfo, which is for root only, and prints how many of the kernel's object caches
have live objects, the bytes of these objects in all, and the largest caches by them. At most the
first 256 caches in use are looked at.

With --json it is one object of the same names, with "_" for blanks. What could not be read is null,
and "unreadable" is an object of the reasons by name.

Exit status: 0 when it was read, 1 when it could not be, 2 on wrong usage.

Example: taskwarden slabs --top 3)";

constexpr char kMeminfoFooter[] =
    R"(Reads /proc/meminfo and prints the four figures that a watch goes by: all memory, what is free of
it, what programs could still get, and what the kernel's own objects hold for good. A figure that
the file does not have, or of 2 TiB or more, is told as not readable, with the reason.

With --json it is one object of the same names, with "_" for blanks and in small letters. What could
not be read is null, and "unreadable" is an object of the reasons by name.

Exit status: 0 when a figure was read, 1 when none could be, 2 on wrong usage.

Example: taskwarden meminfo --json | jq .mem_available_kb)";

struct Options {
  int pid = 0;
  int top = 10;
  bool json = false;
  std::string proc_root = "/proc";
};

using Look = Document (*)(const Options&);

int run(const Options& options, Look look) {
  if (taskwarden_set_proc_root(options.proc_root.c_str()) != 0) {
    say(std::string("--proc-root: ") + ::strerror(errno));
    return 2;
  }
  const Document seen = look(options);
  const Json given = options.pid != 0 ? Json({{"pid", options.pid}}) : Json::object();
  const bool written = write_text(Stream::kOut, options.json ? seen.json(given) : seen.text());
  const std::string why = seen.why_nothing();
  if (!why.empty()) {
    say("nothing could be read: " + escape_text(why));
  }
  return written && why.empty() ? 0 : 1;
}

}  // namespace

void add_inspect_commands(CLI::App& app, std::function<int()>* chosen) {
  const auto options = std::make_shared<Options>();
  const auto add = [&](const char* name, const char* about, const char* footer, Look look) {
    CLI::App* const command = app.add_subcommand(name, about);
    command->footer(footer);
    command->add_flag("--json", options->json, "Print an object instead of text");
    command
        ->add_option("--proc-root", options->proc_root,
                     "Look into the process file system at DIR, not /proc")
        ->option_text("DIR");
    command->callback([=] { *chosen = [=] { return run(*options, look); }; });
    return command;
  };
  add("inspect", "Print what is seen of one process", kInspectFooter,
      [](const Options& o) { return inspect_process(o.pid, o.proc_root); })
      ->add_option("PID", options->pid, "The process")
      ->option_text(" ")
      ->check(decimal())
      ->check(CLI::Range(1, INT32_MAX))
      ->required();
  add("slabs", "Print the kernel's largest object caches", kSlabsFooter,
      [](const Options& o) { return inspect_slabs(o.top, o.proc_root); })
      ->add_option("--top", options->top, "Print the N largest, 1 to 256; 10 unless told")
      ->option_text("N")
      ->check(decimal())
      ->check(CLI::Range(1, TW_SLAB_ENTRIES));
  add("meminfo", "Print the system's memory figures", kMeminfoFooter,
      [](const Options& o) { return inspect_meminfo(o.proc_root); });
}

}  // namespace host
