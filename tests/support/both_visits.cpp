#include "support/both_visits.h"

#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "audit/audit_event_manager.h"
#include "audit/audit_initialize.h"
#include "audit/process_collector.h"
#include "platform/process_calls.h"
#include "proctable/inspection.h"
#include "proctable/kept_visits.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "proctable/table_notes.h"
#include "support/captured_output.h"
#include "support/fake_clock.h"
#include "taskwarden/taskwarden.h"

namespace {

constexpr size_t kMostActors = 12;

struct Stat {
  pid_t parent;
  char state;
};

Stat stat_of(const std::filesystem::path& task) {
  std::ifstream file(task / "stat");
  std::string text;
  std::getline(file, text, '\0');  // nothing once it is gone
  Stat stat = {0, '-'};
  const size_t name_end = text.rfind(')');
  if (name_end != text.npos)
    std::istringstream(text.substr(name_end + 1)) >> stat.state >> stat.parent;
  return stat;
}

std::filesystem::path directory_of(pid_t pid) {
  return "/proc/" + std::to_string(pid);
}

// Takes out of the list what a scan put there and is not to be watched.
void unlink_others(tw_process_list* list, const std::set<pid_t>& pids) {
  tw_process_entry* last = nullptr;
  for (tw_process_entry *entry = list->head, *next; entry != nullptr; entry = next) {
    next = entry->next;
    const bool is_new = std::string_view(entry->desc.name).starts_with("<dummy");
    if (!is_new || pids.contains(static_cast<pid_t>(entry->pid))) {
      last = entry;
      continue;
    }
    (last != nullptr ? last->next : list->head) = next;
    if (next != nullptr) next->prev = last;
    --list->count, --list->remaining;
    *entry = {};
  }
}

std::string numbers_of(const tw_process_desc& desc) {
  std::ostringstream out;
  out << desc.name << ' ' << desc.state << ' ' << desc.threads << ' ' << desc.open_files << ' '
      << desc.fd_size << ' ' << desc.vm_rss_kb << '/' << desc.vm_hwm_kb << ' ' << desc.vss_kgsl_kb
      << ' ' << desc.vss_ashmem_kb;
  return out.str();
}

// As at the first start, whatever the process before the fork had in it.
void empty(tw_process_list* list) {
  while (tw_process_entry* entry = list->head) {
    list->head = entry->next;
    *tw_process_note_of(list, entry->pid) = {};
    *entry = {};
  }
  list->count = 0;
  for (ProcessCollector* ranking : {list->runtime_collector, list->native_collector}) {
    *ranking = ProcessCollector(ranking->name);
  }
}

// Orders are lines of pids. Each is answered by what the pass told; then the count of native
// processes, and "pid|parent|numbers|levels" for each process left; and a NUL.
[[noreturn]] void watch(int orders, int answers, bool only_what_ran) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  FakeClock clock;
  CapturedOutput output;
  if (AuditEventManager::getInstance()->hubs.empty()) tw_audit_initialize();
  tw_process_list* const list = tw_process_list_create();
  empty(list);
  taskwarden_visit_only_what_ran(only_what_ran);
  tw_settle_kept_visits();
  FILE* const in = fdopen(orders, "r");
  char* line = nullptr;
  for (size_t size = 0; getline(&line, &size, in) > 0;) {
    std::set<pid_t> pids;
    std::istringstream words(line);
    for (pid_t pid; words >> pid;) pids.insert(pid);
    clock.advance_ms(2000);
    tw_process_list_refresh(list);
    unlink_others(list, pids);
    for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, INT_MAX, &at);
    std::string said =
        output.report() + output.log() + '\1' + std::to_string(list->native_count) + "\n";
    for (const auto* entry = list->head; entry != nullptr; entry = entry->next) {
      said += std::to_string(entry->pid) + "|" + std::to_string(entry->desc.ppid) + "|" +
              numbers_of(entry->desc) + "|" +
              (entry->baseline_taken ? numbers_of(entry->baseline) : "young") +
              (entry->interested ? " i" : "") + "|" + std::to_string(entry->inspected_time) + "\n";
    }
    said += '\0';
    for (size_t at = 0; at < said.size();) {
      const ssize_t n = write(answers, said.data() + at, said.size() - at);
      if (n <= 0) _exit(1);
      at += static_cast<size_t>(n);
    }
  }
  _exit(0);
}

// What a process maps together with others counts for less when more do, and what other programs of
// the machine do is not ours. So this is left out: such sizes, and what an event says, and sends,
// when nothing else has changed.
std::string without_shares(const std::string& told) {
  static const std::regex shares(
      "PSS +[0-9]+|\t -> THE MAX INCREASE is \"DALVIK\" \\(0\\)\n|"
      "\\|taskwarden  client socket connectting\\|socket size = [0-9]+\\|"
      "socket data = [^|]*Event_ResidentSize[^|]*\\|"
      "socket sendbuff = [^|@]*@@[^@]*@@Event_ResidentSize@@[^@]*@@|"
      "@[0-9]+@@[0-9]+@@Event_ResidentSize@@[^@]*@@");
  return std::regex_replace(told, shares, "");
}

// Empty if there is none. A child may be visited before its parent was found gone.
std::string difference(const Account& full, const Account& kept, const Account& full_before) {
  std::string text;
  if (full.told != kept.told) text = full.told + "\n--- kept:\n" + kept.told;
  if (full.numbers.size() != kept.numbers.size()) text += "not as many processes\n";
  int late = 0;
  for (const auto& [pid, parent] : kept.parents) {
    if (!full.numbers.contains(pid)) continue;
    const bool left = full_before.numbers.contains(parent) && !full.numbers.contains(parent);
    const auto row = [pid = pid](const Account& account) {
      return account.numbers.at(pid) + "|" + account.levels.at(pid) + "\n";
    };
    late += parent != full.parents.at(pid) ? 1 : 0;
    if (row(full) != row(kept) || (parent != full.parents.at(pid) && !left)) {
      text += std::to_string(full.parents.at(pid)) + " " + row(full) + "kept " +
              std::to_string(parent) + " " + row(kept);
    }
  }
  if (abs(full.natives - kept.natives) > late) text += "not as many native ones\n";
  return text;
}

int occurrences(const std::string& text, const std::string& of) {
  int count = 0;
  for (size_t at = 0; (at = text.find(of, at)) != text.npos; ++at) ++count;
  return count;
}

std::map<pid_t, uint64_t> clocks_of(const std::vector<pid_t>& pids) {
  std::map<pid_t, uint64_t> clocks;
  for (const pid_t pid : pids) tw_read_cpu_clock(static_cast<uint32_t>(pid), &clocks[pid]);
  return clocks;
}

}  // namespace

bool is_asleep(pid_t pid) {
  std::error_code gone;
  for (std::filesystem::directory_iterator task(directory_of(pid) / "task", gone), end;
       !gone && task != end; task.increment(gone)) {
    const char state = stat_of(*task).state;
    if (state == 'R' || state == 'D' || state == '-') return false;
  }
  return !gone;
}

WatchProcess::WatchProcess(bool only_what_ran) {
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  const unique_fd reads(in[0]), writes(out[1]);
  orders_.reset(in[1]), answers_.reset(out[0]);
  pid_ = fork();
  if (pid_ == 0) {
    orders_.reset(), answers_.reset();
    watch(in[0], out[1], only_what_ran);
  }
}

WatchProcess::~WatchProcess() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

Account WatchProcess::pass(const std::vector<pid_t>& pids, RecordListener& records) {
  std::string order;
  for (const pid_t pid : pids) order += std::to_string(pid) + " ";
  dprintf(orders_.get(), "%s\n", order.c_str());
  std::string said;
  for (char text[4096]; !said.ends_with('\0');) {
    const ssize_t n = read(answers_.get(), text, sizeof(text));
    if (n <= 0) throw std::runtime_error("a watch has ended");
    said.append(text, static_cast<size_t>(n));
  }
  Account account;
  account.told = said.substr(0, said.find('\1'));
  for (std::string record; (record = records.next(0)) != "(nothing)";) account.told += "@" + record;
  account.told = without_shares(account.told);
  std::istringstream rows(said.substr(said.find('\1') + 1));
  rows >> account.natives >> std::ws;
  for (std::string pid, parent, numbers, levels;
       std::getline(rows, pid, '|') && std::getline(rows, parent, '|') &&
       std::getline(rows, numbers, '|') && std::getline(rows, levels);) {
    account.parents[std::stoi(pid)] = std::stoi(parent);
    account.numbers[std::stoi(pid)] = numbers;
    account.levels[std::stoi(pid)] = levels;
  }
  return account;
}

BothVisits::BothVisits(unsigned seed) : random_(seed) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);  // else pages are brought in while they sleep
}

BothVisits::~BothVisits() {
  actors_.clear(), ended_.clear();
  for (const pid_t pid : population()) waitpid(pid, nullptr, 0);
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

std::vector<pid_t> BothVisits::population() {
  std::map<pid_t, pid_t> parents;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    if (pid >= TW_FIRST_TRACKED_PID) parents[pid] = stat_of(entry).parent;
  }
  std::vector<pid_t> found;
  for (const auto& [pid, parent] : parents) {
    pid_t at = pid;
    while (at != getpid() && at != full_.pid() && at != kept_.pid() && parents.contains(at)) {
      at = parents[at];
    }
    if (at == getpid() && pid != getpid()) found.push_back(pid);
  }
  return found;
}

void BothVisits::settle() {
  std::map<pid_t, uint64_t> before, now;
  bool asleep = false;
  do {
    const std::vector<pid_t> pids = population();
    before = std::exchange(now, clocks_of(pids));
    asleep = std::all_of(pids.begin(), pids.end(), is_asleep);
    usleep(500);
  } while (!asleep || before != now);
}

void BothVisits::move() {
  if (actors_.empty() || (actors_.size() < kMostActors && at_most(9) == 0)) {
    actors_.push_back(std::make_unique<Child>("actor" + std::to_string(at_most(99))));
    return;
  }
  const size_t which = static_cast<size_t>(at_most(static_cast<int>(actors_.size()) - 1));
  Child& actor = *actors_[which];
  const std::string few = std::to_string(1 + at_most(30)), one = std::to_string(1 + at_most(1));
  const std::string commands[] = {"threads Thread- " + few,
                                  "files " + few,
                                  "sockets " + few,
                                  "pipes " + few,
                                  "close " + few,
                                  "table " + std::to_string(64 << at_most(3)),
                                  "anon " + std::to_string(1 + at_most(3000)),
                                  "unmap " + one,
                                  "fork " + one,
                                  "share " + one,
                                  "exec actor" + std::to_string(at_most(99))};
  const int kind = at_most(static_cast<int>(std::size(commands)) + 3);
  ++counts_["moves"];
  kill(actor.pid(), SIGCONT);
  if (kind < static_cast<int>(std::size(commands))) {
    actor.command(commands[kind]);
  } else if (kind == static_cast<int>(std::size(commands))) {
    kill(actor.pid(), SIGSTOP);
  } else if (kind == static_cast<int>(std::size(commands)) + 1) {
    actor.end();  // its children stay
    ended_.push_back(std::move(actors_[which]));
    actors_.erase(actors_.begin() + static_cast<std::ptrdiff_t>(which));
  } else if (!ended_.empty()) {
    ended_.erase(ended_.begin());  // with its children, which nobody has waited for
  } else {
    for (const pid_t pid : population()) waitpid(pid, nullptr, WNOHANG);
  }
}

void BothVisits::compare_until(std::chrono::steady_clock::time_point end) {
  while (std::chrono::steady_clock::now() < end) {
    for (int moves = at_most(3); moves >= 0; --moves) move();
    settle();
    // Now and then all sleep for longer than readings are apart.
    const int passes = at_most(19) == 0 ? TW_READING_RHYTHM + 5 : 1 + at_most(2);
    for (int i = 0; i < passes; ++i) {
      const std::vector<pid_t> pids = population();
      const Account full = full_.pass(pids, records_), kept = kept_.pass(pids, records_);
      counts_["passes"] += 1;
      counts_["events"] += occurrences(full.told, "-> audit evnet");
      counts_["records"] += occurrences(full.told, "@@Event_");
      const std::string differs = difference(full, kept, before_);
      if (!differs.empty()) throw std::runtime_error(differs);
      before_ = full;
    }
  }
}

void BothVisits::run_free_until(std::chrono::steady_clock::time_point end) {
  std::map<pid_t, int> still;  // rounds since it was last seen to have run
  while (std::chrono::steady_clock::now() < end) {
    const std::vector<pid_t> pids = population();
    const auto before = clocks_of(pids);
    move();
    const Account full = full_.pass(pids, records_);
    move();
    const Account kept = kept_.pass(pids, records_);
    const auto after = clocks_of(pids);
    counts_["free passes"] += 1;
    for (const pid_t pid : pids) still[pid] = before.at(pid) == after.at(pid) ? still[pid] + 1 : 0;
    for (const auto& [pid, numbers] : full.numbers) {
      const auto other = kept.numbers.find(pid);
      if (other == kept.numbers.end() || other->second == numbers) continue;
      const auto shares_with_busy = [&still, pid = pid](pid_t with) {
        return still[with] < 2 &&
               tw_share_state(static_cast<uint32_t>(pid), static_cast<uint32_t>(with));
      };
      const auto is_running = [](const std::string& row) { return row.find(" R ") != row.npos; };
      if (still[pid] < 2 || is_running(numbers) || is_running(other->second)) {
        counts_[still[pid] == 0 ? "ran meanwhile" : "a visit late"] += 1;
      } else if (numbers.find(" Z ") != numbers.npos && other->second.find(" Z ") != numbers.npos) {
        counts_["ended, and had last been read at different times"] += 1;
      } else if (std::any_of(pids.begin(), pids.end(), shares_with_busy)) {
        counts_["shares with one that ran"] += 1;
      } else {
        throw std::runtime_error("unexplained: " + numbers + "\nkept " + other->second);
      }
    }
  }
}
