// Whether the table shows the processes there are.
#ifndef STORM_TABLE_CHECK_H_
#define STORM_TABLE_CHECK_H_

#include <optional>
#include <string>

#include "proctable/process_records.h"

// What is wrong with the table, empty if nothing: that its list links each slot in use once, both
// ways, and as many as it counts; that the processes watched are in it, and no others, by their
// present names. Where others' processes come and go too, only children of `parent` are looked at.
std::string table_faults(const tw_process_list& list, std::optional<int> parent);

#endif  // STORM_TABLE_CHECK_H_
