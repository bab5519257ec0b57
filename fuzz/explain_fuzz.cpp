// The texts of the process file system that tell who a process is and what it holds: each input is
// taken for every one of them.
#include <algorithm>
#include <vector>

#include "host/explain/command_words.h"
#include "host/explain/group_place.h"
#include "host/explain/look_words.h"
#include "host/explain/memory_names.h"
#include "host/explain/open_names.h"
#include "host/explain/process_stat.h"
#include "target.h"

using host::Part;

// What holds of any holdings; and they have nothing more than themselves.
static void check(const host::Holdings& held, Part part) {
  int64_t sum = held.others_amount;
  for (size_t i = 0; i < held.largest.size(); ++i) {
    const host::Holding& row = held.largest[i];
    require(row.amount >= 0 && row.swapped_kb <= row.amount && !row.kind.empty());
    require(row.name.size() <= host::kHoldingNameMost);
    require(i == 0 || held.largest[i - 1].amount >= row.amount);
    sum = std::min(sum + row.amount, INT64_C(1) << 60);
  }
  require(sum == held.total && held.largest.size() <= host::kHoldingsKept);
  host::Look look;
  look.of(part).holdings = look.of(Part::kFolders).holdings = held;
  require(host::grown_rows(held, held, look, part, 9).rows.empty());
  for (const std::string& line : host::row_lines(look, part, host::held_rows(look, part, 9))) {
    require(std::none_of(line.begin(), line.end(),
                         [](char c) { return static_cast<unsigned char>(c) < ' '; }));
  }
}

void fuzz(std::string_view text) {
  host::MemoryNames memory;
  host::OpenNames files;
  std::vector<host::SocketTables> tables(6);
  for (auto& table : tables) {
    for (uint64_t inode = 0; inode < 10; ++inode) table.want(inode);
  }
  each_line(text, [&](std::string_view line) {
    memory.take(line);
    line.remove_suffix(line.ends_with('\n') ? 1 : 0);
    files.take(line, line.size() % 2 == 0, line.size() % 3 == 0);
    for (size_t i = 0; i < tables.size(); ++i) {
      tables[i].take(static_cast<host::SocketTables::Table>(i), line);
      files.sockets().take(static_cast<host::SocketTables::Table>(i), line);
    }
    require(host::thread_family_of(line, line) == line);
    const std::string family = host::thread_family_of(line, "");
    require(family.size() <= line.size() + 1 && host::thread_family_of(family, "") == family);
  });
  check(memory.ranked(), Part::kMemory);
  for (const uint64_t inode : files.unknown_sockets()) files.set_protocol(inode, text);
  check(files.ranked(), Part::kFiles);
  check(files.folders(), Part::kFiles);
  for (const auto& table : tables) {
    for (uint64_t inode = 0; inode < 10; ++inode) table.name_of(inode);
    require(table.name_of(10).empty());
  }
  if (const auto stat = host::parse_process_stat(text)) {
    require(text.find('(' + stat->name + ')') != text.npos);
  }
  const auto words = host::command_words(text);
  const std::string script = host::script_of(words);
  require(script.empty() || std::count(words.begin(), words.end(), script) > 0);
  const host::GroupPlace place = host::place_of(host::parse_control_groups(text));
  require(text.find(place.path) != text.npos);
  require(host::open_files_limit_of(text) >= -1 && host::parse_uid(text) >= -1);
  require(text.find(host::parse_user(text, 7)) != text.npos);
}
