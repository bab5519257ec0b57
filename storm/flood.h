// The storm of strangers: who may not send records connects to the listener as often as can be,
// while good records come.
#ifndef STORM_FLOOD_H_
#define STORM_FLOOD_H_

// Runs it and prints a table of what came through. Takes root, and a network of its own. Throws
// std::runtime_error when more than one good record of 1000 is lost.
void run_flood(bool quick);

#endif  // STORM_FLOOD_H_
