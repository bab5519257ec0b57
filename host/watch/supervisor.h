// Looks at the cycle from another thread, once a second. A cycle that waits for a file of a
// process's memory is freed: the program begins anew in its own place, and leaves that memory
// alone. Tells the service manager, tries from time to time whether spared processes answer, and
// gives back what only the start needed.
#ifndef HOST_WATCH_SUPERVISOR_H_
#define HOST_WATCH_SUPERVISOR_H_

#include <cstdint>
#include <functional>
#include <string>

#include "host/common/own_image.h"
#include "host/common/record_server.h"
#include "host/watch/carried_state.h"
#include "host/watch/hold_detector.h"
#include "host/watch/service_notify.h"
#include "host/watch/sparing.h"
#include "taskwarden/taskwarden.h"

namespace host {

// Goes on with what `carried` says, before the cycle starts: spares processes and users, and says
// whose baselines begin anew.
void resume_after_hold(const CarriedState& carried);

class Supervisor {
 public:
  struct Options {
    std::string proc_root{};
    Sparing sparing{};               // as resume_after_hold() has applied it
    RecordServer* server = nullptr;  // which lives on; null if there is none
    // Adds to the state what else has to go on in the next image: called on the supervisor's
    // thread, while the cycle waits in the kernel, and other threads run. What it waits for must be
    // bounded.
    std::function<void(CarriedState* state)> save{};
  };

  explicit Supervisor(Options options)
      : options_(std::move(options)), notify_(ServiceNotify::from_environment()) {}

  // Never returns.
  [[noreturn]] void run();

 private:
  void look(int64_t now_ms);
  // The cycle was seen at the memory of `pid`, `ms` after the look before.
  void note_reading(uint32_t pid, int64_t ms, int64_t now_ms);
  void get_free(const taskwarden_progress& progress, int64_t now_ms);
  int begin_anew(CarriedState* state);
  void release_users(int64_t now_ms);
  void try_process(int64_t now_ms);

  Options options_;
  OwnImage image_;
  HoldDetector detector_;
  ServiceNotify notify_;
  int64_t looked_ms_ = 0;
  bool has_started_ = false;
};

}  // namespace host

#endif  // HOST_WATCH_SUPERVISOR_H_
