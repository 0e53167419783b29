// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/InMemoryStream.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/QSNScanWriter.h"
#include "support/Hex.h"

namespace kxtest {

/// A grey image of 8 x 8 pixels as the shortest JPEG file: every table has one entry that is used.
inline Bytes SmallJpeg() {
    return Hex(
        "ff d8                                                        # start of image\n"
        "ff db 00 43 00                                               # quantisation table 0: all 1\n"
        "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01\n"
        "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01\n"
        "ff c0 00 0b 08 00 08 00 08 01 01 11 00                       # 8 bits, 8 rows, 8 columns, grey\n"
        "ff c4 00 14 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  # DC: code 0, no difference\n"
        "ff c4 00 14 10 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  # AC: code 0, end of block\n"
        "ff da 00 08 01 01 00 00 3f 00                                # start of scan\n"
        "3f                                                           # bits 0, 0, filled up with 1\n"
        "ff d9                                                        # end of image\n");
}

/// The bytes of a whole small file: 3 x 3 cells of range in patches of 2 x 2, the last patch missing, one
/// cell without a return. Nothing in it depends on the moment, and the values give the compressor nothing to
/// shorten, so the bytes do not depend on its version.
inline Bytes SmallFile() {
    kxbase::GridTopology grid;
    grid.columnStartAngle = 3.0F;
    grid.rowStartAngle = 1.5F;
    grid.columnAngularStep = 0.25F;
    grid.rowAngularStep = 0.25F;
    grid.columns = 3;
    grid.rows = 3;
    grid.patchWidth = 2;
    grid.patchHeight = 2;

    kxbase::InMemoryStream out;
    kxcodecs::SnappyChunkCodec codec;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&out, grid);
    writer.GetScanProperties().scanUUID = kxbase::UUID(L"10111213-1415-4617-9819-1a1b1c1d1e1f");
    writer.AddMessage(L"small");
    writer.SetCompressedThumbnail(SmallJpeg());

    // Patches of 2 x 2 values; what lies outside the grid is 0. Millimetres.
    float patches[3][4] = {
        {1000.5F, 1015.25F, 1120.75F, 1135.0F},  // rows 0 and 1, columns 0 and 1
        {1050.25F, 0.0F, 1180.5F, 0.0F},         // rows 0 and 1, column 2
        {1240.0F, 0.0F, 0.0F, 0.0F},             // row 2, columns 0 and 1; no return at column 1
    };
    unsigned index = 0;
    for (float* values : patches) {
        kxio::FlatPatchDescriptor range(kxbase::ComponentType::Range, 4, kxio::RowMajor, 0.125, &codec);
        range.data = reinterpret_cast<unsigned char*>(values);
        range.size = 4;
        writer.AddPatch({&range}, index++);
    }
    writer.EndCreation();
    return out.GetBytes();
}

}  // namespace kxtest
