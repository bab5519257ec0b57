// The storms of lives: so many processes that every pid there can be has had one, or a day of
// them. What the host has in memory is held to a limit.
#ifndef STORM_LIVES_H_
#define STORM_LIVES_H_

#include "storm.h"

// Each as of make_storm(). Every page of the table is touched once.
Storm once_round(bool quick);
// Compilers and tests of a build server, on a made tree.
Storm day(bool quick);
// Once round, in a host that locks its memory to come.
Storm locked(bool quick);
// Once round, in a host that is charged for what it reserves: its tree says so, and a limit on what
// it may have of its own stands for the charge.
Storm charged(bool quick);
// Once round, in a host that gets no room for the slots.
Storm refused(bool quick);

#endif  // STORM_LIVES_H_
