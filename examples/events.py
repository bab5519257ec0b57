#!/usr/bin/env python3
"""Prints each event as a line of JSON, by ctypes. Ends at SIGINT or SIGTERM.

Takes the library's file name as its argument, or else the one that the system finds.
"""

import ctypes
import json
import os
import signal
import sys
import threading

ROW_KINDS = {
    1: "measured", 2: "figure", 3: "inventory", 4: "grown", 5: "largest_increase", 6: "ranked",
    7: "came", 8: "went", 9: "cache", 10: "new_name",
}
RECORDS = {0: "none", 1: "sent", 2: "lost"}
WITHOUT_TEXT = 1


class Bytes(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("length", ctypes.c_size_t)]

    def text(self):
        return ctypes.string_at(self.data, self.length).decode(errors="replace")


class Kind(ctypes.Structure):
    _fields_ = [
        ("size", ctypes.c_size_t), ("id", ctypes.c_int32), ("about", ctypes.c_int32),
        ("name", ctypes.c_char_p), ("what", ctypes.c_char_p), ("unit", ctypes.c_char_p),
        ("rule", ctypes.c_char_p), ("has_record", ctypes.c_int32),
    ]


class Row(ctypes.Structure):
    _fields_ = [
        ("kind", ctypes.c_int32), ("number", ctypes.c_uint32), ("name", Bytes),
        ("value", ctypes.c_int64), ("increase", ctypes.c_int64), ("areas", ctypes.c_uint32),
        ("areas_increase", ctypes.c_int32), ("pid", ctypes.c_uint32), ("is_new", ctypes.c_int32),
        ("start_time", ctypes.c_uint64), ("objects", ctypes.c_int32),
        ("object_bytes", ctypes.c_int32),
    ]


class Event(ctypes.Structure):
    _fields_ = [
        ("size", ctypes.c_size_t), ("kind", ctypes.POINTER(Kind)), ("id", ctypes.c_int32),
        ("record", ctypes.c_int32), ("time_ms", ctypes.c_int64), ("pid", ctypes.c_uint32),
        ("is_compared", ctypes.c_int32), ("start_time", ctypes.c_uint64), ("process", Bytes),
        ("before", ctypes.c_int64), ("after", ctypes.c_int64), ("rows", ctypes.c_void_p),
        ("row_count", ctypes.c_size_t), ("row_size", ctypes.c_size_t),
    ]


OBSERVER = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Event))


def members(structure, known):
    """The members that say something: numbers other than 0, and names."""
    found = {}
    for name, kind in structure._fields_:
        value = getattr(structure, name)
        value = value.text() if kind is Bytes else value
        if name in known and value:
            found[name] = value
    return found


def object_of(event):
    kind = event.kind.contents
    found = {"time_ms": event.time_ms, "event": kind.name.decode(), "unit": kind.unit.decode()}
    found.update(members(event, {"pid", "start_time", "process", "before", "after"}))
    found["record"] = RECORDS[event.record]
    found["is_compared"] = bool(event.is_compared)
    found["rows"] = []
    for i in range(event.row_count):
        # A later library's rows may be longer than those known here.
        row = Row.from_address(event.rows + i * event.row_size)
        known = {name for name, _ in Row._fields_} - {"kind"}
        found["rows"].append({"kind": ROW_KINDS.get(row.kind, row.kind), **members(row, known)})
    return found


@OBSERVER
def print_event(_context, event):
    print(json.dumps(object_of(event.contents)), flush=True)


def main():
    warden = ctypes.CDLL(sys.argv[1] if len(sys.argv) > 1 else "libtaskwarden.so.1")
    ends = {signal.SIGINT, signal.SIGTERM}
    signal.pthread_sigmask(signal.SIG_BLOCK, ends)
    warden.taskwarden_observe_events.argtypes = [OBSERVER, ctypes.c_void_p, ctypes.c_int]
    if warden.taskwarden_observe_events(print_event, None, WITHOUT_TEXT) != 0:
        sys.exit("the observer was refused")
    threading.Thread(target=warden.taskwarden_start, daemon=True).start()
    signal.sigwait(ends)
    # The watch goes on until the process has ended, and must not call into a Python that is leaving.
    warden.taskwarden_observe_events(OBSERVER(), None, 0)
    os._exit(0)


if __name__ == "__main__":
    main()
