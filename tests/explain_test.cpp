// Words that mean something on Linux: explain_rows.txt; real processes; and looks compared.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <regex>

#include "host/explain/command_words.h"
#include "host/explain/explanation.h"
#include "host/explain/group_place.h"
#include "host/explain/memory_names.h"
#include "host/explain/open_names.h"
#include "host/explain/process_stat.h"
#include "host/watch/explainer.h"
#include "support/child.h"
#include "support/made_tree.h"
#include "support/row_file.h"

namespace {

using host::Part;
using namespace std::chrono_literals;

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (&line == &lines.front() ? "" : "; ") + line;
  return text;
}

std::string words_of(Part part, const host::Holdings& holdings,
                     const host::Holdings& folders = {}) {
  host::Look look;
  look.of(part).holdings = holdings;
  look.of(Part::kFolders).holdings = folders;
  return joined(host::row_lines(look, part, host::held_rows(look, part, 100)));
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string memory_of(const std::string& text) {
  host::MemoryNames names;
  std::smatch sizes;
  for (const std::string& line : lines_of(text)) {
    if (std::regex_match(line, sizes, std::regex("([0-9]+)-([0-9]+)"))) {
      names.take("Rss: " + sizes[1].str() + " kB\n");
      names.take("Swap:\t" + sizes[2].str() + " kB");
    } else {
      names.take(line);
    }
  }
  return words_of(Part::kMemory, names.ranked());
}

std::string files_of(const std::string& text) {
  host::OpenNames names;
  for (std::string line : lines_of(text)) {
    const bool end = line.starts_with("rpipe") || line.starts_with("wpipe");
    const char mode = end ? line[0] : ' ';
    names.take(end ? line.substr(1) : line, mode == 'r', mode == 'w');
  }
  return words_of(Part::kFiles, names.ranked(), names.folders());
}

std::string sockets_of(host::SocketTables::Table table, const std::string& text) {
  host::SocketTables sockets;
  std::vector<std::string> seen;
  for (uint64_t inode = 1; inode < 10; ++inode) sockets.want(inode);
  for (const std::string& line : lines_of(text)) sockets.take(table, line);
  for (uint64_t inode = 1; inode < 10; ++inode) {
    if (const std::string name = sockets.name_of(inode); !name.empty()) seen.push_back(name);
  }
  return joined(seen);
}

std::string seen_in(const std::string& kind, std::string text) {
  for (int table = 0; table < 6; ++table) {
    const auto each = static_cast<host::SocketTables::Table>(table);
    if (kind == host::SocketTables::file_name(each)) return sockets_of(each, text);
  }
  if (kind == "map") return memory_of(text);
  if (kind == "fd") return files_of(text);
  if (kind == "thread") return host::thread_family_of(text, "python3");
  if (kind == "limit") return std::to_string(host::open_files_limit_of(text));
  if (kind == "user") return host::parse_user(text, 7);
  if (kind == "run") {
    std::replace(text.begin(), text.end(), ' ', '\0');
    return host::script_of(host::command_words(text));
  }
  if (kind == "stat") {
    const auto stat = host::parse_process_stat(text);
    return !stat ? "none"
                 : stat->name + " " + std::to_string(stat->parent) + " " +
                       std::to_string(stat->start);
  }
  const host::GroupPlace place = host::place_of(host::parse_control_groups(text));
  return joined({place.path, place.unit, place.runtime, place.container, place.pod});
}

TEST(Explain, SeesWhatItsTableHas) {
  std::map<std::string, int> kinds;
  for (const auto& row : row_file(TASKWARDEN_ROWS)) {
    ++kinds[row[0]];
    const std::string last = row.size() > 2 ? row[2] : "";
    std::string text = row[1];
    // A row whose last field is empty ends in " |".
    if (row.size() == 2 && text.ends_with(" |")) text.resize(text.size() - 2);
    EXPECT_EQ(seen_in(row[0], text), last) << row[0] << ": " << row[1];
  }
  EXPECT_EQ(kinds.size(), 13U);
}

TEST(Explain, KeepsTheLargestAndNeverTellsTooMuchGrowth) {
  host::Tally before, now;
  for (int i = 0; i < 40; ++i)
    before.add({.kind = "k", .name = std::to_string(i), .amount = 100 - i});
  now.add(
      {.kind = "k", .name = "39", .amount = 100});  // was left out: it may have had as much as 77
  now.add({.kind = "k", .name = "0", .amount = 107});
  now.add({.kind = "k", .name = "1", .amount = 99});
  const host::Holdings kept = before.ranked();
  EXPECT_EQ(kept.largest.size(), host::kHoldingsKept);
  EXPECT_EQ(kept.others, 40 - int64_t(host::kHoldingsKept));
  EXPECT_EQ(kept.total, 40 * 100 - 39 * 20);
  auto growth = host::grown(kept, now.ranked());
  ASSERT_EQ(growth.size(), 2U);
  EXPECT_EQ(growth[0].now.name + growth[1].now.name, "390");
  EXPECT_EQ(growth[0].grown * 100 + growth[1].grown, 2307);
  host::Holdings part = kept;
  part.whole = false;
  EXPECT_TRUE(host::grown(part, now.ranked()).empty());
  // Beyond the bound, names are one.
  host::Tally many;
  for (size_t i = 0; i < host::kHoldingsCounted + 5; ++i)
    many.add({.name = std::to_string(i), .amount = 1});
  EXPECT_EQ(many.ranked().total, int64_t(host::kHoldingsCounted) + 5);
  EXPECT_EQ(many.ranked().others, int64_t(host::kHoldingsCounted + 5 - host::kHoldingsKept));
}

TEST(Explain, FirstLooksAreBounded) {
  host::FirstLooks looks(20000);
  host::Tally tally;
  for (int i = 0; i < 40; ++i) tally.add({.name = std::string(300, char('a' + i)), .amount = 1});
  const auto key = [](int pid) { return host::FirstLooks::Key{.pid = pid}; };
  for (int pid = 0; pid < 100; ++pid) {
    looks.keep(key(pid), {.name = "n", .holdings = tally.ranked()});
    EXPECT_NE(looks.find(key(0), "n"), nullptr) << pid;  // what is asked for stays
    EXPECT_LE(looks.bytes(), 20000U);
  }
  EXPECT_EQ(looks.find(key(50), "n"), nullptr);
  EXPECT_EQ(looks.find(key(99), "other"), nullptr);
  for (int pid = 0; pid < 100; ++pid) looks.forget(key(pid));
  EXPECT_EQ(looks.bytes(), 0U);
}

std::string explained(host::Explanations& explanations, const Child& child, Part part) {
  return joined(explanations.explain({.pid = child.pid(), .name = "n", .part = part}).lines());
}

TEST(OwnProcess, IsNamedAsTheParentOfWhatGrew) {
  Child child("odd\xff\x1b\\name");
  host::Explanations explanations({.patience = 60s});
  const std::pair<Part, std::pair<const char*, const char*>> rows[] = {
      {Part::kMemory, {"anon 4096", "\t anonymous: 40[0-9]{2} kB more, now [0-9]+ kB"}},
      {Part::kFiles, {"files 20", "\t device \"/dev/null\": 20 more, now 21"}},
      {Part::kFiles, {"sockets 7", "\t socket \"unix without a name\": 7 more, now 7"}},
      {Part::kFiles, {"pipes 4", "\t pipe \"both ends\": 4 more, now 4"}},
      {Part::kThreads,
       {"threads worker- 5",
        "\t thread \"worker-\\*\": 5 more, now 5, the newest is [0-9]+, [0-9]+ s old"}},
  };
  for (const auto& [part, row] : rows) {
    EXPECT_TRUE(std::regex_search(
        explained(explanations, child, part),
        std::regex("-> Who it is:; \t user .* old, .*parent [0-9]+ \"explain_test\".*"
                   "; \t command line: odd\\\\xFF\\\\x1B\\\\\\\\name; -> Its ")));
    child.command(row.first);
    const std::string told = explained(explanations, child, part);
    EXPECT_TRUE(std::regex_search(told, std::regex(row.second))) << row.second << " in " << told;
    EXPECT_NE(told.find(" that grew since 20"), told.npos) << told;
  }
  // Another name is another program, and so is another start.
  EXPECT_FALSE(explanations.explain({.pid = child.pid(), .name = "m", .part = Part::kFiles}).since);
  EXPECT_TRUE(explanations.explain({.pid = child.pid(), .start = 1}).is_empty());
  child.end();
  EXPECT_EQ(explained(explanations, child, Part::kMemory), "");
}

// What hides in arguments is told nowhere.
TEST(Explain, KeepsArgumentsSecret) {
  Child child("secret");
  host::Explanations shy({.no_arguments = true, .patience = 60s});
  const auto told = shy.explain({.pid = child.pid(), .part = Part::kThreads});
  host::Json object;
  told.add_to(&object);
  const std::string text = joined(told.lines()) + object.dump();
  EXPECT_EQ(text.find("secret"), text.npos) << text;
  EXPECT_NE(text.find("command line: " TASKWARDEN_CHILD), text.npos) << text;
}

// One that does not answer costs its time, and what was read before counts.
TEST(Explain, DoesNotWaitForEver) {
  MadeTree tree({{.pid = 7}});
  tree.write("7/stat", "7 (a) S 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 100 0");
  mkfifo((tree.root() / "7/smaps").c_str(), 0600);
  host::Explanations explanations({.proc_root = tree.root(), .patience = 3s});
  EXPECT_EQ(joined(explanations.explain({.pid = 7}).lines()),
            "-> Who it is:; \t parent 1; -> Its memory could not be read: did not answer in time");
}

// What is written in which order, with "!" where it is explained.
TEST(Explainer, KeepsTheOrderAndDropsExplanationsOnly) {
  std::mutex mutex;
  std::condition_variable changed;
  std::string written;
  bool may_answer = false;
  const auto write = [&](const char* what) {
    return [&, what](const host::Explanation* explanation) {
      const std::lock_guard lock(mutex);
      written += what + std::string(explanation != nullptr ? "!" : "");
      changed.notify_all();
    };
  };
  const auto answer = [&](const host::Question& question) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return may_answer; });
    host::Explanation explanation;
    explanation.look.exists = question.pid != 7;
    return explanation;
  };
  const auto wait_for = [&](const std::string& end) {
    std::unique_lock lock(mutex);
    may_answer = true;
    changed.notify_all();
    return changed.wait_for(lock, 60s, [&] { return written.ends_with(end); });
  };
  // Never ended: its thread is not, either.
  auto& few = *new host::Explainer(answer, {.questions = 2, .share = 1});
  few.put(1, write("a"));
  few.ask({.pid = 7}, 1, write("b"));
  few.ask({}, 1, write("c"));
  few.ask({}, 1, write("d"));  // one too many
  few.put(1, write("e"));
  few.start();
  EXPECT_TRUE(wait_for("abc!de")) << written;
  EXPECT_EQ(few.dropped(), 1U);

  auto& small = *new host::Explainer(answer, {.bytes = 9, .share = 1});
  small.ask({}, 8, write("f"));
  small.put(2, write("g"));
  small.ask({}, 1, write("h"));
  small.start();
  EXPECT_TRUE(wait_for("fgh")) << written;
  EXPECT_EQ(small.dropped(), 2U);

  auto& late = *new host::Explainer(answer, {.share = 0, .at_once = 0ms});
  late.ask({}, 1, write("i"));
  late.start();
  EXPECT_TRUE(wait_for("i")) << written;
  late.finish(std::chrono::steady_clock::now() + 60s);
  late.ask({}, 1, write("j"));
  EXPECT_TRUE(wait_for("j")) << written;
  EXPECT_EQ(late.dropped(), 2U);
}

}  // namespace
