// The event framework: who is told what, and in which order.
#include <gtest/gtest.h>

#include "audit/audit_event_manager.h"
#include "audit/audit_initialize.h"
#include "audit/entry_blocks.h"
#include "audit/poll.h"
#include "audit/process_collector.h"
#include "blocks/tagged_block.h"
#include "inspect/system/meminfo_record.h"
#include "support/world.h"

TEST(Framework, DeliversToAllWhoListenOrSaysThereIsNoSource) {
  World w({{.pid = 400}});
  AuditEventManager& manager = *AuditEventManager::getInstance();
  const auto hubs = manager.hubs;
  tw_audit_initialize();  // adds the handler again
  EXPECT_EQ(manager.hubs, hubs);
  for (const auto& [source, hub] : hubs) {
    EXPECT_EQ(hub->source, source);
    EXPECT_EQ(hub->listeners,
              (std::vector{hub->listeners[0], hub->listeners[1], hub->listeners[0]}));
    hub->listeners.pop_back();
  }
  // Two listeners and two events: each has the first before any has the second.
  manager.addListener(AUDIT_SOURCE_MEMINFO, hubs.at(AUDIT_SOURCE_MEMINFO)->listeners.back());
  tw_meminfo_t bad = {0, 0, 0, 2097152};
  std::string ids;
  w.on_event = [&](AuditEvent* event) {
    EXPECT_TRUE(event->source == AUDIT_SOURCE_MEMINFO && event->data == &bad);
    ids += std::to_string(event->id) + " ";
  };
  tw_event_poll_meminfo(&bad);
  EXPECT_EQ(ids, "2048 2048 2049 2049 ");
  hubs.at(AUDIT_SOURCE_MEMINFO)->listeners.pop_back();
  w.on_event = [](AuditEvent*) {};
  w.told();

  tw_event_poll_newproc(&w[0]);
  EXPECT_EQ(w.told(), "[768 ]\n");
  manager.hubs = {{AUDIT_SOURCE_MEMINFO, nullptr}};
  manager.addListener(AUDIT_SOURCE_PROCENTRY, nullptr), manager.addListener(-1, nullptr);
  tw_event_poll_meminfo(nullptr);
  tw_event_poll_newproc(&w[0]);
  // What was ranked is not announced, and stays for when it can be.
  tw_event_poll_process_entry(w.list, &w[0]);
  tw_event_poll_process_list(w.list);
  EXPECT_EQ(w.list->native_collector->changes.size(), 1U);
  EXPECT_EQ(w.told(),
            "E audit|>> No such source (32) to listen!!\n"
            "E audit|>> No such source (4294967295) to listen!!\n"
            "E event|>> No such source (48) to poll!!\nE event|>> No such source (32) to poll!!\n"
            "E event|>> No such source (16) to poll!!\n");
  manager.hubs = hubs;
}

// Whoever is told of a change of name may keep the blocks of the old one.
TEST(Framework, LeavesTheOldBlocksToWhoIsTold) {
  World w({{.pid = 400, .name = "zygote", .threads = 2}});
  w.pass(), w.pass(3000);
  w.tree.put({.pid = 400, .name = "zygote", .threads = 9});
  w.pass();
  auto& listeners = AuditEventManager::getInstance()->hubs.at(AUDIT_SOURCE_PROCENTRY)->listeners;
  const auto all = std::exchange(listeners, {&w});
  tw_process_entry old = {};
  w.on_event = [&](AuditEvent* event) { old = *static_cast<tw_process_entry*>(event->data); };
  w.tree.put({.pid = 400, .name = "another"});
  EXPECT_TRUE(w.pass().starts_with("[770 zygote#400+ now another#400 "));
  EXPECT_EQ(w[400].threads_counter_block, nullptr);
  EXPECT_NE(tw_check(old.threads_counter_block), nullptr);
  tw_release_entry_blocks(&old);
  listeners = all;
}
