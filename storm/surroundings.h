// Where a storm takes place: what its steps find around them.
#ifndef STORM_SURROUNDINGS_H_
#define STORM_SURROUNDINGS_H_

#include <sys/types.h>

#include <memory>
#include <string>

#include "support/made_tree.h"

// Throws std::runtime_error with `what` and errno's text unless `ok`.
void require(bool ok, const std::string& what);

// Whether we are the first process of a pid namespace.
bool own_pid_namespace();

// Has the kernel give the next process of our pid namespace the first free pid from `pid` on
// (pid_namespaces(7)).
void set_next_pid(pid_t pid);

// A tree with one process that stays, so that the table is never empty, and the machine's memory.
std::unique_ptr<MadeTree> make_tree();

#endif  // STORM_SURROUNDINGS_H_
