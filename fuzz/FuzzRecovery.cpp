// SPDX-License-Identifier: MIT
// The input is a damaged scan file: it is recovered both ways, and the new file is read and recovered again.
#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNScanReader.h"
#include "kxio/RecoverToFile.h"
#include "support/ReadEverything.h"

namespace {

class Bytewise : public kxio::QSNFileRecovery {
public:
    explicit Bytewise(std::vector<unsigned char> bytes) : QSNFileRecovery(std::move(bytes)) {}
    using QSNFileRecovery::ExportAscii;
};

void ExportPoints(std::vector<unsigned char> bytes) {
    // A damaged row number costs five lines of messages for each row before it, as it should.
    constexpr uint32_t kMostRows = 1000;
    try {
        Bytewise recovery(std::move(bytes));
        kxio::ScanProperties properties;
        recovery.TryToFindScanProperties(properties);
        kxbase::InMemoryStream text;
        if (recovery.GetLargestPatchRow() <= kMostRows) recovery.ExportAscii(text, {});
    } catch (const kxbase::KXUnreadablePatchException&) {
        // The first range chunk does not decode.
    }
}

void Rebuild(std::vector<unsigned char> bytes) {
    kxbase::InMemoryStream damaged(std::move(bytes));
    kxbase::InMemoryStream rebuilt;
    kxio::RecoveryReport report;
    try {
        report = kxio::RecoverToStream(damaged, rebuilt);
    } catch (const kxbase::KXIncompleteFileException&) {
        return;  // nothing to recover
    }
    Require(report.chunksRecovered + report.chunksLost == report.chunksFound, "chunks are saved or lost");
    const kxtest::ReadOutcome outcome = kxtest::ReadEverything(rebuilt);
    Require(outcome.opened, "the new file opens");
    Require(outcome.consistent, "a layer of the new file is made of its patches");

    kxbase::InMemoryStream again;
    rebuilt.Seek(0);
    const kxio::RecoveryReport second = kxio::RecoverToStream(rebuilt, again);
    Require(second.chunksLost == 0, "nothing of the new file is lost");
    Require(second.chunksRecovered == report.chunksRecovered, "the new file holds what was saved");
    Require(second.pointsSaved == report.pointsSaved, "the new file has the points that were saved");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    ExportPoints(bytes);
    Rebuild(bytes);
    return 0;
}
