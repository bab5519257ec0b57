#include "host/inspect/inspect_command.h"

#include <cstddef>
#include <memory>
#include <string>

#include "host/common/escape.h"
#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/inspect/inspect_processes.h"
#include "host/inspect/inspect_system.h"
#include "inspect/system/slabinfo_record.h"

namespace host {
namespace {

constexpr size_t kNameMost = 255;

constexpr char kInspectFooter[] =
    R"(PROCESS is a pid, or a name: of the first thread, or of the program's file. A name may be a pattern
with * and ?, and stands for all processes that are called so.

Reads each process once, as a watch does, and prints:
  name, state, parent     the name and pid, as in events; the letter of the state, as in ps(1)
  threads, thread names   how many, and how often each name occurs; numbered names count as one
  descriptor table        how many descriptors the process has room for
  resident, peak          physical memory in use, now and at its highest
  who                     user, age, control group, unit or container, parent, limits, command
                          line; of an interpreter the script
  memory, files, threads  what the process holds, the largest first, by the names that people on
                          Linux know; memory counts what is swapped out
  divisions               memory areas by purpose, with mapped, resident and proportional size
                          (shared pages divided among their users)
  descriptors, open files how many, and how often each file or kind of file occurs

A value that cannot be read is "not readable", with the reason, and never 0. A value that the
process does not have, like the memory of a kernel thread, is "none". If the process ends meanwhile,
the values not read yet are not readable. An ordinary user sees open files and memory only of
processes of the same user.

With --every, the first print is followed by what there is more and less of than in the look before,
until SIGINT or SIGTERM, or until the processes have ended.

With --json the output is one object a line for each process, with the same names, in small letters
and with "_" for blanks. Values that are "not readable" or "none" are null; "unreadable" has the
reasons by name. Bytes of names that are not UTF-8 become U+FFFD in JSON and \xNN in text.

Exit status: 0 when something was read, 1 when a process does not exist or nothing of it could be
read, 2 on wrong usage.

Examples: taskwarden inspect --json $$ | jq '.divisions[] | select(.resident_kb > 100)'
          taskwarden inspect --all --sort open_files | head
          taskwarden inspect --every 10 postgres)";

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
  int top = 10;
  bool json = false;
  std::string proc_root = "/proc";
};

using Look = Document (*)(const Options&);

// Prints a look at the whole system.
int run(const Options& options, Look look) {
  const Document seen = look(options);
  const bool written =
      write_text(Stream::kOut, options.json ? seen.json(Json::object()) : seen.text());
  const std::string why = seen.why_nothing();
  if (!why.empty()) {
    say("nothing could be read: " + escape_text(why));
  }
  return written && why.empty() ? 0 : 1;
}

void add_process_options(CLI::App& command, ProcessOptions* options) {
  CLI::Option* const processes =
      command.add_option("PROCESS", options->processes, "The processes: pids or names")
          ->option_text("...")
          ->check(must_fit(kNameMost));
  CLI::Option* const all =
      command.add_flag("--all", options->all, "Print a table of all processes instead");
  all->excludes(processes);
  command.add_option("--sort", options->sort, "Order of the table (default resident; most first)")
      ->option_text("resident|threads|open_files|name|pid")
      ->check(must_be_one_of({"resident", "threads", "open_files", "name", "pid"}))
      ->needs(all);
  command
      .add_option("--every", options->every,
                  "Look again every so many seconds, 1 to 86400,\nand print the difference")
      ->option_text("SECONDS")
      ->check(must_be_number(1, 86400))
      ->excludes(all);
  command.add_flag("--zeros", options->zeros, "Show divisions that are empty, too");
  add_no_arguments(command, &options->no_arguments);
}

}  // namespace

void add_inspect_commands(CLI::App& app, std::function<int()>* chosen) {
  const auto asked = std::make_shared<ProcessOptions>();
  CLI::App& inspect = *app.add_subcommand("inspect", "Print what processes use");
  inspect.footer(kInspectFooter);
  inspect.add_flag("--json", asked->json, "Print objects instead of text");
  add_proc_root(inspect, &asked->proc_root);
  add_process_options(inspect, asked.get());
  inspect.callback([=] {
    if (asked->processes.empty() && !asked->all) {
      throw CLI::RequiredError("PROCESS");
    }
    *chosen = [=] { return inspect_processes(*asked); };
  });

  const auto options = std::make_shared<Options>();
  const auto add = [&](const char* name, const char* about, const char* footer, Look look) {
    CLI::App* const command = app.add_subcommand(name, about);
    command->footer(footer);
    command->add_flag("--json", options->json, "Print an object instead of text");
    add_proc_root(*command, &options->proc_root);
    command->callback([=] { *chosen = [=] { return run(*options, look); }; });
    return command;
  };
  add("slabs", "Print the kernel's largest object caches", kSlabsFooter,
      [](const Options& o) { return inspect_slabs(o.top, o.proc_root); })
      ->add_option("--top", options->top, "Print the N largest caches, 1 to 256 (default 10)")
      ->option_text("N")
      ->check(must_be_number(1, TW_SLAB_ENTRIES));
  add("meminfo", "Print the system's memory figures", kMeminfoFooter,
      [](const Options& o) { return inspect_meminfo(o.proc_root); });
}

}  // namespace host
