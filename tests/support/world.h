// A made process tree, the table over it, a clock that moves as told, and one account of all that
// the library gives out meanwhile, in the order in which it comes.
#ifndef TESTS_SUPPORT_WORLD_H_
#define TESTS_SUPPORT_WORLD_H_

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "audit/audit_event_listener.h"
#include "proctable/process_records.h"
#include "support/fake_clock.h"
#include "support/made_tree.h"
#include "support/record_listener.h"

// The process table as at the first start, whatever was in it, with the event framework wired up.
tw_process_list* fresh_table();

// Checks that the list links each used slot once, both ways, and that `count` agrees; returns the
// pids from the head on. Throws otherwise.
std::vector<uint32_t> linked_pids(const tw_process_list* list);

class World final : public AuditEventListener {
 public:
  // Looks at `root` instead of the tree if there is one.
  explicit World(std::initializer_list<MadeProcess> processes = {}, const char* root = nullptr);
  ~World();
  World& operator=(World&&) = delete;  // nor any copy

  // What came since the last call. Reports are as they came, but for texts that come often, which
  // are checked to the letter and stood for by short ones: see kShort. A line of the log is "E
  // area|text", with a backslash where it does not end; a record that arrived "@" and its text; an
  // event that the handler has had "[id]", or "[id name]" with a plus if blocks are kept then, and
  // the slot as it is at a change of name.
  std::string told();

  // One whole pass, its scan included, `ms` after the last. Returns what it told.
  std::string pass(double ms = 0);

  // A slot in a line: name, state and parent; threads, open files, size of the descriptor table;
  // resident and peak kB; kgsl's; seconds since the identity began and the last visit; whether it
  // is (i)nteresting, and has a (b)aseline and blocks for (d)ivisions, (f)iles and (t)hreads.
  std::string row(uint32_t pid) const;

  tw_process_entry& operator[](size_t pid) { return list->entries[pid]; }

  MadeTree tree;
  tw_process_list* const list;
  FakeClock clock;
  std::function<void(std::string_view)> on_report = [](std::string_view) {};  // within each
  std::function<void(AuditEvent*)> on_event = [](AuditEvent*) {};

 private:
  bool onEventIncoming(AuditEvent* event) override;
  static void take(void* self, int output, const char* tag, const char* text, size_t length);
  void append(std::string_view text);

  RecordListener records_{64};
  std::mutex mutex_;
  std::string told_;
};

#endif  // TESTS_SUPPORT_WORLD_H_
