#include "host/listen/reaction.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <system_error>
#include <thread>

#include "host/common/escape.h"
#include "host/common/output.h"

namespace host {
namespace {

// Senders choose the names of processes, as many as they like: past so many the next to end gives
// way.
constexpr size_t kMostCooldowns = 10000;
// How often running commands are looked at.
constexpr std::chrono::milliseconds kTick{50};

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (std::string& text : texts) {
    list.push_back(text.data());
  }
  list.push_back(nullptr);
  return list;
}

// Ours, without what is told of an occasion, and with what is told of this one.
std::vector<std::string> environment_for(const HookFields& fields) {
  const std::string prefix = "TASKWARDEN_";
  std::vector<std::string> list;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with(prefix)) {
      list.emplace_back(*variable);
    }
  }
  for (const auto& [name, value] : fields) {
    list.push_back(prefix + name + "=" + value);
  }
  return list;
}

// Owns what posix_spawn(3) is told besides the command.
class SpawnSettings {
 public:
  SpawnSettings() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
    ::posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

std::string end_of(int status) {
  return WIFSIGNALED(status)
             ? std::string("was ended by a signal: ") + ::strsignal(WTERMSIG(status))
             : "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

bool Reaction::is_due(const Occasion& occasion, Clock::time_point now) {
  std::erase_if(quiet_until_, [now](const auto& entry) { return entry.second <= now; });
  if (quiet_until_.contains(occasion)) {
    return false;
  }
  if (options_.cooldown.count() != 0) {
    if (quiet_until_.size() >= kMostCooldowns) {
      quiet_until_.erase(
          std::min_element(quiet_until_.begin(), quiet_until_.end(),
                           [](const auto& a, const auto& b) { return a.second < b.second; }));
    }
    quiet_until_[occasion] = now + options_.cooldown;
  }
  return true;
}

Reaction::Reaction(Options options) : options_(std::move(options)) {
  if (!options_.command.empty()) {
    try {
      looker_ = std::thread([this] { look_after(); });
    } catch (const std::system_error&) {
      say("--exec: no thread can be started; commands that take too long end late");
    }
  }
}

Reaction::~Reaction() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }
  if (looker_.joinable()) {
    looker_.join();
  }
}

// Whether one more command may run. Commands that have ended give their places back here too.
bool Reaction::has_place() {
  std::unique_lock lock(mutex_);
  tend(lock);
  const bool free = running_.size() < options_.at_once;
  omitted_ += free ? 0 : 1;
  const bool first = !free && !omitting_;
  omitting_ = !free;
  lock.unlock();
  if (first) {
    say("--exec-limit " + std::to_string(options_.at_once) +
        " is reached: nothing runs a command until one ends");
  }
  return free;
}

void Reaction::react(const Occasion& occasion, const HookFields& fields) {
  if (!is_due(occasion, Clock::now())) {
    return;
  }
  if (!has_place()) {
    quiet_until_.erase(occasion);
    return;
  }
  const SpawnSettings settings;
  std::vector<std::string> words = options_.command;
  std::vector<std::string> environment = environment_for(fields);
  pid_t child = 0;
  const int error =
      ::posix_spawnp(&child, words[0].c_str(), settings.actions(), settings.attributes(),
                     pointers(words).data(), pointers(environment).data());
  if (error != 0) {
    say("--exec: cannot run \"" + escape_text(words[0]) + "\": " + ::strerror(error));
    const std::lock_guard lock(mutex_);
    ++omitted_;
    return;
  }
  const std::lock_guard lock(mutex_);
  running_.push_back({child, Clock::now() + options_.timeout, SIGTERM});
  changed_.notify_all();
}

void Reaction::look_after() {
  std::unique_lock lock(mutex_);
  while (!ended_) {
    changed_.wait(lock, [this] { return ended_ || !running_.empty(); });
    tend(lock);
    changed_.wait_for(lock, kTick, [this] { return ended_; });
  }
}

// Lets go of the commands that have ended, and signals those that take too long.
void Reaction::tend(std::unique_lock<std::mutex>& lock) {
  const Clock::time_point now = Clock::now();
  std::vector<std::string> said;
  const std::string name = "--exec: \"" + escape_text(options_.command[0]) + "\" ";
  std::erase_if(running_, [&](Command& command) {
    int status = 0;
    if (::waitpid(command.child, &status, WNOHANG) == command.child) {
      if (status != 0) {
        said.push_back(name + end_of(status));
      }
      return true;
    }
    if (command.next_signal != 0 && command.deadline <= now) {
      ::kill(-command.child, command.next_signal);
      if (command.next_signal == SIGTERM) {
        said.push_back(name + "takes longer than " + std::to_string(options_.timeout.count()) +
                       " s and is ended");
      }
      command.next_signal = command.next_signal == SIGTERM ? SIGKILL : 0;
      command.deadline = now + kGrace;
    }
    return false;
  });
  ++telling_;
  lock.unlock();
  for (const std::string& line : said) {
    say(line);
  }
  lock.lock();
  --telling_;
  changed_.notify_all();
}

void Reaction::wait() {
  std::unique_lock lock(mutex_);
  const auto is_done = [this] { return running_.empty() && telling_ == 0; };
  while (!is_done()) {
    if (!looker_.joinable()) {
      tend(lock);
    }
    changed_.wait_for(lock, kTick, is_done);
  }
}

std::string Reaction::omissions() const {
  const std::lock_guard lock(mutex_);
  return omitted_ == 0 ? ""
                       : "records and verdicts that ran no command, since " +
                             std::to_string(options_.at_once) +
                             " were running (see --exec-limit): " + std::to_string(omitted_);
}

}  // namespace host
