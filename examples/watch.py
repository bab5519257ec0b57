#!/usr/bin/env python3
"""A host without a compiler: the plain entry points, by ctypes. Ends at SIGINT or SIGTERM.

Takes the library's file name as its argument, or else the one that the system finds.
"""

import ctypes
import signal
import sys
import threading

SINK = ctypes.CFUNCTYPE(
    None,
    ctypes.c_void_p,  # context
    ctypes.c_int,  # 0: report, 1: log
    ctypes.c_char_p,  # tag
    ctypes.c_void_p,  # text, which may hold any bytes
    ctypes.c_size_t,
)


@SINK
def write(_context, output, tag, text, length):
    tag = b"" if tag is None else tag + b": "
    stream = sys.stdout if output == 0 else sys.stderr
    stream.buffer.write(tag + ctypes.string_at(text, length))
    stream.flush()


def main():
    warden = ctypes.CDLL(sys.argv[1] if len(sys.argv) > 1 else "libtaskwarden.so.1")
    warden.taskwarden_set_output.argtypes = [SINK, ctypes.c_void_p]
    warden.taskwarden_set_output.restype = None

    ends = {signal.SIGINT, signal.SIGTERM}
    signal.pthread_sigmask(signal.SIG_BLOCK, ends)
    warden.taskwarden_set_output(write, None)
    threading.Thread(target=warden.taskwarden_start, daemon=True).start()
    signal.sigwait(ends)
    # The watch goes on until the process has ended, and must not call into a Python that is leaving.
    warden.taskwarden_set_output(SINK(), None)


if __name__ == "__main__":
    main()
