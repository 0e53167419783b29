// SPDX-License-Identifier: MIT
// Creation, setters and the end of creation, without or with few patches.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "WriterSupport.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEG.h"
#include "support/TempFolder.h"

namespace {

using namespace support;
using kxbase::KXFileNotOpenException;
using walker::Walk;

constexpr uint64_t kUuid = 0x84968181ef2d2134, kPreregistration = 0x940a8701d02f837b,
                   kWarning = 0xaa661a5ee949e151, kMessage = 0xac14e2e7714a591e,
                   kScanningMode = 0x91acbfc234bec3a9, kColorization = 0x9554a8463740bb07,
                   kHq = 0xbfb6c3129e0b3496, kEr = 0x87d56a371c93300c, kHdr = 0xacbbe8c8d0fce365;

Bytes ReadWhole(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

TEST(WriterLifecycle, FileWithoutTopologyAndPatchesHasHeadersThumbnailAndTailOnly) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    const auto statistics = writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_TRUE(file.chunks.empty());
    EXPECT_TRUE(file.lookup.empty());
    EXPECT_EQ(file.main.previewLookup, 0U);
    EXPECT_EQ(file.main.limits, 0U);
    EXPECT_EQ(file.thumbnailWidth, 200U);
    EXPECT_EQ(file.thumbnailHeight, 200U);
    EXPECT_EQ(file.scan.columns, 0U);
    EXPECT_EQ(file.scan.rows, 1U);
    EXPECT_EQ(file.scan.patchWidth, 1U);
    EXPECT_EQ(file.scan.patchHeight, 1U);
    EXPECT_FLOAT_EQ(static_cast<float>(file.scan.columnStep), 0.1F);
    EXPECT_FLOAT_EQ(static_cast<float>(file.scan.rowStep), 0.1F);
    EXPECT_EQ(file.extended.size(), 4U);
    const std::map<std::string, uint64_t> expected = {{"Headers", 92 + file.scanHeaderSize},
                                                      {"LookupTables", 20},
                                                      {"Thumbnail", file.thumbnailSize},
                                                      {"PointCount", 0}};
    EXPECT_EQ(statistics, expected);
}

TEST(WriterLifecycle, FileBeginsWithTheFrameOfTheMainHeader) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 2, 2));
    const Bytes frame = {0x5e, 0xde, 0x73, 0x9b, 0xdb, 0x7e, 0x79, 0xab, 0xd2, 0, 0, 0, 0x4c, 0, 0, 0};
    ASSERT_EQ(stream.GetBytes().size(), 92U);
    EXPECT_EQ(Bytes(stream.GetBytes().begin(), stream.GetBytes().begin() + 16), frame);
    // Provisional: the first chunk's position and the writer revision, everything else 0.
    Bytes payload(76, 0);
    payload[16] = 92;
    payload[72] = 240;
    EXPECT_EQ(Bytes(stream.GetBytes().begin() + 16, stream.GetBytes().end()), payload);
}

TEST(WriterLifecycle, WriterDroppedBeforeTheEndLeavesTheProvisionalHeader) {
    const TempFolder folder;
    const auto path = folder.Path() / "dropped.qsn";
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew(Wide(path), MakeGrid(4, 4, 4, 4));
        kxcodecs::SnappyChunkCodec codec;
        Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &codec);
        writer.AddPatch({&range}, 0, 0);
    }
    const Bytes bytes = ReadWhole(path);
    ASSERT_GT(bytes.size(), 92U);
    for (size_t i = 16; i < 92; ++i) {
        EXPECT_EQ(bytes[i], i == 32 ? 92 : i == 88 ? 240 : 0) << "byte " << i;
    }
}

TEST(WriterLifecycle, GridOfHeightZeroHasNeitherPreviewsNorLimits) {
    for (const bool cylinder : {false, true}) {
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        if (cylinder) {
            writer.CreateNew(&stream, MakeCylinder(8, 0, 4, 4));
        } else {
            writer.CreateNew(&stream, MakeGrid(8, 0, 4, 4));
        }
        kxcodecs::SnappyChunkCodec codec;
        Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &codec);
        writer.AddPatch({&range}, 0, 1);
        const auto statistics = writer.EndCreation();
        const walker::File file = Walk(stream.GetBytes());
        EXPECT_FALSE(file.HasPreviews());
        EXPECT_EQ(statistics.count("Limits"), 0U);
        // Only the cylinder grows downwards; in the grid the patch stays outside and holds no point.
        EXPECT_EQ(file.scan.rows, cylinder ? 4U : 0U);
        EXPECT_EQ(file.scan.points, cylinder ? 16U : 0U);
        EXPECT_EQ(file.chunks.size(), cylinder ? 2U : 1U);  // with the shared empty chunk
    }
}

TEST(WriterLifecycle, PreviewOfTheTopologyIsKeptShrunkOrComputed) {
    struct Case {
        uint32_t givenWidth, givenHeight, width, height;
        float columnRatio, rowRatio;
    };
    const Case cases[] = {
        {50, 40, 50, 40, 2.0F, 1.25F},   // kept as given
        {101, 10, 100, 50, 1.0F, 1.0F},  // wider than the grid
        {10, 51, 100, 50, 1.0F, 1.0F},   // taller than the grid
        {0, 0, 100, 50, 1.0F, 1.0F},     // computed
        {20, 0, 100, 50, 1.0F, 1.0F},    // no area: computed
    };
    for (const Case& c : cases) {
        kxbase::InMemoryStream stream;
        kxio::QSNScanWriter writer;
        kxbase::GridTopology grid = MakeGrid(100, 50, 64, 64);
        grid.previewWidth = c.givenWidth;
        grid.previewHeight = c.givenHeight;
        grid.columnRatio = 2.0F;
        grid.rowRatio = 1.25F;
        writer.CreateNew(&stream, grid);
        const kxbase::GridTopology& kept = writer.GetScanProperties().grid;
        SCOPED_TRACE(std::to_string(c.givenWidth) + " x " + std::to_string(c.givenHeight));
        EXPECT_EQ(kept.previewWidth, c.width);
        EXPECT_EQ(kept.previewHeight, c.height);
        EXPECT_EQ(kept.columnRatio, c.columnRatio);
        EXPECT_EQ(kept.rowRatio, c.rowRatio);
        const bool computed = c.givenHeight == 0;
        EXPECT_EQ(kept.columnHalfStep, computed ? grid.columnAngularStep * 0.5F : 0.0F);
        EXPECT_EQ(kept.rowHalfStep, computed ? grid.rowAngularStep * 0.5F : 0.0F);
    }
}

TEST(WriterLifecycle, CylinderTakesSizesStepsAndPreviewFactor) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::CylindricalTopology cylinder = MakeCylinder(4000, 2000, 128, 64);
    cylinder.previewFactor = 0.5;
    writer.CreateNew(&stream, cylinder);
    const kxbase::GridTopology& grid = writer.GetScanProperties().grid;
    EXPECT_EQ(grid.columns, 4000U);
    EXPECT_EQ(grid.rows, 2000U);
    EXPECT_EQ(grid.patchWidth, 128U);
    EXPECT_EQ(grid.patchHeight, 64U);
    EXPECT_EQ(grid.columnAngularStep, 0.1F);
    EXPECT_EQ(grid.rowAngularStep, 0.1F);
    EXPECT_EQ(grid.previewWidth, 1000U);
    EXPECT_EQ(grid.previewHeight, 500U);
    EXPECT_EQ(grid.columnRatio, 4.0F);

    // Without a patch height the factor does not count, and creation computes a preview of its own.
    kxbase::InMemoryStream other;
    kxio::QSNScanWriter second;
    cylinder.patchHeight = 0;
    second.CreateNew(&other, cylinder);
    EXPECT_EQ(second.GetScanProperties().grid.previewWidth, 2000U);
    EXPECT_EQ(second.GetScanProperties().grid.columnHalfStep, 0.05F);
}

TEST(WriterLifecycle, SettersReachTheScanHeader) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid = MakeGrid(6, 4, 2, 2);
    grid.columnStartAngle = 3.0F;
    grid.rowStartAngle = -0.5F;
    grid.columnAngularStep = -0.25F;
    writer.CreateNew(&stream, grid);
    writer.SetSpeckleFilteringNeeded(true);
    writer.SetHasBeenSpatiallySampledToDistance(2.5F);
    writer.Set3DLock(true);
    writer.SetProjectionMode(false);
    writer.SetFramingMode(static_cast<kxio::ScanProperties::ScanFrameType>(7));
    double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 10.5, -20, 30};
    writer.SetRegistration(kxbase::RegistrationInformation::FromValues(values));
    writer.SetPointcount(4242);
    writer.GetScanProperties().scannerModel = L"Ostrak RM7";
    EXPECT_EQ(writer.EndCreation().at("PointCount"), 4242U);

    const walker::ScanHeaderFields scan = Walk(stream.GetBytes()).scan;
    EXPECT_EQ(scan.speckle, 1U);
    EXPECT_EQ(scan.sampling, 2.5F);
    EXPECT_EQ(scan.locked, 1U);
    EXPECT_EQ(scan.projected, 0U);
    EXPECT_EQ(scan.framing, 7U);
    EXPECT_EQ(scan.points, 4242U);
    EXPECT_EQ(scan.columnStart, 3.0);
    EXPECT_EQ(scan.rowStart, -0.5);
    EXPECT_EQ(scan.columnStep, 0.25);
    EXPECT_EQ(scan.texts[2], "Ostrak RM7");
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(scan.registration[i], values[i]) << i;
}

TEST(WriterLifecycle, UntouchedScanHasNoUsableDates) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
    writer.EndCreation();
    const walker::ScanHeaderFields scan = Walk(stream.GetBytes()).scan;
    EXPECT_EQ(scan.dateStatus, 1U);
    EXPECT_EQ(scan.texts[0], "");
    EXPECT_EQ(scan.texts[1], "");
    EXPECT_EQ(scan.projected, 1U);
}

TEST(WriterLifecycle, TailRecordsComeInTheirOrder) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    const kxbase::UUID parent = kxbase::UUID::Generate(), other = kxbase::UUID::Generate();
    writer.SetParentUUID(parent);
    writer.AddMessage(L"m1");
    writer.AddWarning(L"w1");
    writer.AddMessage(L"gr\u00fc\u00dfe");
    kxio::ScanProperties& p = writer.GetScanProperties();
    p.messages = {L"m3"};
    p.warnings = {L"", L"w3"};
    p.scanningMode = L"Level 2";
    p.hdrLinks = {other};
    p.hqLinks = {other, parent};
    p.erLinks = {parent};
    p.preregistrationValue = 2.5;
    p.preregistrationUUID = other;
    writer.EndCreation();

    const walker::File file = Walk(stream.GetBytes());
    const auto ascii = [](const kxbase::UUID& uuid) { return kxbase::Encode_UTF8(uuid.ToWString()); };
    const std::vector<std::pair<uint64_t, std::string>> texts = {{kWarning, "w1"},
                                                                 {kWarning, ""},
                                                                 {kWarning, "w3"},
                                                                 {kMessage, "m1"},
                                                                 {kMessage,
                                                                  "gr\xc3\xbc\xc3\x9f"
                                                                  "e"},
                                                                 {kMessage, "m3"},
                                                                 {kScanningMode, "Level 2"},
                                                                 {kColorization, ""},
                                                                 {kHq, ascii(other)},
                                                                 {kHq, ascii(parent)},
                                                                 {kEr, ascii(parent)},
                                                                 {kHdr, ascii(other)}};
    ASSERT_EQ(file.extended.size(), 2 + texts.size());
    EXPECT_EQ(file.extended[0].type, kUuid);
    EXPECT_EQ(file.extended[1].type, kPreregistration);
    for (size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(file.extended[2 + i].type, texts[i].first) << i;
        EXPECT_EQ(file.extended[2 + i].Text(), texts[i].second) << i;
    }

    Bytes uuids;
    for (const kxbase::UUID& uuid : {writer.GetScanUUID(), parent}) {
        const auto bytes = uuid.ToBytes();
        uuids.insert(uuids.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(file.extended[0].data, uuids);
    ASSERT_EQ(file.extended[1].data.size(), 120U);
    const Bytes two_and_a_half = {0, 0, 0, 0, 0, 0, 4, 0x40};
    EXPECT_EQ(Bytes(file.extended[1].data.begin(), file.extended[1].data.begin() + 8), two_and_a_half);
}

TEST(WriterLifecycle, ScanIdentifierIsThereFromTheStartAndDiffersPerWriter) {
    const kxio::QSNScanWriter first, second;
    EXPECT_FALSE(first.GetScanUUID().IsZero());
    EXPECT_NE(first.GetScanUUID(), second.GetScanUUID());
}

TEST(WriterLifecycle, CopiesShareOneScan) {
    kxbase::InMemoryStream stream;
    auto original = std::make_unique<kxio::QSNScanWriter>();
    kxio::QSNScanWriter copy(*original);
    kxio::QSNScanWriter assigned;
    assigned = copy;
    EXPECT_EQ(copy.GetScanUUID(), original->GetScanUUID());
    original->CreateNew(&stream);
    original.reset();
    copy.AddMessage(L"still here");
    assigned.EndCreation();
    EXPECT_EQ(Walk(stream.GetBytes()).OfType(kMessage).size(), 1U);
    EXPECT_THROW(copy.EndCreation(), KXFileNotOpenException);
}

TEST(WriterLifecycle, CallsOutOfOrderAreRefused) {
    kxio::QSNScanWriter writer;
    kxcodecs::SnappyChunkCodec codec;
    Flat<float> range(kxbase::Range, {1.0F}, &codec);
    unsigned char preview[1] = {0};
    const auto everyCall = [&](const char* when) {
        SCOPED_TRACE(when);
        EXPECT_EQ(TextOf<KXFileNotOpenException>([&] { writer.AddPatch({&range}, 0, 0); }), "No file open");
        EXPECT_EQ(TextOf<KXFileNotOpenException>([&] { writer.AddPatch({&range}, 0); }), "No file open");
        EXPECT_EQ(
            TextOf<KXFileNotOpenException>([&] { writer.SetCompressedPreview(preview, 1, kxbase::Range); }),
            "No file open");
        EXPECT_EQ(TextOf<KXFileNotOpenException>([&] { writer.EndCreation(); }), "No file open");
    };
    everyCall("before creation");
    kxbase::InMemoryStream stream;
    writer.CreateNew(&stream);
    kxbase::InMemoryStream second;
    EXPECT_EQ(TextOf<KXFileNotOpenException>([&] { writer.CreateNew(&second); }), "Cannot file not open");
    EXPECT_TRUE(second.GetBytes().empty());
    writer.EndCreation();
    everyCall("after the end");
    EXPECT_EQ(TextOf<KXFileNotOpenException>([&] { writer.CreateNew(&second); }), "Cannot file not open");
}

TEST(WriterLifecycle, SecondCreationDoesNotTouchTheFileItNames) {
    const TempFolder folder;
    const auto path = folder.Path() / "precious.qsn";
    std::ofstream(path) << "precious";
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    EXPECT_THROW(writer.CreateNew(Wide(path)), KXFileNotOpenException);
    EXPECT_EQ(ReadWhole(path).size(), 8U);
}

TEST(WriterLifecycle, OutputThatCannotBeOpenedIsRefusedAndAnotherMayBeGiven) {
    const TempFolder folder;
    kxio::QSNScanWriter writer;
    const auto missing = folder.Path() / "no such folder" / "scan.qsn";
    EXPECT_EQ(TextOf<KXFileNotOpenException>([&] { writer.CreateNew(Wide(missing)); }),
              "Cannot file not open");
    EXPECT_EQ(
        TextOf<KXFileNotOpenException>([&] { writer.CreateNew(Wide(folder.Path()), MakeGrid(1, 1, 1, 1)); }),
        "Cannot file not open");
    EXPECT_EQ(TextOf<KXFileNotOpenException>([&] {
                  writer.CreateNew(static_cast<kxbase::IOutFileStream*>(nullptr), MakeCylinder(1, 1, 1, 1));
              }),
              "Cannot file not open");
    try {
        writer.CreateNew(Wide(missing));
        FAIL();
    } catch (const KXFileNotOpenException& e) {
        EXPECT_EQ(e.Context().file, kxbase::Encode_UTF8(Wide(missing)));
    }
    writer.CreateNew(Wide(folder.Path() / "scan.qsn"));
    writer.EndCreation();
    EXPECT_NO_THROW(Walk(ReadWhole(folder.Path() / "scan.qsn")));
}

TEST(WriterLifecycle, PathAndTextMayHoldAnyCharacter) {
    const TempFolder folder;
    const std::wstring path = Wide(folder.Path()) + L"/Stra\u00dfe \U0001f30d.qsn";
    kxio::QSNScanWriter writer;
    writer.CreateNew(path, MakeGrid(4, 4, 4, 4));
    writer.AddMessage(L"\U0001f30d");
    writer.EndCreation();
    const walker::File file = Walk(ReadWhole(folder.Path() / "Stra\xc3\x9f"
                                                             "e \xf0\x9f\x8c\x8d.qsn"));
    EXPECT_EQ(file.OfType(kMessage).at(0)->Text(), "\xf0\x9f\x8c\x8d");
}

TEST(WriterLifecycle, CallersStreamIsNeitherClosedNorDestroyed) {
    FailingStream stream;
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(4, 4, 4, 4));
        writer.EndCreation();
    }
    EXPECT_FALSE(stream.Closed());
    EXPECT_NO_THROW(Walk(stream.GetBytes()));
}

TEST(WriterLifecycle, PropertiesOfAnotherScanAreTakenOverWithLinks) {
    kxio::ScanProperties properties;
    properties.hqLinks = {kxbase::UUID::Generate()};
    properties.scanUUID = kxbase::UUID::Generate();
    properties.messages = {L"from the other scan"};
    properties.grid = MakeGrid(4, 4, 4, 4);
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, properties.grid);
    writer.GetScanProperties() = properties;
    EXPECT_EQ(writer.GetScanUUID(), properties.scanUUID);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(file.OfType(kHq).size(), 1U);
    EXPECT_EQ(file.OfType(kMessage).at(0)->Text(), "from the other scan");
}

TEST(WriterLifecycle, GridEditedAfterwardsBreaksNothing) {
    for (const auto& [columns, rows, patchWidth, patchHeight] :
         {std::array<uint32_t, 4>{100, 100, 4, 4}, {1, 1, 4, 4}, {0, 0, 4, 4}, {8, 8, 0, 0}, {8, 8, 1, 1}}) {
        kxbase::InMemoryStream stream;
        kxcodecs::SnappyChunkCodec codec;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(8, 8, 4, 4));
        Flat<float> range(kxbase::Range, std::vector<float>(16, 2.0F), &codec);
        Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 2), &codec);
        writer.AddPatch({&range, &grey}, 1, 1);
        kxbase::GridTopology& grid = writer.GetScanProperties().grid;
        grid.columns = columns;
        grid.rows = rows;
        grid.patchWidth = patchWidth;
        grid.patchHeight = patchHeight;
        try {
            writer.AddPatch({&range, &grey}, 0, 0);
        } catch (const kxbase::KXWritingException&) {
        }
        EXPECT_NO_THROW(writer.EndCreation());
        EXPECT_NO_THROW(Walk(stream.GetBytes()));
    }
}

}  // namespace
