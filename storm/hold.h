// The storm that stops its readers: the watch program, amid processes that let nobody read their
// command line.
#ifndef STORM_HOLD_H_
#define STORM_HOLD_H_

// Runs it and prints a table of what it took. Takes root, and mounts, pids and a network of its
// own. Throws std::runtime_error when something does not hold.
void run_hold();

#endif  // STORM_HOLD_H_
