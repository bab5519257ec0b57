#include "host/watch/carried_state.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <type_traits>
#include <utility>

#include "host/common/json_line.h"
#include "host/common/output.h"
#include "host/common/write_whole.h"

namespace host {
namespace {

constexpr char kVariable[] = "TASKWARDEN_CARRIED";
constexpr int kVersion = 1;
constexpr size_t kMostBytes = 256 << 20;
constexpr int kSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;

// Members of an object, taken with their ranges. A failure stays.
class Reader {
 public:
  explicit Reader(const Json& object) : object_(object) {}

  template <typename Number>
  void take(const char* key, Number* to) {
    const Json& member = at(key);
    if constexpr (std::is_same_v<Number, bool>) {
      if (failed_ |= !member.is_boolean(); !failed_) {
        *to = member.get<bool>();
      }
    } else if (failed_ |= !fits<Number>(member); !failed_) {
      *to = member.get<Number>();
    }
  }
  void take(const char* key, std::string* to) {
    const Json& member = at(key);
    if (failed_ |= !member.is_string(); !failed_) {
      *to = member.get<std::string>();
    }
  }
  // `each` is given a Reader of each object of the array.
  template <typename Each>
  void take_all(const char* key, Each each) {
    const Json& list = at(key);
    failed_ |= !list.is_array();
    for (size_t i = 0; !failed_ && i < list.size(); ++i) {
      Reader reader(list[i]);
      each(reader);
      failed_ |= reader.failed_;
    }
  }
  bool failed() const { return failed_; }

 private:
  const Json& at(const char* key) {
    static const Json nothing;
    failed_ |= !object_.is_object() || !object_.contains(key);
    return failed_ ? nothing : object_[key];
  }
  template <typename Number>
  static bool fits(const Json& member) {
    using Limits = std::numeric_limits<Number>;
    return member.is_number_unsigned()
               ? member.get<uint64_t>() <= static_cast<uint64_t>(Limits::max())
               : member.is_number_integer() && std::is_signed_v<Number> &&
                     member.get<int64_t>() >= static_cast<int64_t>(Limits::min());
  }

  const Json& object_;
  bool failed_ = false;
};

template <typename Item, typename Of>
concept Is = std::is_same_v<std::remove_const_t<Item>, Of>;

// The members of what is carried, named the same when they are written and when they are read.
void each_member(Is<pid_t> auto& child, auto visit) {
  visit("pid", &child);
}

void each_member(Is<SparedProcess> auto& process, auto visit) {
  visit("pid", &process.pid);
  visit("start", &process.start_time);
  visit("uid", &process.uid);
  visit("file", &process.file);
  visit("next_try_ms", &process.next_try_ms);
  visit("delay_ms", &process.delay_ms);
}

void each_member(Is<SparedUser> auto& user, auto visit) {
  visit("uid", &user.uid);
  visit("until_ms", &user.until_ms);
}

void each_member(Is<Hold> auto& hold, auto visit) {
  visit("uid", &hold.uid);
  visit("at_ms", &hold.at_ms);
}

void each_member(Is<Share> auto& share, auto visit) {
  visit("uid", &share.uid);
  visit("since_ms", &share.since_ms);
  visit("spent_ms", &share.spent_ms);
}

// Its lists are visited by `visit_list`.
void each_member(Is<CarriedState> auto& state, auto visit, auto visit_list) {
  visit("comm", &state.comm);
  visit("held_by", &state.held_by);
  visit("baselines", &state.baselines);
  visit("listener", &state.listener);
  visit("is_paused", &state.is_paused);
  visit("wants_dump", &state.wants_dump);
  visit("undelivered", &state.undelivered);
  visit("refused_senders", &state.refused_senders);
  visit("refused_texts", &state.refused_texts);
  visit("first_try_ms", &state.sparing.first_try_ms);
  visit_list("children", &state.children);
  visit_list("processes", &state.sparing.processes);
  visit_list("users", &state.sparing.users);
  visit_list("holds", &state.sparing.holds);
  visit_list("shares", &state.sparing.shares);
}

// The text has to outlive every byte string that a process chose: none is in the JSON but `comm`,
// which is ours.
Json json_of(const CarriedState& state, pid_t pid) {
  Json object = {{"version", kVersion}, {"of", pid}};
  const auto writes_to = [](Json* to) {
    return [to](const char* key, const auto* member) { (*to)[key] = *member; };
  };
  each_member(state, writes_to(&object), [&](const char* key, const auto* items) {
    Json& list = object[key] = Json::array();
    for (const auto& item : *items) {
      each_member(item, writes_to(&list.emplace_back(Json::object())));
    }
  });
  Json& attachments = object["attachments"] = Json::array();
  for (const auto& [name, bytes] : state.attachments) {
    attachments.push_back({{"name", name}, {"bytes", bytes.size()}});
  }
  return object;
}

bool take_members(Reader& reader, CarriedState* state) {
  const auto takes_from = [](Reader* from) {
    return [from](const char* key, auto* member) { from->take(key, member); };
  };
  each_member(*state, takes_from(&reader), [&](const char* key, auto* items) {
    reader.take_all(key,
                    [&](Reader& item) { each_member(items->emplace_back(), takes_from(&item)); });
  });
  // A pid that is none would stand for any child there is (waitpid(2)).
  return !reader.failed() && std::all_of(state->children.begin(), state->children.end(),
                                         [](pid_t child) { return child > 0; });
}

bool take_attachments(Reader& reader, std::string_view bytes, CarriedState* state) {
  bool fits = true;
  reader.take_all("attachments", [&](Reader& attachment) {
    std::string name;
    uint64_t size = 0;
    attachment.take("name", &name);
    attachment.take("bytes", &size);
    fits &= size <= bytes.size();
    if (fits && !attachment.failed()) {
      state->attachments[name] = bytes.substr(0, size);
      bytes.remove_prefix(size);
    }
  });
  return fits && bytes.empty() && !reader.failed();
}

unique_fd memory_file() {
  constexpr unsigned kNotToBeRun = 8;  // MFD_NOEXEC_SEAL, which kernels before 6.3 do not know
  constexpr char kName[] = "taskwarden state";
  unique_fd fd(::memfd_create(kName, MFD_CLOEXEC | MFD_ALLOW_SEALING | kNotToBeRun));
  if (!fd.ok() && errno == EINVAL) {
    fd.reset(::memfd_create(kName, MFD_CLOEXEC | MFD_ALLOW_SEALING));
  }
  return fd;
}

bool set_close_on_exec(int fd, bool closes) {
  return fd < 0 || ::fcntl(fd, F_SETFD, closes ? FD_CLOEXEC : 0) == 0;
}

// The whole text of the sealed file of that number. Nobody but us makes such a file, and any other
// descriptor stays as it is.
std::optional<std::string> read_sealed(int number, std::string_view* why) {
  struct stat status;
  if (::fcntl(number, F_GET_SEALS) < kSeals || ::fstat(number, &status) != 0) {
    *why = "it is no sealed file";
    return std::nullopt;
  }
  const unique_fd fd(number);
  if (static_cast<uint64_t>(status.st_size) > kMostBytes) {
    *why = "it is too large";
    return std::nullopt;
  }
  std::string text(static_cast<size_t>(status.st_size), '\0');
  size_t filled = 0;
  ssize_t n = 1;
  while (filled < text.size() && n > 0) {
    n = ::pread(fd.get(), text.data() + filled, text.size() - filled, static_cast<off_t>(filled));
    filled += n > 0 ? static_cast<size_t>(n) : 0;
  }
  *why = "it cannot be read";
  return filled == text.size() ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace

std::string carried_text(const CarriedState& state, pid_t pid) {
  std::string text = json_line(json_of(state, pid)) + "\n";
  for (const auto& [name, bytes] : state.attachments) {
    text += bytes;
  }
  return text;
}

std::optional<CarriedState> parse_carried(std::string_view text, pid_t pid, std::string_view* why) {
  const size_t end = text.find('\n');
  const Json object = Json::parse(text.substr(0, end), nullptr, false);
  Reader reader(object);
  int version = 0;
  pid_t owner = 0;
  reader.take("version", &version);
  reader.take("of", &owner);
  CarriedState state;
  if (end == text.npos || reader.failed()) {
    *why = "it is garbled";
  } else if (version != kVersion) {
    *why = "it is of another version";
  } else if (owner != pid) {
    *why = "it is another process's";
  } else if (!take_members(reader, &state) ||
             !take_attachments(reader, text.substr(end + 1), &state)) {
    *why = "it is garbled";
  } else {
    return state;
  }
  return std::nullopt;
}

unique_fd leave_state(const CarriedState& state) {
  unique_fd fd = memory_file();
  if (!fd.ok() || !write_whole(fd.get(), carried_text(state, ::getpid())) ||
      ::fcntl(fd.get(), F_ADD_SEALS, kSeals) != 0 || !set_close_on_exec(fd.get(), false) ||
      !set_close_on_exec(state.listener, false) ||
      ::setenv(kVariable, std::to_string(fd.get()).c_str(), 1) != 0) {
    return {};
  }
  return fd;
}

void withdraw_state(const CarriedState& state) {
  ::unsetenv(kVariable);
  set_close_on_exec(state.listener, true);
}

std::optional<CarriedState> take_state() {
  const char* const variable = ::getenv(kVariable);
  if (variable == nullptr) {
    return std::nullopt;
  }
  const std::string_view text = variable;
  int number = -1;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string_view why = "its number is none";
  std::optional<CarriedState> state;
  if (parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() && number > 2) {
    const std::optional<std::string> content = read_sealed(number, &why);
    state = content ? parse_carried(*content, ::getpid(), &why) : std::nullopt;
  }
  ::unsetenv(kVariable);
  if (!state) {
    say("what was carried over from before is left aside: " + std::string(why));
  }
  return state;
}

}  // namespace host
