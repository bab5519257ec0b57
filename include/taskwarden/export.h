// The export macro: a name marked TW_EXPORT is reachable in the shared library; every other is
// hidden. The names are listed once more in src/taskwarden.map, which keeps weak symbols of the
// standard library out of the dynamic symbol table.
#ifndef TASKWARDEN_EXPORT_H_
#define TASKWARDEN_EXPORT_H_

#define TW_EXPORT __attribute__((visibility("default")))

#endif  // TASKWARDEN_EXPORT_H_
