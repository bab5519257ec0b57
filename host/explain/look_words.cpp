#include "host/explain/look_words.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "host/common/escape.h"
#include "host/common/time_words.h"

namespace host {
namespace {

constexpr int64_t kFolderLeast = 8;
constexpr size_t kCommandShown = 400;  // bytes of a line for people

// The folders of which no single file says enough.
std::vector<Growth> telling_folders(const std::vector<Growth>& folders,
                                    const std::vector<Growth>& files, bool by_growth) {
  const auto weight = [&](const Growth& row) { return by_growth ? row.grown : row.now.amount; };
  std::vector<Growth> telling;
  for (const Growth& folder : folders) {
    int64_t largest = 0;
    for (const Growth& file : files) {
      const size_t slash = file.now.name.rfind('/');
      if (slash != file.now.name.npos && file.now.kind == folder.now.kind &&
          file.now.name.compare(0, slash + 1, folder.now.name) == 0) {
        largest = std::max(largest, weight(file));
      }
    }
    if (weight(folder) >= kFolderLeast && weight(folder) > 2 * largest) {
      telling.push_back(folder);
      telling.back().now.kind = folder.now.kind == "deleted file" ? "deleted files in" : "folder";
    }
  }
  return telling;
}

std::vector<Growth> all_of(const Holdings& holdings) {
  std::vector<Growth> rows;
  for (const Holding& held : holdings.largest) {
    rows.push_back({held, 0});
  }
  return rows;
}

// Puts the folders in their places, and leaves out what is more than `most`.
void settle(std::vector<Growth> folders, size_t most, Rows* rows) {
  rows->rows.insert(rows->rows.end(), folders.begin(), folders.end());
  std::stable_sort(rows->rows.begin(), rows->rows.end(), [](const Growth& a, const Growth& b) {
    return std::pair(a.grown, a.now.amount) > std::pair(b.grown, b.now.amount);
  });
  for (size_t i = most; i < rows->rows.size(); ++i) {
    const Holding& held = rows->rows[i].now;
    if (held.kind != "folder" && held.kind != "deleted files in") {
      ++rows->others;
      rows->others_amount += rows->rows[i].grown != 0 ? rows->rows[i].grown : held.amount;
    }
  }
  rows->rows.resize(std::min(most, rows->rows.size()));
}

// Seconds since the thread started; -1 if not known.
int64_t newest_age(const Look& look, const Holding& held) {
  const auto ticks = static_cast<int64_t>(std::max(::sysconf(_SC_CLK_TCK), 1L));
  if (look.whom.age_s == Whom::kNotKnown || held.newest_start == 0) {
    return Whom::kNotKnown;
  }
  const int64_t later = static_cast<int64_t>(held.newest_start - look.whom.start);
  return std::max<int64_t>(look.whom.age_s - later / ticks, 0);
}

std::string amount_words(Part part, int64_t amount) {
  return std::to_string(amount) + (part == Part::kMemory ? " kB" : "");
}

std::string row_line(const Look& look, Part part, const Growth& row) {
  const Holding& held = row.now;
  std::string line = escape_text(held.kind);
  line += held.name.empty() ? ": " : " " + quote_text(held.name) + ": ";
  if (row.grown != 0) {
    line +=
        amount_words(part, std::abs(row.grown)) + (row.grown > 0 ? " more" : " less") + ", now ";
  }
  line += amount_words(part, held.amount);
  if (held.areas > 1) {
    line += " in " + std::to_string(held.areas) + " areas";
    if (2 * held.largest_kb > held.amount) {
      line += ", the largest " + std::to_string(held.largest_kb) + " kB";
    }
  }
  if (held.swapped_kb > 0) {
    line += ", " + std::to_string(held.swapped_kb) + " kB of it swapped out";
  }
  if (held.newest != 0) {
    const int64_t age = newest_age(look, held);
    line += ", the newest is " + std::to_string(held.newest) +
            (age == Whom::kNotKnown ? "" : ", " + span_words(static_cast<double>(age)) + " old");
  }
  return line;
}

Json known(int64_t number) {
  return number == Whom::kNotKnown || number == Whom::kUnlimited ? Json() : Json(number);
}

Json known(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

}  // namespace

Rows held_rows(const Look& look, Part part, size_t most) {
  const Holdings& held = look.of(part).holdings;
  Rows rows{all_of(held), held.others, held.others_amount, held.whole};
  std::vector<Growth> folders;
  if (part == Part::kFiles) {
    folders = telling_folders(all_of(look.of(Part::kFolders).holdings), rows.rows, false);
  }
  settle(std::move(folders), most, &rows);
  return rows;
}

Rows grown_rows(const Holdings& before, const Holdings& folders_before, const Look& look, Part part,
                size_t most) {
  const Holdings& held = look.of(part).holdings;
  Rows rows{grown(before, held), 0, 0, held.whole};
  std::vector<Growth> folders;
  if (part == Part::kFiles) {
    folders =
        telling_folders(grown(folders_before, look.of(Part::kFolders).holdings), rows.rows, true);
  }
  settle(std::move(folders), most, &rows);
  return rows;
}

std::vector<std::string> whom_lines(const Whom& whom) {
  std::string line;
  const auto add = [&](const std::string& text) { line += (line.empty() ? "" : ", ") + text; };
  if (whom.uid != Whom::kNotKnown) {
    add("user " + (whom.user.empty() ? std::to_string(whom.uid) : escape_text(whom.user)));
  }
  if (whom.age_s != Whom::kNotKnown) {
    add(span_words(static_cast<double>(whom.age_s)) + " old");
  }
  if (!whom.container.empty()) {
    add((whom.runtime.empty() ? "" : escape_text(whom.runtime) + " ") + "container " +
        escape_text(whom.container));
  }
  if (!whom.pod.empty()) {
    add("pod " + escape_text(whom.pod));
  }
  if (!whom.unit.empty()) {
    add("unit " + escape_text(whom.unit));
  } else if (whom.container.empty() && !whom.control_group.empty()) {
    add("control group " + escape_text(whom.control_group));
  }
  if (whom.parent != Whom::kNotKnown) {
    add("parent " + std::to_string(whom.parent) +
        (whom.parent_name.empty() ? "" : " " + quote_text(whom.parent_name)));
  }
  if (whom.open_files_limit != Whom::kNotKnown && whom.open_files_limit != Whom::kUnlimited) {
    add("at most " + std::to_string(whom.open_files_limit) + " open files");
  }
  if (whom.group_limit_kb != Whom::kNotKnown) {
    add("its group at most " + std::to_string(whom.group_limit_kb) + " kB" +
        (whom.group_kb == Whom::kNotKnown ? "" : " (now " + std::to_string(whom.group_kb) + ")"));
  }
  std::vector<std::string> lines;
  if (!line.empty()) {
    lines.push_back(line);
  }
  std::string command;
  for (const std::string& word : whom.command) {
    command += (command.empty() ? "" : " ") + escape_text(word);
  }
  if (command.size() > kCommandShown) {
    command = command.substr(0, kCommandShown) + " ...";
  }
  if (!command.empty()) {
    lines.push_back("command line: " + command);
  }
  if (!whom.script.empty()) {
    lines.push_back("script: " + escape_text(whom.script));
  }
  return lines;
}

std::vector<std::string> row_lines(const Look& look, Part part, const Rows& rows) {
  std::vector<std::string> lines;
  for (const Growth& row : rows.rows) {
    lines.push_back(row_line(look, part, row));
  }
  if (rows.others != 0) {
    lines.push_back("others: " + amount_words(part, rows.others_amount) + " under " +
                    std::to_string(rows.others) + (rows.others == 1 ? " name" : " names"));
  }
  if (!rows.whole) {
    lines.push_back(std::string("(") + kNotWhole + ")");
  }
  return lines;
}

Json whom_object(const Whom& whom) {
  return {{"command_line", whom.command.empty() ? Json() : Json(whom.command)},
          {"script", known(whom.script)},
          {"uid", known(whom.uid)},
          {"user", known(whom.user)},
          {"age_seconds", known(whom.age_s)},
          {"control_group", known(whom.control_group)},
          {"unit", known(whom.unit)},
          {"container", known(whom.container)},
          {"container_runtime", known(whom.runtime)},
          {"pod", known(whom.pod)},
          {"parent", known(whom.parent)},
          {"parent_name", known(whom.parent_name)},
          {"open_files_limit", known(whom.open_files_limit)},
          {"group_limit_kb", known(whom.group_limit_kb)},
          {"group_kb", known(whom.group_kb)}};
}

Json row_list(const Look& look, Part part, const Rows& rows) {
  Json list = Json::array();
  for (const Growth& row : rows.rows) {
    Json object = Json::object();
    const bool memory = part == Part::kMemory;
    if (row.grown != 0) {
      object[memory ? "increase_kb" : "increase"] = row.grown;
    }
    object[memory ? "kb" : "count"] = row.now.amount;
    if (memory) {
      object["swapped_kb"] = row.now.swapped_kb;
      object["areas"] = row.now.areas;
    }
    if (part == Part::kThreads) {
      object["newest"] = row.now.newest == 0 ? Json() : Json(row.now.newest);
      object["newest_age_seconds"] = known(newest_age(look, row.now));
    } else {
      object["kind"] = row.now.kind;
    }
    object["name"] = known(row.now.name);
    list.push_back(std::move(object));
  }
  if (rows.others != 0) {
    list.push_back({{part == Part::kMemory ? "kb" : "count", rows.others_amount},
                    {"kind", "others"},
                    {"names", rows.others}});
  }
  return list;
}

}  // namespace host
