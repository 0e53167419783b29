// SPDX-License-Identifier: MIT
// The input is a list of edits and a scan file: u8 count n (up to 7), n edits of 4 bytes (kind, three of what
// is put in), then the file. After each the file is as sound as it was, holds what was put in, and keeps its
// patches.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <list>
#include <span>
#include <string>

#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEG.h"
#include "kxio/ProtectFile.h"
#include "kxio/QSNFileRecovery.h"
#include "kxio/QSNInfo.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ThumbnailEdit.h"
#include "kxio/VerifyScan.h"
#include "support/StoredFile.h"

namespace {

using Bytes = std::vector<unsigned char>;

std::wstring FilePath() {
    static const std::wstring path = kxbase::Decode_UTF8(
        (std::filesystem::temp_directory_path() / ("fuzz-edit-" + std::to_string(::getpid()) + ".qsn"))
            .string());
    return path;
}

/// What an edit is asked to put in.
struct Wish {
    unsigned kind;
    std::wstring text;
    kxbase::UUID link = kxbase::UUID::Generate();
    kxbase::RegistrationInformation registration;
    bool speckle;
    Bytes jpeg;

    explicit Wish(std::span<const uint8_t> e)
        : kind(e[0] % 9),
          text(e[2] % 40, static_cast<wchar_t>(1 + e[1])),
          registration(kxbase::Frame3D(), {static_cast<double>(e[1]), static_cast<double>(e[2]), 3}),
          speckle(e[1] % 2 == 0) {
        const unsigned side = 1 + e[1] % 16;
        kxcodecs::JPEG::Encode(Bytes(size_t{3} * side * side, e[2]).data(), side, side, 50, jpeg);
    }
};

void Edit(const std::wstring& path, const Wish& wish) {
    switch (wish.kind) {
        case 0:
            return kxio::QSNInfo::AddMessage(path, wish.text);
        case 1:
            return kxio::QSNInfo::AddWarning(path, wish.text);
        case 2:
            return kxio::QSNInfo::AddHQLink(path, wish.link);
        case 3:
            return kxio::QSNInfo::AddERLink(path, wish.link);
        case 4:
            return kxio::QSNInfo::AddHDRLink(path, wish.link);
        case 5:
            return kxio::QSNInfo::SetRegistrationInfo(path, wish.registration);
        case 6:
            return wish.speckle ? kxio::QSNFileRecovery::SetSpekleBit(path)
                                : kxio::QSNFileRecovery::ClearSpekleBit(path);
        case 7:
            return kxio::SetThumbnail(path, wish.jpeg);
        default:
            kxio::ProtectFile(path);
            return;
    }
}

/// What the file says to a reader.
struct State {
    uint64_t errors = 0;
    uint64_t lost = 0;  ///< extended records that no reader finds
    uint64_t problems = 0;
    std::vector<Bytes> patches;
    std::list<std::wstring> messages;
    std::list<std::wstring> warnings;
    std::list<kxbase::UUID> hq, er, hdr;
    Bytes registration;
    bool speckle = false;
    Bytes thumbnail;
    bool hashes = false;

    /// The same, hashes and what verification finds aside.
    bool SameContent(const State& other) const {
        return patches == other.patches && messages == other.messages && warnings == other.warnings &&
               hq == other.hq && er == other.er && hdr == other.hdr && registration == other.registration &&
               speckle == other.speckle && thumbnail == other.thumbnail;
    }
};

// Bytes, because no number is equal to one that is none.
Bytes RegistrationBytes(const kxbase::RegistrationInformation& registration) {
    Bytes bytes(12 * sizeof(double));
    std::memcpy(bytes.data(), registration.Values(), bytes.size());
    return bytes;
}

State Look(const std::wstring& path) {
    State state;
    const kxio::VerifyReport report = kxio::VerifyScan(path);
    state.errors = report.errors;
    state.lost = static_cast<uint64_t>(
        std::count_if(report.findings.begin(), report.findings.end(), [](const kxio::VerifyFinding& f) {
            return f.severity == kxio::FindingSeverity::Error && f.record == "ExtendedHeader";
        }));
    const kxio::QSNScanReader reader(path);
    state.problems = reader.GetIntegrityProblems().size();
    state.hashes = reader.HasIntegrity();
    for (const kxbase::ComponentType component : reader.GetAvailableComponents()) {
        for (unsigned index = 0; index < std::min(reader.GetPatchNumber(), 16U); ++index) {
            Bytes chunk;
            try {
                reader.GetPatchCompressed(index, chunk, component);
            } catch (const kxbase::KXException&) {
                chunk.assign(1, 0);  // it was unreadable before and is so after
            }
            state.patches.push_back(std::move(chunk));
        }
    }
    const kxio::ScanProperties& properties = reader.GetScanInformation();
    state.messages = properties.messages;
    state.warnings = properties.warnings;
    state.hq = properties.hqLinks;
    state.er = properties.erLinks;
    state.hdr = properties.hdrLinks;
    state.registration = RegistrationBytes(properties.registration);
    state.speckle = properties.speckleCorrectionNeeded;
    reader.GetThumbnailJPEG(state.thumbnail);
    return state;
}

/// What a reader is to find after the edit.
State Expected(State state, const Wish& wish) {
    switch (wish.kind) {
        case 0:
            state.messages.push_back(wish.text);
            break;
        case 1:
            state.warnings.push_back(wish.text);
            break;
        case 2:
            state.hq.push_back(wish.link);
            break;
        case 3:
            state.er.push_back(wish.link);
            break;
        case 4:
            state.hdr.push_back(wish.link);
            break;
        case 5:
            state.registration = RegistrationBytes(wish.registration);
            break;
        case 6:
            state.speckle = wish.speckle;
            break;
        case 7:
            state.thumbnail = wish.jpeg;
            break;
        default:
            state.hashes = true;
            break;
    }
    return state;
}

// What an interrupted edit left at the end goes away also when the next one is refused.
bool IsClearedUp(const Bytes& before, const Bytes& after) {
    return after.size() <= before.size() && std::equal(after.begin(), after.end(), before.begin());
}

bool HasExtendedRecords(const Bytes& file) {
    constexpr size_t kFirst = 16 + 24;
    return std::any_of(file.begin() + kFirst, file.begin() + kFirst + 8,
                       [](unsigned char byte) { return byte != 0; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kEditBytes = 4;
    if (size == 0) return 0;
    const size_t count = std::min<size_t>(data[0] % 8, (size - 1) / kEditBytes);
    const std::span<const uint8_t> edits(data + 1, count * kEditBytes);
    const std::wstring path = FilePath();
    kxtest::StoreFile(path, Bytes(data + 1 + edits.size(), data + size));
    const std::filesystem::path name = kxbase::Encode_UTF8(path);
    for (size_t i = 0; i < count; ++i) {
        const Wish wish(edits.subspan(i * kEditBytes, kEditBytes));
        const Bytes before = kxtest::LoadFile(name);
        State old;
        try {
            old = Look(path);
        } catch (const kxbase::KXException&) {
            // What does not open is not edited.
            try {
                Edit(path, wish);
            } catch (const kxbase::KXException&) {
                Require(kxtest::LoadFile(name) == before, "a refused edit changes nothing");
            }
            break;
        }
        try {
            Edit(path, wish);
        } catch (const kxbase::KXException&) {
            Require(IsClearedUp(before, kxtest::LoadFile(name)), "a refused edit changes nothing");
            continue;
        }
        State now;
        try {
            now = Look(path);
        } catch (const kxbase::KXException&) {
            // What is appended to a file that was cut in a record can complete it.
            Require(old.errors != 0, "a sound file opens after an edit");
            break;
        }
        const State expected = Expected(old, wish);
        // Behind damage nobody finds what is appended, and without any extended record nobody looks for it.
        const bool found = wish.kind >= 5 || HasExtendedRecords(before);
        if (old.errors != 0 || !found) continue;
        Require(now.SameContent(expected), "an edit puts in what it was given and keeps the rest");
        Require(now.hashes == expected.hashes, "hashes stay, and come where they were asked for");
        Require(now.lost == 0, "an edit leaves no record outside of the chain");
        Require(now.problems <= old.problems, "an edit keeps the hashes true");
    }
    std::error_code ignored;
    std::filesystem::remove(name, ignored);
    return 0;
}
