// The limits that processes run into, read seldom: some of them in turn at each pass. One thread.
#ifndef HOST_WATCH_LIMITS_H_
#define HOST_WATCH_LIMITS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/common/control_groups.h"

namespace host {

// -1 for what is not known or not limited.
struct Limits {
  int64_t open_files = -1;
  int64_t memory_room_kb = -1;  // how much more its control groups can take
  int64_t threads_room = -1;    // likewise, and the whole system
};

class LimitReader {
 public:
  struct Places {
    std::string proc_root = "/proc";
    std::string cgroup_root = "/sys/fs/cgroup";
  };

  explicit LimitReader(Places places);

  // What one process needs to be remembered for.
  struct Place {
    int32_t open_files = -1;
    uint32_t group = 0;
    double due = 0;  // seconds after boot; when it is to be read next
  };

  // Begins a pass: reads what the whole system has left, and some groups, where they are due.
  void begin_pass(double now);
  // The limits of a process that is at `place`. Reads its files if that is due and few others
  // were read in this pass.
  Limits look(int32_t pid, double now, Place* place);
  // Reads the files of the process now.
  void read(int32_t pid, double now, Place* place);

  // The systemd unit of a process that was read, or else its container; empty if it has neither.
  const std::string& unit(const Place& place) const { return groups_[place.group].unit; }
  // What the system can still hand out; -1 if unknown.
  int64_t memory_available_kb() const { return available_kb_; }

  // A process that was first seen at `now` is read a minute later: most do not live as long.
  static Place place_at(double now) { return {-1, 0, now + 60}; }

 private:
  struct Group {
    ControlGroups paths{};
    std::string key{};  // the text of the process's file
    std::string unit{};
    GroupRoom room{};
    double due = 0;
    double used = 0;  // when it was last asked for
  };

  uint32_t find_group(const std::string& text, double now);
  void read_group(double now, Group* group);
  void read_system(double now);

  const Places places_;
  std::vector<Group> groups_;  // the first is that of processes that were not read
  double system_due_ = 0;
  int64_t available_kb_ = -1;
  int64_t threads_room_ = -1;
  size_t reads_left_ = 0;  // in this pass
};

}  // namespace host

#endif  // HOST_WATCH_LIMITS_H_
