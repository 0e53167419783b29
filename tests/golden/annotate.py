#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""annotate.py FILE.qsn: prints a small file byte by byte, each field with its offset, type and value.

Made the listing at the end of docs/format.md; it shares nothing with the library. Meant for files of a few
kilobytes: every byte is printed.
"""

import struct
import sys

SIZES = {"u8": ("<B", 1), "u32": ("<I", 4), "u64": ("<Q", 8), "f32": ("<f", 4), "f64": ("<d", 8)}

MAIN = ["scan header", "first component header", "first chunk", "first extended header", "end of the chunks",
        "thumbnail", "lookup table", "preview lookup table", "limits"]
KINDS = {
    0xAC14E2E7714A591E: "message", 0xAA661A5EE949E151: "warning", 0x91ACBFC234BEC3A9: "scanning mode",
    0x9554A8463740BB07: "colorization mode", 0x84968181EF2D2134: "identifiers",
    0x940A8701D02F837B: "pre-registration",
}


class Listing:
    def __init__(self, data):
        self.data, self.at = data, 0

    def title(self, text):
        print("\n# %s" % text)

    def line(self, size, note):
        for start in range(0, size, 8):
            part = self.data[self.at + start:self.at + min(start + 8, size)]
            print("%-23s  # %-5s%s" % (part.hex(" "), "%d" % (self.at + start), note if start == 0 else ""))
        self.at += size

    def field(self, kind, name):
        fmt, size = SIZES[kind]
        value = struct.unpack_from(fmt, self.data, self.at)[0]
        text = "0x%x" % value if kind in ("u32", "u64") and value > 0xFFFFFF else repr(value)
        if kind == "f32" and abs(value) not in (0, 1) and value == int(value * 4096) / 4096:
            text = "%g" % value if abs(value) < 1000 else "%.2f" % value
        self.line(size, "%s %s: %s" % (kind, name, text))
        return value

    def text(self, name):
        end = self.data.index(b"\0", self.at)
        value = self.data[self.at:end].decode("utf-8")
        self.line(end + 1 - self.at, 'text %s: "%s"' % (name, value))

    def raw(self, size, name):
        self.line(size, "%d bytes %s" % (size, name))

    def frame(self, name):
        self.title(name)
        self.field("u64", "tag")
        self.field("u32", "version")
        return self.field("u32", "payload size")

    def registration(self, name):
        for part in ("X axis", "Y axis", "Z axis", "translation"):
            for axis in "xyz":
                self.field("f64", "%s, %s %s" % (name, part, axis))


def chunk(out):
    out.field("u64", "codec identifier (KXSNAPPY)")
    out.field("u32", "width")
    out.field("u32", "height")
    out.field("u32", "decoded bytes")
    step = out.field("f32", "step")
    size = out.field("u32", "uncompressed bytes")
    out.line(1, "Snappy: uncompressed size %d" % size)
    out.line(1, "Snappy: one literal of %d bytes" % size)
    for i in range(size // 4):
        if step == 1.0:
            out.field("f32", "value %d" % i)
        else:
            stored = struct.unpack_from("<i", out.data, out.at)[0]
            out.line(4, "i32 value %d: %d, that is %g" % (i, stored, stored / step))


def lookup(out, name):
    out.frame(name)
    for _ in range(out.field("u32", "number of components")):
        out.field("u32", "component")
        for i in range(out.field("u32", "number of entries")):
            out.field("u64", "entry %d, position of the chunk" % i)
            out.field("u32", "entry %d, byte count" % i)


def scan(out):
    out.frame("Scan header")
    for name in ("row angular step", "column angular step", "row start angle", "column start angle"):
        out.field("f64", name)
    for name in ("row count", "column count", "patch width"):
        out.field("u32", name)
    out.field("u64", "valid point count")
    out.registration("registration")
    out.field("u8", "speckle correction needed")
    out.field("f32", "spatial sampling distance")
    out.field("u8", "3D lock")
    out.field("u8", "projection mode")
    out.field("u32", "framing mode")
    out.field("u32", "first further word")
    out.field("u32", "second further word")
    out.field("u32", "tilt kind")
    out.field("f64", "first tilt angle")
    out.field("f64", "second tilt angle")
    out.field("u32", "date status")
    for name in ("first date", "second date", "scanner model", "first description", "second description",
                 "third description"):
        out.text(name)
    for i in range(3):
        out.field("u32", "word %d of version 260" % i)
    out.field("u32", "patch height")


def extended(out):
    kind = KINDS.get(struct.unpack_from("<Q", out.data, out.at + 24)[0], "unknown kind")
    out.frame("Extended record: %s" % kind)
    out.field("u64", "link")
    out.field("u64", "type tag")
    size = out.field("u32", "data length")
    if kind == "identifiers":
        out.raw(16, "scan UUID")
        out.raw(16, "parent UUID")
    elif kind == "pre-registration":
        out.field("f64", "value")
        out.raw(16, "UUID")
        out.registration("registration")
    elif kind == "unknown kind":
        out.raw(size, "data")
    else:
        out.text("text")


def main():
    with open(sys.argv[1], "rb") as file:
        out = Listing(file.read())
    out.frame("Main file header")
    position = {name: out.field("u64", "position of the " + name) for name in MAIN}
    out.field("u32", "writer revision")
    while out.at < position["end of the chunks"]:
        out.frame("Chunk record")
        out.field("u32", "byte count")
        out.field("u32", "component")
        out.field("u32", "patch row")
        out.field("u32", "patch column")
        chunk(out)
    scan(out)
    lookup(out, "Lookup table")
    out.frame("Thumbnail")
    out.field("u32", "second side (columns)")
    out.field("u32", "first side (rows)")
    out.raw(out.field("u32", "JPEG length"), "JPEG file")
    out.title("Preview (no record of its own)")
    chunk(out)
    lookup(out, "Preview lookup table")
    out.frame("Limits")
    out.field("f32", "overall minimum")
    out.field("f32", "overall maximum")
    for i in range(out.field("u32", "number of pairs")):
        out.field("f32", "patch %d, minimum" % i)
        out.field("f32", "patch %d, maximum" % i)
    while out.at < len(out.data):
        extended(out)


main()
