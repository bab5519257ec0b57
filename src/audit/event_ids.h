// The audit events: source ids, event ids and the record that a listener receives. An id's upper
// byte names its family, its low byte the member. A constant's name is also the event's name in the
// log and on the socket.
#ifndef AUDIT_EVENT_IDS_H_
#define AUDIT_EVENT_IDS_H_

#include <cstdint>

// What an event is about: the type behind AuditEvent::data.
enum : int32_t {
  AUDIT_SOURCE_PROCLIST = 16,   // tw_process_list
  AUDIT_SOURCE_PROCENTRY = 32,  // tw_process_entry
  AUDIT_SOURCE_MEMINFO = 48,    // tw_meminfo_t
};

enum : int32_t {
  Event_ProcTotalAmount = 0x100,
  Event_ProcKthreadAmount = 0x101,
  Event_ProcNativeAmount = 0x102,
  Event_ProcRuntimeAmount = 0x103,
  Event_ProcRankRuntime = 0x200,
  Event_ProcRankNative = 0x201,
  Event_ProcCreated = 0x300,
  Event_ProcExited = 0x301,
  Event_ProcRenamed = 0x302,
  Event_ThreadAmount = 0x400,
  Event_OpenFileAmount = 0x500,
  Event_OpenFileFDSize = 0x501,
  Event_ResidentSize = 0x600,
  Event_VssDalvik = 0x700,
  Event_VssHeap = 0x701,
  Event_VssAshmem = 0x702,
  Event_VssKgsl = 0x703,
  Event_VssDmaBuf = 0x704,
  AuditEvent_LowOnMemory = 0x800,
  AuditEvent_SlabUnreclaimSize = 0x801,
};

// Built for one delivery; a listener that wants to keep anything copies it.
struct AuditEvent {
  int32_t id;
  int32_t source;
  void* data;  // the object that was polled; not owned
};

#endif  // AUDIT_EVENT_IDS_H_
