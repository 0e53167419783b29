// SPDX-License-Identifier: MIT
// What goes wrong is reported, harms nothing else, and never crashes.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <set>

#include "WriterSupport.h"
#include "support/TempFolder.h"

#if defined(__unix__)
#include <sys/resource.h>

#include <csignal>
#endif

namespace {

using namespace support;
using kxbase::KXWritingException;
using walker::Walk;

TEST(WriterFailure, FailedDescriptorIsReportedAndTheOthersAreWritten) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(28, 4, 4, 4));
    FailingCodec failing;
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    Flat<float> angle(kxbase::VerticalAngle, std::vector<float>(16, 2.0F), &failing);
    Flat<uint32_t> classes(kxbase::Class, std::vector<uint32_t>(16, 3), &Snappy());
    try {
        writer.AddPatch({&range, &angle, &classes}, 0, 5);
        FAIL() << "not reported";
    } catch (const KXWritingException& e) {
        EXPECT_STREQ(e.what(), "AddPatch (0,5)");
        EXPECT_EQ(e.Context().record, "patch (row 0, column 5)");
        EXPECT_EQ(e.Context().detail, "VerticalAngle: codec out of order");
    }
    // The component is known from another patch, so the hole shows.
    failing.fails = false;
    writer.AddPatch({&angle}, 0, 0);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_FALSE(file.ChunkAt(file.lookup.at(1).at(5).position)->IsSharedEmpty());
    EXPECT_FALSE(file.ChunkAt(file.lookup.at(18).at(5).position)->IsSharedEmpty());
    EXPECT_EQ(file.lookup.at(2).at(5), (walker::Entry{0, 0})) << "a failed patch stays a hole";
    EXPECT_TRUE(file.ChunkAt(file.lookup.at(2).at(6).position)->IsSharedEmpty());
}

TEST(WriterFailure, FirstFailureInTheListIsTheOneTold) {
    for (int round = 0; round < 10; ++round) {
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(64, 64, 64, 64));
        FailingCodec failing;
        std::vector<std::unique_ptr<Flat<float>>> flats;
        std::vector<kxio::PatchDescriptor*> list;
        for (const uint32_t number : {9U, 3U, 2U, 12U}) {
            flats.push_back(std::make_unique<Flat<float>>(static_cast<kxbase::ComponentType>(number),
                                                          std::vector<float>(4096),
                                                          number == 9 ? &Snappy() : &failing));
            list.push_back(flats.back().get());
        }
        try {
            writer.AddPatch(list, 0, 0);
            FAIL() << "not reported";
        } catch (const KXWritingException& e) {
            EXPECT_EQ(e.Context().detail, "HorizontalAngle: codec out of order");
        }
    }
}

TEST(WriterFailure, ForeignExceptionIsRethrownAfterAllDescriptorsWereDone) {
    for (const bool parallel : {false, true}) {
        const uint32_t side = parallel ? 128 : 4;
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(side, side, side, side));
        FailingCodec outOfMemory(FailingCodec::Kind::BadAlloc), failing;
        Flat<float> a(kxbase::HorizontalAngle, std::vector<float>(side * side, 1.0F), &failing);
        Flat<float> b(kxbase::Range, std::vector<float>(side * side, 1.0F), &outOfMemory);
        Flat<float> c(kxbase::VerticalAngle, std::vector<float>(side * side, 1.0F), &Snappy());
        EXPECT_THROW(writer.AddPatch({&a, &b, &c}, 0, 0), std::bad_alloc);
        writer.EndCreation();
        const walker::File file = Walk(stream.GetBytes());
        EXPECT_EQ(file.chunks.size(), 1U);
        EXPECT_NE(file.lookup.at(2).at(0).position, 0U);
        EXPECT_EQ(file.lookup.count(1), 0U) << "marked as written, so not filled either";
    }
}

TEST(WriterFailure, NullDescriptorsAreIgnored) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    EXPECT_NO_THROW(writer.AddPatch({nullptr, &range, nullptr}, 0, 0));
    EXPECT_NO_THROW(writer.AddPatch({}, 0, 0));
    writer.EndCreation();
    EXPECT_EQ(Walk(stream.GetBytes()).chunks.size(), 1U);
}

std::string CauseOf(kxio::QSNScanWriter& writer, kxio::PatchDescriptor& descriptor) {
    try {
        writer.AddPatch({&descriptor}, 0, 0);
    } catch (const KXWritingException& e) {
        return e.Context().detail;
    }
    return {};
}

TEST(WriterFailure, DescriptorsThatCannotBeMeantFail) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    Bytes bytes(64, 1);
    kxio::FlatPatchDescriptor good(kxbase::Range, 4, kxio::RowMajor, 1.0, &Snappy());
    good.data = bytes.data();
    good.size = 16;
    std::vector<std::pair<std::string, kxio::FlatPatchDescriptor>> flats;
    const auto add = [&](const char* name) -> kxio::FlatPatchDescriptor& {
        return flats.emplace_back(name, good).second;
    };
    // By the text of what was wrong, which the refusal of the patch names.
    add("Patch has no codec").codec = nullptr;
    add("Patch has no data").data = nullptr;
    for (const double scale : {0.0, -0.0, -1.0, kInfinity, -kInfinity, std::nan(""), 1e-300, 1e300, 5e-324}) {
        add("Unsupported scale").scale = scale;
    }
    add("Patch too large").size = uint64_t{1} << 32;
    add("Patch too large").size = std::numeric_limits<uint64_t>::max() / 2;
    add("Patch too large").pixelLength = uint64_t{1} << 62;
    add("Chunk cannot be encoded").pixelLength = 0;
    for (auto& [name, flat] : flats) {
        SCOPED_TRACE(name + ", scale " + std::to_string(flat.scale));
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
        EXPECT_EQ(TextOf<KXWritingException>([&, d = &flat] { writer.AddPatch({d}, 0, 0); }),
                  "AddPatch (0,0)");
        EXPECT_NE(CauseOf(writer, flat).find(name), std::string::npos) << CauseOf(writer, flat);
        EXPECT_NO_THROW(writer.EndCreation());
        EXPECT_TRUE(Walk(stream.GetBytes()).chunks.empty());
    }
    kxio::EncodedPatchDescriptor noData(kxbase::Range, 4), tooLarge(kxbase::Range, 4);
    noData.size = 10;
    tooLarge.data = bytes.data();
    tooLarge.size = uint64_t{1} << 32;
    kxio::EmptyPatchDescriptor tooLong(kxbase::Range, uint64_t{1} << 60);
    for (kxio::PatchDescriptor* d :
         {static_cast<kxio::PatchDescriptor*>(&noData), static_cast<kxio::PatchDescriptor*>(&tooLarge),
          static_cast<kxio::PatchDescriptor*>(&tooLong)}) {
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
        EXPECT_EQ(TextOf<KXWritingException>([&] { writer.AddPatch({d}, 0, 0); }), "AddPatch (0,0)");
        EXPECT_NE(CauseOf(writer, *d)
                      .find(d == &noData     ? "Patch has no data"
                            : d == &tooLarge ? "Patch too large"
                                             : "Too many bytes"),
                  std::string::npos)
            << CauseOf(writer, *d);
        EXPECT_NO_THROW(writer.EndCreation());
    }
}

TEST(WriterFailure, PreviewBeyondAllMemoryIsRefusedBeforeAnyIsTaken) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid = MakeGrid(4000000, 4000000, 4000000, 4000000);
    grid.previewWidth = grid.previewHeight = grid.columns;
    writer.CreateNew(&stream, grid);
    kxio::FlatPatchDescriptor flat(kxbase::Range, uint64_t{1} << 31, kxio::RowMajor, 1.0, &Snappy());
    EXPECT_NE(CauseOf(writer, flat).find("Preview too large"), std::string::npos) << CauseOf(writer, flat);
}

TEST(WriterFailure, NullCodecIsNotRememberedForEmptyPatches) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(8, 4, 4, 4));
    kxcodecs::ZLibChunkCodec zlib;
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &zlib);
    writer.AddPatch({&range}, 0, 0);
    range.codec = nullptr;
    EXPECT_THROW(writer.AddPatch({&range}, 0, 0), KXWritingException);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(kxcodecs::QKXChunkCodec::GetName(file.Slice(file.lookup.at(1)[1])), "ZLib");
    EXPECT_EQ(kxcodecs::QKXChunkCodec::GetName(file.Slice(file.previews.at(1)[0])), "ZLib");
}

TEST(WriterFailure, CodecThatNeverWorksLeavesAFileThatIsComplete) {
    FailingCodec failing;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(8, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &failing);
    EXPECT_THROW(writer.AddPatch({&range}, 0, 0), KXWritingException);
    EXPECT_NO_THROW(writer.EndCreation());
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(file.lookup.at(1)[0], (walker::Entry{0, 0}));
    EXPECT_EQ(ValuesOf<float>(walker::Decode(file.Slice(file.lookup.at(1)[1]))),
              std::vector<float>(16, 0.0F));
}

/// A descriptor of the caller's own, which brings its patch to another place.
struct Stray : kxio::FlatPatchDescriptor {
    using FlatPatchDescriptor::FlatPatchDescriptor;
    void Process(kxio::PatchProcessor* processor, unsigned row, unsigned column) override {
        FlatPatchDescriptor::Process(processor, row + 100, column + 100);
    }
};

TEST(WriterFailure, DescriptorThatStraysOutsideTheGridFails) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    std::vector<float> values(16, 1.0F);
    Stray stray(kxbase::Range, 4, kxio::RowMajor, 1.0, &Snappy());
    stray.data = reinterpret_cast<unsigned char*>(values.data());
    stray.size = 16;
    EXPECT_EQ(TextOf<KXWritingException>([&] { writer.AddPatch({&stray}, 0, 0); }), "AddPatch (0,0)");
    EXPECT_EQ(stream.GetBytes().size(), 92U);
}

// One short scan: three components in three patches, one empty patch, one preview.
struct Outcome {
    bool created = false, ended = false;
    std::vector<std::string> problems;
    std::set<uint32_t> failedPatches;
};

Outcome WriteShortScan(kxbase::IOutFileStream* stream, kxio::QSNScanWriter& writer) {
    Outcome outcome;
    const auto attempt = [&](auto action) {
        try {
            action();
            return true;
        } catch (const KXWritingException& e) {
            outcome.problems.push_back(e.what());
            return false;
        }
    };
    outcome.created = attempt([&] { writer.CreateNew(stream, MakeGrid(16, 16, 8, 8)); });
    if (!outcome.created) return outcome;
    for (uint32_t index = 0; index < 3; ++index) {
        Flat<float> range(kxbase::Range, std::vector<float>(64, 1.0F + static_cast<float>(index)), &Snappy());
        Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(64, 9), &Snappy());
        kxio::EmptyPatchDescriptor empty(kxbase::Class, 4);
        if (!attempt([&] { writer.AddPatch({&range, &grey, &empty}, index); })) {
            EXPECT_EQ(outcome.problems.back(),
                      "AddPatch (" + std::to_string(index / 2) + "," + std::to_string(index % 2) + ")");
            outcome.failedPatches.insert(index);
        }
    }
    outcome.ended = attempt([&] { writer.EndCreation(); });
    return outcome;
}

TEST(WriterFailure, StreamThatFailsFromAnyWriteOnIsReported) {
    uint64_t writes = 0;
    {
        FailingStream stream;
        kxio::QSNScanWriter writer;
        EXPECT_TRUE(WriteShortScan(&stream, writer).ended);
        writes = stream.Writes();
    }
    ASSERT_GT(writes, 15U);
    for (uint64_t n = 1; n <= writes; ++n) {
        SCOPED_TRACE("write " + std::to_string(n) + " of " + std::to_string(writes));
        FailingStream stream(n);
        kxio::QSNScanWriter writer;
        const Outcome outcome = WriteShortScan(&stream, writer);
        EXPECT_EQ(outcome.created, n > 1);
        EXPECT_FALSE(outcome.ended);
        EXPECT_FALSE(outcome.problems.empty());
        // Unless it is the last one that fails, the file says that it is not complete.
        if (n < writes) {
            EXPECT_THROW(Walk(stream.GetBytes()), std::runtime_error);
        }
    }
}

TEST(WriterFailure, SingleFailedWriteCostsOnePatchOrTheFileAndNothingElse) {
    uint64_t writes = 0;
    {
        FailingStream stream;
        kxio::QSNScanWriter writer;
        WriteShortScan(&stream, writer);
        writes = stream.Writes();
    }
    for (uint64_t n = 2; n <= writes; ++n) {
        SCOPED_TRACE("write " + std::to_string(n));
        FailingStream stream(n, true);
        kxio::QSNScanWriter writer;
        const Outcome outcome = WriteShortScan(&stream, writer);
        ASSERT_EQ(outcome.problems.size(), 1U) << outcome.problems.back();
        if (!outcome.ended) continue;
        // The torn bytes stay where they are; every table is right all the same.
        const walker::File file = Walk(stream.GetBytes(), stream.Torn());
        for (const auto& [component, entries] : file.lookup) {
            for (uint32_t index = 0; index < entries.size(); ++index) {
                if (entries[index].position == 0) {
                    EXPECT_EQ(outcome.failedPatches.count(index), 1U);
                    continue;
                }
                const walker::Chunk* chunk = file.ChunkAt(entries[index].position);
                ASSERT_NE(chunk, nullptr);
                EXPECT_EQ(chunk->component, component);
                EXPECT_NO_THROW(walker::Decode(file.Slice(entries[index])));
            }
        }
    }
}

TEST(WriterFailure, OutputThatFailsAtCreationLeavesTheWriterReadyForAnother) {
    FailingStream bad(1), good;
    kxio::QSNScanWriter writer;
    EXPECT_THROW(writer.CreateNew(&bad, MakeGrid(4, 4, 4, 4)), KXWritingException);
    writer.CreateNew(&good, MakeGrid(4, 4, 4, 4));
    const auto statistics = writer.EndCreation();
    const walker::File file = Walk(good.GetBytes());
    EXPECT_EQ(statistics.at("Headers"), 92 + file.scanHeaderSize);
}

#if defined(__unix__)
// Lowers the largest file size of this process for a while: writes beyond it fail as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        m_signal = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = bytes;
        m_set = setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_signal);
    }
    bool IsSet() const { return m_set; }

private:
    rlimit m_before{};
    void (*m_signal)(int) = nullptr;
    bool m_set = false;
};

TEST(WriterFailure, FullDiskIsReportedAndTheDestructorIsSilent) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "full.qsn");
    // The OpenMP runtime may make a small file of its own when it starts: not under the limit.
    FailingStream memory(0);
    kxio::QSNScanWriter first;
    first.CreateNew(&memory, MakeGrid(8, 8, 8, 8));
    Flat<float> some(kxbase::Range, std::vector<float>(64, 1.0F), &Snappy());
    first.AddPatch({&some}, 0);
    for (const rlim_t room : {50U, 300U, 2000U}) {
        SCOPED_TRACE(std::to_string(room) + " bytes of room");
        const FileSizeLimit limit(room);
        ASSERT_TRUE(limit.IsSet());
        kxio::QSNScanWriter writer;
        bool failed = false;
        const auto attempt = [&](auto action) {
            try {
                action();
                return true;
            } catch (const KXWritingException&) {
                failed = true;
                return false;
            }
        };
        const bool created = attempt([&] { writer.CreateNew(path, MakeGrid(64, 8, 8, 8)); });
        EXPECT_EQ(created, room > 92);
        if (!created) continue;
        for (uint32_t index = 0; index < 8; ++index) {
            Flat<float> range(kxbase::Range, std::vector<float>(64, 1.0F), &Snappy());
            attempt([&] { writer.AddPatch({&range}, index); });
        }
        try {
            writer.EndCreation();
            FAIL() << "the file cannot have been completed";
        } catch (const KXWritingException& e) {
            EXPECT_EQ(e.Context().file, (folder / "full.qsn").string());
        }
    }
}
#endif

}  // namespace
