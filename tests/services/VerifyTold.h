// SPDX-License-Identifier: MIT
// What verification tells of a file in memory, as one text; and where its records lie.
#pragma once

#include <bit>
#include <string>

#include "kxbase/InMemoryStream.h"
#include "kxio/VerifyScan.h"
#include "support/ScanFileBuilder.h"

namespace verify_texts {

/// All findings, one per line: severity, record, field, text.
inline std::string Told(const kxtest::Bytes& bytes) {
    kxbase::InMemoryStream stream(bytes);
    kxio::VerifyOptions options;
    options.level = kxio::VerifyLevel::Deep;
    std::string all;
    for (const kxio::VerifyFinding& f : kxio::VerifyScan(stream, options).findings) {
        all += f.severity == kxio::FindingSeverity::Error     ? "error "
               : f.severity == kxio::FindingSeverity::Warning ? "warning "
                                                              : "note ";
        all += f.record + (f.field.empty() ? "" : " " + f.field) + ": " + f.text + "\n";
    }
    return all;
}

inline size_t RecordAt(const kxtest::Bytes& bytes, size_t mainField) {
    return static_cast<size_t>(kxtest::GetMainField(bytes, mainField));
}
/// The payload of the record that a field of the main header points to.
inline size_t PayloadAt(const kxtest::Bytes& bytes, size_t mainField) {
    return RecordAt(bytes, mainField) + 16;
}
inline void PutF64(kxtest::Bytes& bytes, size_t at, double value) {
    kxtest::PutU64(bytes, at, std::bit_cast<uint64_t>(value));
}
inline void PutF32(kxtest::Bytes& bytes, size_t at, float value) {
    kxtest::PutU32(bytes, at, std::bit_cast<uint32_t>(value));
}

}  // namespace verify_texts
