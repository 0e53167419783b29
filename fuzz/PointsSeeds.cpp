// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_ply, fuzz_pcd and fuzz_point_text, put together here: fuzz_points_seeds FOLDER,
// which gets a folder for each.
#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "SeedFolder.h"

namespace {

template <class Bits>
void Put(std::string& out, Bits bits, bool bigEndian = false) {
    for (size_t i = 0; i < sizeof bits; ++i)
        out += static_cast<char>(bits >> (8 * (bigEndian ? sizeof bits - 1 - i : i)) & 0xff);
}

void PutFloat(std::string& out, float value, bool bigEndian = false) {
    Put(out, std::bit_cast<uint32_t>(value), bigEndian);
}

std::string Vertices(int count) {
    return "element vertex " + std::to_string(count) +
           "\nproperty float x\nproperty float y\nproperty float z\nproperty ushort intensity\n"
           "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar label\n";
}

std::string BinaryPly(bool bigEndian, bool grid) {
    std::string ply =
        std::string("ply\nformat binary_") + (bigEndian ? "big" : "little") + "_endian 1.0\ncomment seed\n";
    if (grid) ply += "obj_info num_cols 2\nobj_info num_rows 3\n";
    ply += "element camera 1\nproperty double f\n" + Vertices(4);
    if (grid) ply += "element range_grid 6\nproperty list uchar int vertex_indices\n";
    ply += "end_header\n";
    Put(ply, std::bit_cast<uint64_t>(1.5), bigEndian);
    for (int i = 0; i < 4; ++i) {
        for (int axis = 0; axis < 3; ++axis)
            PutFloat(ply, static_cast<float>(i) + 0.25F * static_cast<float>(axis), bigEndian);
        Put(ply, static_cast<uint16_t>(i * 1000), bigEndian);
        ply += "rgbc";
    }
    for (const int entry : {2, -1, 0, 1, -1, 3}) {
        if (!grid) break;
        ply += entry < 0 ? '\0' : '\1';
        if (entry >= 0) Put(ply, static_cast<uint32_t>(entry), bigEndian);
    }
    return ply;
}

std::string TextPly() {
    return "ply\nformat ascii 1.0\nobj_info num_cols 2\nobj_info num_rows 2\nelement range_grid 4\n"
           "property list uchar int vertex_indices\n" +
           Vertices(3) +
           "element face 1\nproperty list uchar int vertex_indices\nend_header\n1 0\n0\n1 1\n1 2\n"
           "1 2 3 4 5 6 7 8\nnan -inf 0 0 0 0 0 0\n1e3 -.5 +7 65535 255 1 2 3\n3 0 1 2\n";
}

std::string PcdHeader(const std::string& data) {
    return "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS x y z intensity rgb _ label\n"
           "SIZE 4 4 8 2 4 1 1\nTYPE F F F U U I U\nCOUNT 1 1 1 1 1 2 1\nWIDTH 2\nHEIGHT 2\n"
           "VIEWPOINT 10 20 30 0.6 0 0 0.8\nPOINTS 4\nDATA " +
           data + "\n";
}

std::string BinaryPcd() {
    std::string pcd = PcdHeader("binary");
    for (int i = 0; i < 4; ++i) {
        PutFloat(pcd, static_cast<float>(i));
        PutFloat(pcd, 2);
        Put(pcd, std::bit_cast<uint64_t>(3.0));
        pcd += "iirgb0__l";
    }
    return pcd;
}

std::string PackedPcd() {
    std::string packed;
    const auto literals = [&](const std::string& bytes) {
        packed += static_cast<char>(bytes.size() - 1) + bytes;
    };
    const auto copy = [&](size_t bytes, size_t back) {
        packed += static_cast<char>(7 << 5);
        packed += static_cast<char>(bytes - 9);
        packed += static_cast<char>(back - 1);
    };
    std::string x;
    PutFloat(x, 1);
    literals(x);
    copy(12 + 16, 4);  // x and y
    std::string z;
    Put(z, std::bit_cast<uint64_t>(3.0));
    literals(z);
    copy(24, 8);
    literals("i");
    copy(4 * 2 + 4 * 4 + 4 * 2 + 4 - 1, 1);
    std::string pcd = PcdHeader("binary_compressed");
    Put(pcd, static_cast<uint32_t>(packed.size()));
    Put(pcd, static_cast<uint32_t>(4 * 25));
    return pcd + packed;
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder folder(argc, argv);
    const auto write = [&](const std::string& target, const std::string& name, char mode, std::string bytes) {
        bytes.insert(bytes.begin(), mode);
        folder(target + "/" + name, std::vector<unsigned char>(bytes.begin(), bytes.end()));
    };
    write("ply", "binary", 0, BinaryPly(false, false));
    write("ply", "binary-big-endian-grid", 0, BinaryPly(true, true));
    write("ply", "binary-grid", 0, BinaryPly(false, true));
    write("ply", "text-grid", 0, TextPly());
    write("pcd", "text", 0,
          PcdHeader("ascii") +
              "1 2 3 4 66051 -1 1 2\nnan nan nan 0 0 0 0 0\n-1e2 .5 +3 65535 0 0 0 255\n1 1 1 1 1 1 1 1\n");
    write("pcd", "binary", 0, BinaryPcd());
    write("pcd", "packed", 0, PackedPcd());
    write("pcd", "lzf", 2,
          std::string("\x07\x04") + "abcde" + "\xe0\x20\x02" + "\x40\x04" + std::string(1, '\0') + "z");
    std::string cells{"\x1f\x02\0\0", 4};
    for (int i = 0; i < 12 * 16; ++i)
        cells += static_cast<char>(i % 4 == 3 ? 0x41 : i * 37);
    write("ply", "cells", 1, cells);
    write("pcd", "cells", 1, cells);
    cells[0] = 4;
    write("ply", "cells-without-grid", 1, cells);
    write("pcd", "cells-without-grid", 1, cells);
    write("point_text", "xyz-3", 0, "# a remark\n// another\n1 2 3\n-1.5\t+2e1 .5\n\n");
    write("point_text", "xyz-4", 0, "1 2 3 0.25\n4 5 6 1e-3\n");
    write("point_text", "xyz-6", 0, "1 2 3 255 0 7\r\n4 5 6 1 2 3\r\n");
    write("point_text", "xyz-7", 0, "1 2 3 -2048 255 0 7\n4 5 6 2047 1 2 3");
    write("point_text", "pts", 1, "2\n1 2 3 -100 1 2 3\n4 5 6 100 4 5 6\n1\n1 2 3\n0\n");
}
