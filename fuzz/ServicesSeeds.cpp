// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_calls, fuzz_histograms, fuzz_pictures, fuzz_edit and fuzz_round_trip, each into a
// folder of its own below the one given.
#include <filesystem>
#include <string>

#include "SeedFolder.h"
#include "kxio/ProtectFile.h"
#include "support/StoredFile.h"
#include "support/TinyScan.h"

namespace {

using namespace kxtest;

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// Every call of fuzz_calls once, for a component and a patch.
Bytes Calls(uint8_t component, uint8_t row, uint8_t column) {
    Bytes calls{33};
    for (uint8_t call = 0; call < 32; ++call) {
        const uint8_t what = call == 1 ? 31 : call == 31 ? 1 : call;  // closing comes last
        calls.insert(calls.end(), {what, component, row, 0, column, 0, 1, static_cast<uint8_t>(call % 2)});
    }
    calls.insert(calls.end(), {0, component, row, 0, column, 0, 0, 0});
    return calls;
}

template <class Header>
Bytes DataOf(const Header& made) {
    Header header = made;
    return {header.GetDataBuffer(), header.GetDataBuffer() + header.GetDataBufferSize()};
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder write(argc, argv);
    const Bytes tiny = TinyScan().Build();
    const std::filesystem::path scratch = write.Path() / "scratch.qsn";
    const std::wstring path = StoreFile(scratch.wstring(), tiny);
    kxio::ProtectFile(path);
    const Bytes hashed = LoadFile(scratch);
    std::filesystem::remove(scratch);

    write("calls/range", Joined({Calls(1, 0, 0), tiny}));
    write("calls/intensity", Joined({Calls(5, 1, 1), hashed}));
    write("calls/outside", Joined({Calls(40, 200, 255), hashed}));

    const kxio::Luminance16Histogram l16{{{0, 0}, {{uint16_t{700}, 12}, {uint16_t{701}, 3}}}};
    const kxio::ClassHistogram classes{{{0, 0}, {{2, 12}}}, {{3, 0}, {{1, 1}, {7, 2}}}};
    write("histograms/luminance16", Joined({{3}, DataOf(kxio::Luminance16HistogramHeader(l16))}));
    write("histograms/class", Joined({{0}, DataOf(kxio::ClassHistogramHeader(classes))}));
    write("histograms/segment", Joined({{1}, DataOf(kxio::SegmentHistogramHeader({{{1, 0}, {{9, 9}}}}))}));
    const auto numbers = [](std::initializer_list<uint64_t> list) {
        ByteList bytes;
        for (const uint64_t number : list)
            bytes.U64(number);
        return bytes.Get();
    };
    write("histograms/numbers", Joined({{128}, numbers({2, 0, 1, 5, 6, 3, 1, 7, 8})}));
    write("histograms/wide-key", Joined({{130}, numbers({1, 0, 1, 256, 6})}));

    Bytes jpeg;
    kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
    write("pictures/thumbnail", Joined({{0, 0}, jpeg}));
    write("pictures/given-thumbnail", Joined({{3, 0}, jpeg}));
    const Bytes chunk = SnappyChunk(std::vector<float>{1, 2, 3, 4}, 2, 2);
    write("pictures/preview", Joined({{1, 1}, chunk}));
    write("pictures/given-preview", Joined({{4, 2}, chunk}));
    write("pictures/record",
          Joined({{2, 0},
                  Record(kThumbnailRecord,
                         ByteList().U32(8).U32(8).U32(static_cast<uint32_t>(jpeg.size())).Raw(jpeg))}));

    const Bytes edits{7,  0, 65, 5,  9, 5, 1, 2, 3, 6, 2, 0, 0, 7, 8,
                      80, 0, 1,  66, 6, 9, 2, 0, 0, 0, 8, 0, 0, 0};
    write("edit/plain", Joined({edits, tiny}));
    write("edit/hashed", Joined({edits, hashed}));
    write("edit/cut", Joined({edits, Bytes(tiny.begin(), tiny.end() - 90)}));

    Bytes steps;
    for (int i = 0; i < 300; ++i)
        steps.push_back(static_cast<unsigned char>(i * 37 % 251));
    write("round_trip/steps", steps);
    write("round_trip/zeros", Bytes(60, 0));
    write("round_trip/grid", Joined({{23, 23, 7, 5, 3, 1, 4, 1, 1, 3, 0, 2, 4, 1}, steps}));
    return 0;
}
