// Whether the table shows the processes there are.
#ifndef STORM_TABLE_CHECK_H_
#define STORM_TABLE_CHECK_H_

#include <string>

#include "proctable/process_records.h"

// What is wrong with the table, empty if nothing: that its list links each slot in use once, both
// ways, and as many as it counts; that they are the processes watched, and by their present names.
std::string table_faults(const tw_process_list& list);

#endif  // STORM_TABLE_CHECK_H_
