#include "host/inspect/inspect_command.h"

#include <cstdint>
#include <memory>
#include <string>

#include "host/common/escape.h"
#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/inspect/inspect_process.h"
#include "host/inspect/inspect_system.h"
#include "inspect/system/slabinfo_record.h"

namespace host {
namespace {

constexpr char kInspectFooter[] =
    R"(Reads the process PID once, as a watch does, and prints:
  name, state, parent     the name and pid, as in events; the letter of the state, as in ps(1)
  threads, thread names   how many, and how often each name occurs; numbered names count as one
  descriptor table        how many descriptors the process has room for
  resident, peak          physical memory in use, now and at its highest
  divisions               memory areas by purpose, with mapped, resident and proportional size
                          (shared pages divided among their users)
  descriptors, open files how many, and how often each file or kind of file occurs

A value that cannot be read is "not readable", with the reason, and never 0. A value that the
process does not have, like the memory of a kernel thread, is "none". If the process ends meanwhile,
the values not read yet are not readable. An ordinary user sees open files and divisions only of
processes of the same user.

With --json the output is one object with the same names, in small letters and with "_" for blanks.
Values that are "not readable" or "none" are null; "unreadable" has the reasons by name. Bytes of
names that are not UTF-8 become U+FFFD in JSON and \xNN in text.

Exit status: 0 when something was read, 1 when the process does not exist or nothing of it could be
read, 2 on wrong usage.

Example: taskwarden inspect --json $$ | jq '.divisions[] | select(.resident_kb > 100)')";

constexpr char kSlabsFooter[] =
    R"(Reads /proc/slabinfo, which only root may do. Prints how many of the kernel's object caches have
live objects, the bytes of all live objects, and the caches with the most bytes. Only the first 256
caches in use count.

With --json the output is one object with the same names, with "_" for blanks. A value that cannot
be read is null; "unreadable" has the reasons by name.

Exit status: 0 when it was read, 1 when it could not be, 2 on wrong usage.

Example: taskwarden slabs --top 3)";

constexpr char kMeminfoFooter[] =
    R"(Reads /proc/meminfo and prints the four figures that a watch uses: all memory, free memory, memory
that programs can still get, and memory that the kernel's objects hold for good. A figure that the
file does not have, or that is 2 TiB or more, is "not readable", with the reason.

With --json the output is one object with the same names, in small letters and with "_" for blanks.
A value that cannot be read is null; "unreadable" has the reasons by name.

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
    add_proc_root(*command, &options->proc_root);
    command->callback([=] { *chosen = [=] { return run(*options, look); }; });
    return command;
  };
  add("inspect", "Print what one process uses", kInspectFooter,
      [](const Options& o) { return inspect_process(o.pid, o.proc_root); })
      ->add_option("PID", options->pid, "The process")
      ->option_text(" ")
      ->check(must_be_number(1, INT32_MAX))
      ->required();
  add("slabs", "Print the kernel's largest object caches", kSlabsFooter,
      [](const Options& o) { return inspect_slabs(o.top, o.proc_root); })
      ->add_option("--top", options->top, "Print the N largest caches, 1 to 256 (default 10)")
      ->option_text("N")
      ->check(must_be_number(1, TW_SLAB_ENTRIES));
  add("meminfo", "Print the system's memory figures", kMeminfoFooter,
      [](const Options& o) { return inspect_meminfo(o.proc_root); });
}

}  // namespace host
