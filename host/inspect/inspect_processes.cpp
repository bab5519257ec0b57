#include "host/inspect/inspect_processes.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <exception>
#include <thread>
#include <utility>

#include "host/common/escape.h"
#include "host/common/json_line.h"
#include "host/common/output.h"
#include "host/common/time_words.h"
#include "host/common/until_signal.h"
#include "host/explain/look.h"
#include "host/explain/look_words.h"
#include "host/inspect/document.h"
#include "host/inspect/inspect_process.h"
#include "host/inspect/look_difference.h"
#include "host/inspect/process_list.h"

namespace host {
namespace {

// Somebody waits for one answer, and the kernel may have to walk gigabytes for it.
constexpr std::chrono::seconds kPatience{5};

Look look_again(int pid, const ProcessOptions& options, bool memory_answers = true) {
  return look_at(
      {.whom = {.pid = pid, .proc_root = options.proc_root, .no_arguments = options.no_arguments},
       .memory_answers = memory_answers,
       .patience = kPatience});
}

// Adds what the look found.
void attach(const Look& look, Document* document) {
  if (look.exists) {
    document->attach("who", whom_object(look.whom), "who", whom_lines(look.whom));
  } else {
    document->attach("who", {}, "who", {}, look.of(Part::kThreads).why);
  }
  const std::pair<Part, const char*> parts[] = {
      {Part::kMemory, "memory"}, {Part::kFiles, "files"}, {Part::kThreads, "thread_families"}};
  for (const auto& [part, key] : parts) {
    const Look::Held& held = look.of(part);
    if (!held.is_known && !look.exists) {
      document->attach(key, {}, std::string(part_name(part)) + " by name", {}, held.why);
      continue;
    }
    Rows rows = held_rows(look, part, kHoldingsKept);
    const std::string why = !held.is_known ? held.why : rows.whole ? "" : kNotWhole;
    rows.whole = true;
    document->attach(key, row_list(look, part, rows), std::string(part_name(part)) + " by name",
                     row_lines(look, part, rows), why);
  }
}

class Inspector {
 public:
  explicit Inspector(const ProcessOptions& options) : options_(options) {}

  int run() {
    for (const std::string& word : options_.processes) {
      const std::vector<int> found = find_processes(word, options_.proc_root);
      if (found.empty()) {
        complain("no process is called \"" + escape_text(word) + "\"");
      }
      for (const int pid : found) {
        if (std::find(pids_.begin(), pids_.end(), pid) == pids_.end()) {
          pids_.push_back(pid);
        }
      }
    }
    std::erase_if(pids_, [this](int pid) { return !print(pid); });
    if (options_.every != 0) {
      follow();
    }
    return failed_ ? 1 : 0;
  }

 private:
  void complain(const std::string& why) {
    say(why);
    failed_ = true;
  }

  void write(const std::string& text) { failed_ |= !write_text(Stream::kOut, text); }

  // Prints the process, and keeps the look at it. False where it does not exist.
  bool print(int pid) {
    try {
      auto [document, memory_answers] = inspect_process(pid, options_.proc_root);
      Look look = look_again(pid, options_, memory_answers);
      attach(look, &document);
      const bool is_first = looks_.empty();
      write(options_.json ? document.json({{"pid", pid}})
                          : (is_first ? "" : "\n") + document.text(options_.zeros));
      if (const std::string why = document.why_nothing(); !why.empty()) {
        complain("nothing could be read: " + escape_text(why));
      }
      looks_.push_back(std::move(look));
      return true;
    } catch (const std::exception& error) {
      complain(error.what());
      return false;
    }
  }

  // Looks at all again and again, until there is none left.
  void follow() {
    auto next = std::chrono::steady_clock::now();
    while (!pids_.empty()) {
      next += std::chrono::seconds(options_.every);
      std::this_thread::sleep_until(next);
      for (size_t i = 0; i < pids_.size();) {
        const bool is_there = print_difference(pids_[i], &looks_[i]);
        if (!is_there) {
          pids_.erase(pids_.begin() + static_cast<ptrdiff_t>(i));
          looks_.erase(looks_.begin() + static_cast<ptrdiff_t>(i));
        }
        i += is_there ? 1 : 0;
      }
    }
  }

  bool print_difference(int pid, Look* before) {
    Look now = look_again(pid, options_);
    const bool is_same = now.exists && now.whom.start == before->whom.start;
    if (!is_same) {
      say("process " + std::to_string(pid) + " has ended, or cannot be read any more");
      return false;
    }
    if (options_.json) {
      Json object = {{"pid", pid}, {"name", now.whom.name}};
      object.update(difference_object(*before, now));
      write(json_line(object) + "\n");
    } else {
      std::string text = "\n" + iso_time(now.time) + " " + std::to_string(pid) + " \"" +
                         escape_text(now.whom.name) + "\": ";
      for (const std::string& line : difference_lines(*before, now)) {
        text += line + "\n";
      }
      write(text);
    }
    *before = std::move(now);
    return true;
  }

  const ProcessOptions options_;
  std::vector<int> pids_;
  std::vector<Look> looks_;  // the last of each
  bool failed_ = false;
};

int print_table(const ProcessOptions& options) {
  std::vector<ProcessRow> rows = list_processes(options.proc_root);
  sort_processes(options.sort, &rows);
  std::string text = options.json ? "" : process_table(rows);
  for (const ProcessRow& row : rows) {
    text += options.json ? json_line(process_object(row)) + "\n" : "";
  }
  return write_text(Stream::kOut, text) ? 0 : 1;
}

}  // namespace

int inspect_processes(const ProcessOptions& options) {
  if (options.all) {
    return print_table(options);
  }
  if (options.every == 0) {
    return Inspector(options).run();
  }
  block_signals({});
  return run_until_signal([inspector = Inspector(options)]() mutable { return inspector.run(); });
}

}  // namespace host
