// Wires the event framework together: three hubs and the one handler.
#ifndef AUDIT_AUDIT_INITIALIZE_H_
#define AUDIT_AUDIT_INITIALIZE_H_

// Enters each hub under its source and adds the handler as its listener. Called once at start,
// before the first poll; a second call keeps the hubs and adds the handler once more. Hubs and
// handler live until the process ends and are not destroyed at exit, since the cycle may still be
// running then. Cycle's thread only.
void tw_audit_initialize();

#endif  // AUDIT_AUDIT_INITIALIZE_H_
