// SPDX-License-Identifier: MIT
// The input is a scan file, whole or damaged: it is verified at every level, dumped, measured, and compared
// with itself.
#include <algorithm>

#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/DiffScans.h"
#include "kxio/DumpRecords.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanStatistics.h"
#include "kxio/VerifyScan.h"

namespace {

/// Decoding is what takes time; a fuzzer learns nothing from bombs.
constexpr uint64_t kMostDecodedBytes = 1 << 22;

void Verify(kxbase::IInFileStream& stream) {
    kxio::VerifyOptions options;
    options.limits.decodedBytes = kMostDecodedBytes;
    options.mostFindings = 100;
    kxio::VerifyReport before;
    for (const auto level : {kxio::VerifyLevel::Quick, kxio::VerifyLevel::Full, kxio::VerifyLevel::Deep}) {
        options.level = level;
        const kxio::VerifyReport report = kxio::VerifyScan(stream, options);
        Require(report.findings.size() + report.leftOut == report.errors + report.warnings + report.notes,
                "every finding is counted");
        Require(report.errors >= before.errors, "a deeper level finds no less");
        Require(report.damagedChunks <= report.chunks, "chunks are damaged or not");
        before = report;
    }
}

void Dump(kxbase::IInFileStream& stream) {
    uint64_t end = 0;
    kxio::DumpRecords(stream, [&](const kxio::DumpedRecord& record) {
        Require(record.offset <= end, "no byte is left out");
        end = std::max(end, record.offset + record.bytes);
        Require(record.damaged || record.problem.empty(), "a problem is damage");
    });
    Require(end == stream.GetSize(), "the dump reaches the end of the file");
}

void CompareAndMeasure(kxbase::IInFileStream& stream) {
    try {
        const kxio::QSNScanReader reader(&stream);
        const kxio::DiffReport same = kxio::DiffScans(reader, reader);
        Require(same.properties.empty() && same.sameSize, "a scan has its own properties");
        for (const kxio::ComponentDifference& component : same.components)
            Require(component.different == 0, "a scan has its own cells");
        for (const kxio::ComponentStatistics& component : kxio::MeasureScan(reader))
            Require(component.values <= component.cells, "values are those of cells");
    } catch (const kxbase::KXException&) {
        // It does not open.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kxbase::InMemoryStream stream(data, size);
    Verify(stream);
    Dump(stream);
    CompareAndMeasure(stream);
    return 0;
}
