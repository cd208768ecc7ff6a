#!/usr/bin/env python3
"""Makes the ring files beside it, from the description in docs/RECORDER_FORMAT.md and not with the recorder's code."""

import struct
from pathlib import Path

MASK = 0xFFFFFFFF
PRIMES = (2654435761, 2246822519, 3266489917, 668265263, 374761393)
HERE = Path(__file__).parent
SEED = 0x12345678
RING_SIZE = 1024


def rotate(value, count):
    return ((value << count) | (value >> (32 - count))) & MASK


def xxh32(data, seed):
    p1, p2, p3, p4, p5 = PRIMES
    at = 0
    if len(data) >= 16:
        lanes = [(seed + p1 + p2) & MASK, (seed + p2) & MASK, seed, (seed - p1) & MASK]
        while at + 16 <= len(data):
            for i, word in enumerate(struct.unpack_from("<4I", data, at)):
                lanes[i] = rotate((lanes[i] + word * p2) & MASK, 13) * p1 & MASK
            at += 16
        total = sum(map(rotate, lanes, (1, 7, 12, 18))) & MASK
    else:
        total = (seed + p5) & MASK
    total = (total + len(data)) & MASK
    while at + 4 <= len(data):
        total = rotate((total + struct.unpack_from("<I", data, at)[0] * p3) & MASK, 17) * p4 & MASK
        at += 4
    for byte in data[at:]:
        total = rotate((total + byte * p5) & MASK, 11) * p1 & MASK
    for shift, prime in ((15, p2), (13, p3), (16, 1)):
        total = (total ^ (total >> shift)) * prime & MASK
    return total


def component(name, mask, address, messages, known):
    return struct.pack("<IIQQI4x224s", len(name), mask, address, messages, int(known), name)


def record(sequence, seconds, level, depth, thread_id, *texts):
    size = 56 + sum(map(len, texts))
    lengths = struct.pack("<4H", *map(len, texts))
    level_and_mask = struct.pack("<iI", level, 1 << level)
    rest = struct.pack("<IQqi", size, sequence, seconds, 500000) + level_and_mask
    rest += struct.pack("<iIi", depth, thread_id, 4711) + lengths + b"".join(texts)
    rest += bytes(-size % 8)
    return struct.pack("<I", xxh32(rest, SEED)) + rest


def ring(address_size, messages, content):
    components = [component(b"net", 0x7F, 0xB6F01234, 3, True), component(b"disk", 0, 0, 1, False)]
    components.append(bytes(256))
    offset = 512 + 256 * len(components)
    boot = b"01234567-89ab-cdef-0123-456789abcdef"
    fixed = struct.pack("<4IQIiQqII40s16x", 512, 256, len(components), offset, RING_SIZE, SEED, 4711, 98765,
                        1709211840, 250000, address_size, boot)
    header = b"SRLRING\n" + struct.pack("<II", 1, xxh32(fixed, 0)) + fixed
    header += struct.pack("<IIQQQ", 1, 6, messages, 1 if messages else 0, 0) + b"player"
    return header.ljust(512, b"\0") + b"".join(components) + content.ljust(RING_SIZE, b"\0")


def main():
    # A lap has ended, and in the middle of a message the process was killed: 3 and 4 of the first lap are followed by a
    # rest of it that belongs to no run.
    texts = (b"main", b"net", b"poll")
    newest = record(5, 1709211850, 6, 1, 4712, *texts, b"five \xc3\xa9 \xff \x1b[2J")
    torn = bytearray(record(6, 1709211851, 6, 1, 4712, *texts, b"six is not whole"))
    torn[-4:] = b"old "
    older = b"".join(
        record(number, 1709211844 + number, 8 if number != 4 else 3, number - 3, 4711, b"<no name>", b"disk", b"", text)
        for number, text in ((3, b"three"), (4, b"four, which is graver"))
    )
    stale = record(1, 1709211845, 6, 0, 4711, b"main", b"net", b"", b"one is of another lap")
    begin = newest + bytes(torn)
    wrapped = begin.ljust(RING_SIZE - len(older) - len(stale), b"\xa5") + older + stale
    (HERE / "32bit-torn.ring").write_bytes(ring(4, 5, wrapped))
    (HERE / "64bit-empty.ring").write_bytes(ring(8, 0, b""))


main()
