#!/usr/bin/env python3
"""osse next to babeltrace2: the same records as text, from a dump and from a CTF trace.

    python3 bench/babeltrace.py [RECORDS]

Writes both files below build/bench, lets each program print all of its file three times, and tells
the better time of each and how they relate. RECORDS is a power of two from 8,192 (1,048,576). It
needs Debian's babeltrace2, and osse from ./dev build.
"""
import os
import struct
import subprocess
import sys
import time

OUT = "build/bench/babeltrace"
OSSE = ["cmake/wine-run.sh", "build/mingw-release/bin/osse.exe", "trace", "format", "-o", "NUL"]
TICKS_PER_SECOND = 10_000_000
NOT_SET = 0xFFFFFFFF
RECORD = struct.Struct("<QQIIIIHHHHQI")  # from the time stamp to the return code

METADATA = """/* CTF 1.8 */
typealias integer { size = 8; align = 8; signed = false; } := uint8_t;
typealias integer { size = 16; align = 8; signed = false; } := uint16_t;
typealias integer { size = 32; align = 8; signed = false; } := uint32_t;
typealias integer { size = 64; align = 8; signed = false; } := uint64_t;
trace {
  major = 1; minor = 8; byte_order = le;
  packet.header := struct { uint32_t magic; uint32_t stream_id; };
};
clock { name = counter; freq = %d; };
typealias integer { size = 64; align = 8; signed = false; map = clock.counter.value; } := stamp_t;
stream { id = 0; event.header := struct { stamp_t timestamp; }; };
event {
  id = 0; name = "record"; stream_id = 0;
  fields := struct {
    uint64_t thread; uint32_t process; integer { size = 32; align = 8; base = 16; } function;
    uint32_t fixed1; uint32_t fixed2; uint16_t type; uint16_t flags; uint16_t probe;
    uint16_t length; uint64_t extra; integer { size = 32; align = 8; base = 16; } rc;
  };
};
""" % TICKS_PER_SECOND


def records(count):
    """Entries and exits of an operation, a microsecond apart."""
    for i in range(count):
        yield RECORD.pack(1_000_000 + 10 * i, 17, 4242, 0x081A0003, NOT_SET, NOT_SET, 1 + i % 2, 0, 0, 0, 0, 0)


def write_dump(path, payloads):
    count = len(payloads)
    options = struct.pack("<II8xI", 64 * count, 1, 2).ljust(182_880, b"\0")
    with open(path, "wb") as file:
        file.write(b"GTDUMP1\0" + options + struct.pack("<Q", TICKS_PER_SECOND))
        file.write(b"@HEAD\r\n\0" + struct.pack("<IHBB", 64 * count, 1, 1, 0))
        file.write(b"".join(struct.pack("<IHH", i, 0xCAFE, 1) + payload +
                            struct.pack("<I", ~i & 0xFFFFFFFF)
                            for i, payload in enumerate(payloads)))
        file.write(b"@TAIL\r\n\0" + struct.pack("<IIII8x", count, 0, 0, 0))


def write_ctf(folder, payloads):
    os.makedirs(folder, exist_ok=True)
    with open(f"{folder}/metadata", "w", encoding="ascii") as file:
        file.write(METADATA)
    with open(f"{folder}/stream", "wb") as file:
        file.write(struct.pack("<II", 0xC1FC1FC1, 0) + b"".join(payloads))


def best_time(command, lines):
    times = []
    for _ in range(3):
        start = time.monotonic()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        times.append(time.monotonic() - start)
    print(f"{command[0]:22} {lines / min(times) / 1e6:6.2f} million records a second")
    return min(times)


def asked_count(arguments):
    """RECORDS, or its default; ends the program when it is no such number."""
    text = arguments[0] if arguments else str(1 << 20)
    count = int(text) if text.isdecimal() else 0
    if len(arguments) > 1 or count < 8192 or count & (count - 1):
        sys.exit(__doc__)
    return count


def main():
    count = asked_count(sys.argv[1:])
    os.makedirs(OUT, exist_ok=True)
    payloads = list(records(count))
    write_dump(f"{OUT}/dump", payloads)
    write_ctf(f"{OUT}/ctf", payloads)
    ours = best_time(OSSE + [f"{OUT}/dump"], count)
    theirs = best_time(["babeltrace2", f"{OUT}/ctf"], count)
    print(f"ratio {theirs / ours:.1f}")


if __name__ == "__main__":
    main()
