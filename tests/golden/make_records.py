#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes records/*.hex: one record per file, its bytes spelled out with a comment per field.

The files are kept for ever and must always read. They were made by this program, which knows nothing of the
library; run it again only to add records, and look at the difference.
"""

import os
import struct
import zlib

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "records")

FORMATS = {"u8": "<B", "u16": "<H", "u32": "<I", "u64": "<Q", "f32": "<f", "f64": "<d"}


def encode(kind, value):
    if kind in FORMATS:
        return struct.pack(FORMATS[kind], value)
    if kind == "text":
        return value.encode("utf-8") + b"\0"
    return bytes(value)  # "raw"


def shown(kind, value):
    if kind == "raw":
        return ""
    if kind == "text":
        return '"%s" and NUL' % value
    if kind in ("u32", "u64") and value > 1 << 20:
        return "0x%x" % value
    return str(value)


def lines_of(fields):
    offset = 0
    for kind, value, label in fields:
        data = encode(kind, value)
        note = "@%-3d %s %s" % (offset, kind if kind != "raw" else "%d bytes" % len(data), label)
        text = shown(kind, value)
        if text:
            note += " = " + text
        for start in range(0, max(len(data), 1), 16):
            yield "%-48s# %s" % (data[start:start + 16].hex(" "), note if start == 0 else "...")
        offset += len(data)


def record(name, title, tag, version, payload):
    size = sum(len(encode(kind, value)) for kind, value, _ in payload)
    frame = [("u64", tag, "tag"), ("u32", version, "version"), ("u32", size, "payload size")]
    with open(os.path.join(FOLDER, name + ".hex"), "w", encoding="utf-8") as out:
        out.write("# %s\n# Frame\n" % title)
        out.write("\n".join(lines_of(frame)))
        out.write("\n# Payload\n")
        out.write("\n".join(lines_of(payload)))
        out.write("\n")


# Main file header

MAIN = [
    ("u64", 0x1122334455667788, "scan header position"),
    ("u64", 0x0102030405060708, "first component header position"),
    ("u64", 92, "first chunk position"),
    ("u64", 0x2122232425262728, "first extended header position"),
    ("u64", 0x3132333435363738, "chunk data end position"),
    ("u64", 0x4142434445464748, "thumbnail header position"),
    ("u64", 0x5152535455565758, "lookup table position"),
    ("u64", 0x6162636465666768, "preview lookup table position"),
    ("u64", 0x7172737475767778, "bounding information position"),
    ("u32", 240, "writer revision"),
]
MAIN_TAG = 0xAB797EDB9B73DE5E
record("main-209", "Main file header of a version that is refused", MAIN_TAG, 209, MAIN)
record("main-210", "Main file header", MAIN_TAG, 210, MAIN)
record("main-300", "Main file header of a newer version with four bytes more", MAIN_TAG, 300,
       MAIN + [("u32", 0xEEEEEEEE, "unknown")])

# Scan header

GRID = [
    ("f64", 1 / 2048, "row angular step"),
    ("f64", 1 / 4096, "column angular step"),
    ("f64", 0.5, "row start angle"),
    ("f64", 3.25, "column start angle"),
    ("u32", 5, "row count"),
    ("u32", 7, "column count"),
    ("u32", 4, "patch width"),
]
REGISTRATION = [("f64", v, "registration, " + axis + part)
                for axis, values in (("X axis ", (0.0, 1.0, 0.0)), ("Y axis ", (-1.0, 0.0, 0.0)),
                                     ("Z axis ", (0.0, 0.0, 1.0)), ("translation ", (1.0, 2.0, 3.0)))
                for v, part in zip(values, "xyz")]
FROM_210 = [("u64", 35, "valid point count")] + REGISTRATION
FROM_220 = [("u8", 1, "speckle correction needed")]
FROM_230 = [("f32", 0.25, "spatial sampling distance")]
FROM_240 = [("u8", 1, "3D lock")]
FROM_250 = [
    ("u8", 0, "projection mode"),
    ("u32", 7, "framing mode"),
    ("u32", 0x11223344, "first further word"),
    ("u32", 0x55667788, "second further word"),
    ("u32", 3, "tilt kind"),
    ("f64", 0.125, "first tilt angle"),
    ("f64", -0.25, "second tilt angle"),
    ("u32", 0, "date status"),
    ("text", "2024-02-29T12:34:56Z", "first date"),
    ("text", "2024-03-01T00:00:00Z", "second date"),
    ("text", "Ostrak RM7", "scanner model"),
    ("text", "Zürich", "first description"),
    ("text", "", "second description"),
    ("text", "c", "third description"),
]
FROM_260 = [("u32", 0x01020304, "first word of version 260"), ("u32", 5, "second word"), ("u32", 6, "third word")]
FROM_270 = [("u32", 2, "patch height")]
SCAN_TAG = 0x9CB282FC40C502D8
V210 = GRID + FROM_210
V220 = V210 + FROM_220
V230 = V220 + FROM_230
V240 = V230 + FROM_240
V250 = V240 + FROM_250
V260 = V250 + FROM_260
V270 = V260 + FROM_270
record("scan-199", "Scan header of a version that is refused", SCAN_TAG, 199, GRID)
for version, layout in ((200, GRID), (210, V210), (220, V220), (230, V230), (240, V240), (250, V250),
                        (260, V260), (270, V270)):
    record("scan-%d" % version, "Scan header, version %d" % version, SCAN_TAG, version, layout)
for version in (205, 215):
    record("scan-%d" % version, "Scan header of an unlisted version: the version-270 layout", SCAN_TAG, version,
           V270)
record("scan-275", "Scan header of a newer version: the version-270 layout and three bytes more", SCAN_TAG, 275,
       V270 + [("raw", b"\xee\xee\xee", "unknown")])

# Chunk, component, lookup table, limits, thumbnail

COMPONENT = [("u32", 6, "component"), ("u64", 0x000042494C5A584B, "codec identifier"), ("f64", 0.125, "value")]
CHUNK = [("u32", 1000, "byte count"), ("u32", 4, "component"), ("u32", 2, "patch row"), ("u32", 3, "patch column")]
LOOKUP = [
    ("u32", 2, "number of components"),
    ("u32", 1, "component"),
    ("u32", 3, "number of entries"),
    ("u64", 124, "position"), ("u32", 1000, "byte count"),
    ("u64", 0, "position, absent patch"), ("u32", 0, "byte count"),
    ("u64", 0x123456789A, "position"), ("u32", 7, "byte count"),
    ("u32", 4, "component"),
    ("u32", 1, "number of entries"),
    ("u64", 2000, "position"), ("u32", 50, "byte count"),
]
MINMAX = [
    ("f32", 2.0, "overall minimum"), ("f32", 8.5, "overall maximum"), ("u32", 3, "number of pairs"),
    ("f32", 0.0, "minimum of patch 0, no return"), ("f32", 0.0, "maximum"),
    ("f32", 2.0, "minimum of patch 1"), ("f32", 5.0, "maximum"),
    ("f32", 2.5, "minimum of patch 2"), ("f32", 8.5, "maximum"),
]
THUMBNAIL = [
    ("u32", 30, "second side (columns)"), ("u32", 20, "first side (rows)"), ("u32", 6, "JPEG length"),
    ("raw", b"\xff\xd8\x01\x02\xff\xd9", "JPEG bytes (not an image, only kept)"),
]
for name, tag, payload in (("component", 0x8B72987F4B3B0A2D, COMPONENT), ("chunk", 0x982157CF2CFE1EC6, CHUNK),
                           ("lookup", 0xA76E52DBA1EBD435, LOOKUP), ("minmax", 0xA16177F6A29638CB, MINMAX),
                           ("thumbnail", 0xB63BC13134B042C8, THUMBNAIL)):
    record(name + "-199", "%s record of a version that is refused" % name, tag, 199, payload)
    record(name + "-200", "%s record" % name, tag, 200, payload)
    record(name + "-299", "%s record of a newer version with three bytes more" % name, tag, 299,
           payload + [("raw", b"\xee\xee\xee", "unknown")])

# Extended records

EXTENDED_TAG = 0xA45065483053115F
UUID_A = bytes(range(0x10, 0x20))
UUID_B = bytes(range(0xA0, 0xB0))


def text_of(uuid):
    h = uuid.hex()
    return "-".join((h[:8], h[8:12], h[12:16], h[16:20], h[20:]))


def extended(name, title, tag, data, link=0):
    size = sum(len(encode(kind, value)) for kind, value, _ in data)
    record("extended-" + name, title, EXTENDED_TAG, 100,
           [("u64", link, "link"), ("u64", tag, "type tag"), ("u32", size, "data length")] + data)


extended("comment", "A message", 0xAC14E2E7714A591E, [("text", "grüße", "text")], 0x1234)
extended("warning", "A warning", 0xAA661A5EE949E151, [("text", "low battery", "text")])
extended("hq", "Link to a high-quality scan", 0xBFB6C3129E0B3496, [("text", text_of(UUID_A), "UUID")])
extended("er", "Link to a scan of the ER kind", 0x87D56A371C93300C, [("text", text_of(UUID_B), "UUID")])
extended("hdr", "Link to an HDR scan", 0xACBBE8C8D0FCE365, [("text", text_of(UUID_A), "UUID")])
extended("scanning-mode", "Scanning mode", 0x91ACBFC234BEC3A9, [("text", "Level 2", "text")])
extended("colorization-mode", "Colorization mode", 0x9554A8463740BB07, [("text", "HDR", "text")])
extended("uuid", "Identifiers", 0x84968181EF2D2134, [("raw", UUID_A, "scan UUID"), ("raw", UUID_B, "parent UUID")])
extended("preregistration", "Pre-registration", 0x940A8701D02F837B,
         [("f64", 0.75, "value"), ("raw", UUID_B, "UUID")] + REGISTRATION)

# Histograms: the chunk's payload is a zlib container with one stored block, so that every byte is in sight.


def histogram(name, title, tag, numbers):
    content = struct.pack("<%dQ" % len(numbers), *numbers)
    payload = [
        ("raw", b"\x78\x01", "zlib header"),
        ("u8", 1, "last block, stored"),
        ("u16", len(content), "block length"),
        ("u16", len(content) ^ 0xFFFF, "its complement"),
    ]
    payload += [("u64", n, "number") for n in numbers]
    payload += [("raw", struct.pack(">I", zlib.adler32(content)), "Adler-32, big-endian")]
    header = [
        ("u64", 0x000042494C5A584B, "codec identifier"), ("u32", len(numbers), "width"), ("u32", 1, "height"),
        ("u32", len(content), "decoded bytes"), ("f32", 1.0, "step"), ("u32", len(content), "uncompressed bytes"),
    ]
    chunk = header + payload
    size = sum(len(encode(kind, value)) for kind, value, _ in chunk)
    extended("histogram-" + name, title, tag, [("u64", size, "chunk size")] + chunk)


# entries: patch 0 {2: 10, 5: 1}; patch 3 {5: 7}
SMALL = [2, 0, 2, 2, 10, 5, 1, 3, 1, 5, 7]
histogram("class", "Class histogram", 0xAC8391A3FBED04C7, SMALL)
histogram("segment", "Segment histogram with a key above 32 bits and a position in the patch", 0x947643B5F86B1820,
          [2, 0, 2, 2, 10, 0x100000001, 1, 0x0000000700000003, 1, 5, 7])
histogram("luminance8", "8-bit intensity histogram", 0x913A4F40CA422A2F, SMALL)
histogram("luminance16", "16-bit intensity histogram", 0xA62815C019D63650, SMALL)
