// The process table as at the first start, whatever an earlier test left in it, with the event
// framework wired up.
#ifndef TESTS_SUPPORT_FRESH_TABLE_H_
#define TESTS_SUPPORT_FRESH_TABLE_H_

#include <cstdint>
#include <vector>

#include "proctable/process_records.h"

tw_process_list* fresh_table();

// Checks that the list links each used slot once, both ways, and that `count` agrees; returns the
// pids from the head on. Throws otherwise.
std::vector<uint32_t> linked_pids(const tw_process_list* list);

#endif  // TESTS_SUPPORT_FRESH_TABLE_H_
