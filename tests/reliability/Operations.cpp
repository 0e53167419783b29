// SPDX-License-Identifier: MIT
#include "Operations.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "kxbase/kxInFile.h"
#include "kxcodecs/JPEG.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxexchange/kxexchange.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/RecoverToFile.h"
#include "kxio/ThumbnailEdit.h"
#include "kxio/VerifyScan.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"

namespace reliability {

namespace {

namespace fs = std::filesystem;
using kxtest::LoadFile;
using kxtest::StoreFile;

constexpr uint32_t kSide = 8;

void AddPatch(kxio::QSNScanWriter& writer, uint32_t index, kxcodecs::QKXChunkCodec& zlib,
              kxcodecs::QKXChunkCodec& snappy) {
    const uint32_t cells = kSide * kSide;
    std::vector<float> range(cells), vertical(cells), horizontal(cells);
    std::vector<uint16_t> intensity(cells);
    std::mt19937 noise(index);
    for (uint32_t i = 0; i < cells; ++i) {
        const uint32_t x = index % 3 * kSide + i % kSide;
        const uint32_t y = index / 3 * kSide + i / kSide;
        range[i] = noise() % 10 == 0 ? 0.0F : 5000.0F + static_cast<float>(noise() % 2000);
        vertical[i] = 0.7F + 0.002F * static_cast<float>(y);
        horizontal[i] = 3.0F - 0.002F * static_cast<float>(x);
        intensity[i] = static_cast<uint16_t>(noise() % 3000);
    }
    const auto add = [&](kxbase::ComponentType component, auto& values, uint64_t bytes, double scale,
                         kxcodecs::QKXChunkCodec& codec) {
        kxio::FlatPatchDescriptor patch(component, bytes, kxio::RowMajor, scale, &codec);
        patch.data = reinterpret_cast<unsigned char*>(values.data());
        patch.size = cells;
        writer.AddPatch({&patch}, index);
    };
    add(kxbase::Range, range, 4, 0.1, zlib);
    add(kxbase::VerticalAngle, vertical, 4, 1e-6, snappy);
    add(kxbase::HorizontalAngle, horizontal, 4, 1e-6, snappy);
    add(kxbase::Luminance16, intensity, 2, 1.0, zlib);
}

Bytes Thumbnail() {
    Bytes jpeg;
    kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
    return jpeg;
}

kxexchange::ImportOptions SmallPatches() {
    kxexchange::ImportOptions options;
    options.patchWidth = options.patchHeight = kSide;
    options.threads = 1;
    return options;
}

void Export(const fs::path& scan, const fs::path& target, const std::string& format) {
    kxexchange::ExportOptions options;
    options.sink.threads = 1;
    kxexchange::ExportScan(scan, target, format, options);
}

void Import(const fs::path& source, const fs::path& target) {
    kxexchange::SourceOptions options;
    options.temporaryFolder = target.parent_path();
    const auto scans = kxexchange::OpenScanSource(source, options);
    kxexchange::ImportScan(*scans, 0, target, SmallPatches());
}

std::vector<Operation> MakeOperations() {
    using kxio::QSNInfo;
    const TempFolder folder;
    WriteScan(Wide(folder / "hashed.qsn"), true);
    const Bytes hashed = LoadFile(folder / "hashed.qsn");
    WriteScan(Wide(folder / "bare.qsn"), false);
    const Bytes bare = LoadFile(folder / "bare.qsn");
    for (const char* format : {"PTX", "E57"})
        Export(folder / "hashed.qsn", folder / (std::string("scan.") + format), format);

    std::vector<Operation> list;
    const auto path = [](const fs::path& in, const char* name) { return Wide(in / name); };
    const auto read = [&](const std::string& name, const Bytes& bytes, auto run) {
        list.push_back({name, {{"scan.qsn", bytes}}, "", "", false, run});
    };
    const auto edit = [&](const std::string& name, const Bytes& bytes, auto run) {
        list.push_back(
            {name, {{"scan.qsn", bytes}}, "scan.qsn", "", false, [run](const fs::path& in, Outcome&) {
                 run(Wide(in / "scan.qsn"));
             }});
    };
    const auto make = [&](const std::string& name, const std::string& source, const Bytes& bytes,
                          const std::string& output, auto run) {
        list.push_back({name, {{source, bytes}}, "", output, true, run});
    };
    for (const bool withHashes : {true, false}) {
        const Bytes& bytes = withHashes ? hashed : bare;
        const std::string of = withHashes ? "Hashed" : "Plain";
        read("Read" + of, bytes, [path](const fs::path& in, Outcome& outcome) {
            kxbase::kxInFile file(path(in, "scan.qsn"));
            outcome.scan = kxtest::ReadGiven(file);
        });
        read("OpenAndRead" + of, bytes, [path](const fs::path& in, Outcome& outcome) {
            kxio::QSNScanReader reader(path(in, "scan.qsn"));
            outcome.scan.emplace();
            outcome.scan->properties = reader.GetScanInformation();
            outcome.scan->marked = !reader.GetIntegrityProblems().empty();
            const kxio::ScanAccess access(reader);
            for (const kxbase::ComponentType component : access.Components()) {
                const auto bytesOf =
                    access.ReadStoredPatchBytes(component, 1, 1, access.ElementBytes(component));
                outcome.text.append(bytesOf.values.begin(), bytesOf.values.end());
            }
        });
        read("Verify" + of, bytes, [path](const fs::path& in, Outcome& outcome) {
            const kxio::VerifyReport report = kxio::VerifyScan(path(in, "scan.qsn"));
            outcome.told = report.errors != 0;
            outcome.text = std::to_string(report.errors) + " " + std::to_string(report.chunks);
        });
        edit("AddMessage" + of, bytes, [](const std::wstring& file) { QSNInfo::AddMessage(file, L"later"); });
        edit("AddLink" + of, bytes, [](const std::wstring& file) {
            QSNInfo::AddHQLink(file, kxbase::UUID(L"44444444-0506-0708-090a-0b0c0d0e0f10"));
        });
        edit("SetRegistration" + of, bytes, [](const std::wstring& file) {
            QSNInfo::SetRegistrationInfo(file, kxbase::RegistrationInformation(kxbase::Frame3D(), {7, 8, 9}));
        });
        edit("SetSpeckle" + of, bytes,
             [](const std::wstring& file) { kxio::QSNFileRecovery::SetSpekleBit(file); });
        edit("SetThumbnail" + of, bytes,
             [](const std::wstring& file) { kxio::SetThumbnail(file, Thumbnail()); });
        make("Recover" + of, "scan.qsn", bytes, "out.qsn", [path](const fs::path& in, Outcome& outcome) {
            const kxio::RecoveryReport report =
                kxio::RecoverToFile(path(in, "scan.qsn"), path(in, "out.qsn"));
            outcome.told = report.unreadableBytes != 0 || report.chunksLost != 0;
        });
        make("Recode" + of, "scan.qsn", bytes, "out.qsn", [](const fs::path& in, Outcome&) {
            kxexchange::RecodeScan(in / "scan.qsn", in / "out.qsn", SmallPatches());
        });
    }
    edit("Protect", bare, [](const std::wstring& file) { kxio::ProtectFile(file); });
    for (const char* format : {"PTX", "E57", "PLY", "PCD"}) {
        const std::string name = std::string("out.") + format;
        make(std::string("Export") + format, "scan.qsn", bare, name,
             [format, name](const fs::path& in, Outcome&) { Export(in / "scan.qsn", in / name, format); });
    }
    for (const char* format : {"PTX", "E57"}) {
        const std::string name = std::string("scan.") + format;
        make(std::string("Import") + format, name, LoadFile(folder / name), "out.qsn",
             [name](const fs::path& in, Outcome&) { Import(in / name, in / "out.qsn"); });
    }
    list.push_back({"Write", {}, "", "out.qsn", false, [path](const fs::path& in, Outcome&) {
                        WriteScan(path(in, "out.qsn"), true);
                    }});
    list.push_back({"ExportAscii",
                    {{"scan.qsn", bare}},
                    "",
                    "out.txt",
                    false,
                    [path](const fs::path& in, Outcome& outcome) {
                        kxio::QSNFileRecovery recovery(path(in, "scan.qsn"));
                        const auto report = recovery.ExportAscii(path(in, "out.txt"), {});
                        outcome.told = report.chunksFound == 0 || report.chunksLost != 0;
                    }});
    return list;
}

void Forget(kxio::ScanProperties& properties) {
    properties.firstDate = {};
    properties.secondDate = {};
    properties.scanUUID = {};
}

}  // namespace

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> list = MakeOperations();
    return list;
}

const Operation& OperationNamed(const std::string& name) {
    for (const Operation& operation : Operations()) {
        if (operation.name == name) return operation;
    }
    throw std::out_of_range("no operation " + name);
}

void PutSources(const Operation& operation, const fs::path& folder) {
    for (const auto& [name, bytes] : operation.sources)
        StoreFile(Wide(folder / name), bytes);
}

std::optional<kxtest::Given> ReadResult(const fs::path& path) {
    auto given = kxtest::TryReadGiven(LoadFile(path));
    if (given) Forget(given->properties);
    return given;
}

void LookAtResult(const Operation& operation, const fs::path& folder, Outcome& outcome) {
    if (outcome.scan) Forget(outcome.scan->properties);
    const std::string& name = operation.edited.empty() ? operation.output : operation.edited;
    if (name.empty()) return;
    if (name.ends_with(".qsn")) {
        outcome.scan = ReadResult(folder / name);
        return;
    }
    // What other formats hold of the moment and of fresh identifiers has a fixed length.
    const Bytes bytes = LoadFile(folder / name);
    outcome.text =
        name.ends_with("E57") ? std::to_string(bytes.size()) : std::string(bytes.begin(), bytes.end());
}

bool SameScan(const std::optional<kxtest::Given>& a, const std::optional<kxtest::Given>& b) {
    if (!a || !b) return a.has_value() == b.has_value();
    return a->cells == b->cells && a->properties == b->properties && a->hashes == b->hashes &&
           a->marked == b->marked;
}

EditStates::EditStates(const Operation& operation) : m_operation(operation) {
    const TempFolder folder;
    PutSources(operation, folder.Path());
    m_old = ReadResult(folder / operation.edited);
    m_new = Again(folder.Path());
    m_newAgain = Again(folder.Path());
    EXPECT_TRUE(m_old && m_new && m_newAgain);
    EXPECT_FALSE(SameScan(m_old, m_new)) << "the edit does not show";
}

std::optional<kxtest::Given> EditStates::Again(const fs::path& folder) const {
    Outcome outcome;
    try {
        m_operation.run(folder, outcome);
    } catch (const std::exception& e) {
        ADD_FAILURE() << "the edit cannot be made: " << e.what();
    }
    return ReadResult(folder / m_operation.edited);
}

bool EditStates::Look(const fs::path& folder) const {
    const auto found = ReadResult(folder / m_operation.edited);
    EXPECT_TRUE(found) << "the file does not open";
    const bool isNew = SameScan(found, m_new);
    EXPECT_TRUE(isNew || SameScan(found, m_old)) << "neither the old state nor the new one";
    const kxio::VerifyReport report = kxio::VerifyScan(Wide(folder / m_operation.edited));
    for (const kxio::VerifyFinding& finding : report.findings)
        EXPECT_NE(finding.severity, kxio::FindingSeverity::Error) << finding.record << ": " << finding.text;
    EXPECT_TRUE(SameScan(Again(folder), isNew ? m_newAgain : m_new)) << "the edit made again gives another";
    EXPECT_EQ(kxio::VerifyScan(Wide(folder / m_operation.edited)).errors, 0U) << "after the edit made again";
    return isNew;
}

void WriteScan(const std::wstring& path, bool hashes, const std::function<void(unsigned)>& patchDone) {
    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::SnappyChunkCodec snappy;
    kxbase::GridTopology grid;
    grid.columnStartAngle = 3;
    grid.rowStartAngle = 0.7F;
    grid.columnAngularStep = grid.rowAngularStep = 0.002F;
    grid.columns = 3 * kSide;
    grid.rows = 2 * kSide;
    grid.patchWidth = grid.patchHeight = kSide;
    kxio::QSNScanWriter writer;
    writer.CreateNew(path, grid);
    writer.SetIntegrity(hashes);
    writer.GetScanProperties().scanUUID = kxbase::UUID(L"01020304-0506-0708-090a-0b0c0d0e0f10");
    writer.AddMessage(L"seen from the yard");
    writer.AddWarning(L"rain");
    for (unsigned index = 0; index < 6; ++index) {
        AddPatch(writer, index, zlib, snappy);
        if (patchDone) patchDone(index + 1);
    }
    writer.EndCreation();
}

}  // namespace reliability
