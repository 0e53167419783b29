// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kxbase/IInFileStream.h"

namespace kxexchange {

/// An E57 file is a row of pages of 1024 bytes: 1020 bytes of content, then the CRC-32C of these, most
/// significant byte first. Physical offsets count bytes of the file, logical ones bytes of the content.
constexpr uint64_t kE57PageBytes = 1024;
constexpr uint64_t kE57PageContent = 1020;

/// Where a byte of the content lies in the file. `logical` at most 2^63.
constexpr uint64_t E57Physical(uint64_t logical) {
    return logical / kE57PageContent * kE57PageBytes + logical % kE57PageContent;
}

/// The content's byte at a place of the file; nothing when a checksum lies there.
constexpr std::optional<uint64_t> E57Logical(uint64_t physical) {
    if (physical % kE57PageBytes >= kE57PageContent) return std::nullopt;
    return physical / kE57PageBytes * kE57PageContent + physical % kE57PageBytes;
}

/// Reads the content of a paged file. Every page is checked before any of its bytes are given out, once
/// while it stays in memory. Holds a few hundred pages. One reader serves one thread at a time.
class E57PageReader {
public:
    /// `stream` must outlive the reader; `name` appears in messages.
    E57PageReader(kxbase::IInFileStream& stream, std::string name);

    const std::string& Name() const { return m_name; }
    /// Bytes of the file, as the stream says.
    uint64_t FileBytes() const { return m_fileBytes; }
    /// Bytes of content in the whole pages of the file.
    uint64_t LogicalBytes() const { return m_fileBytes / kE57PageBytes * kE57PageContent; }
    /// Bytes of the file taken so far.
    uint64_t BytesRead() const { return m_bytesRead; }

    /// Copies content. `record` names what is being read, for messages.
    /// \throws SourceFormatException  the file ends before, or a page does not fit its checksum
    void Read(uint64_t logical, std::span<unsigned char> out, const std::string& record);

private:
    static constexpr uint64_t kWindowPages = 128;
    struct Window {
        uint64_t firstPage = 0;
        uint64_t pages = 0;  // that the file had
        uint64_t lastUse = 0;
        std::array<bool, kWindowPages> checked{};
        std::vector<unsigned char> bytes;
    };
    Window& Load(uint64_t page, const std::string& record);
    void Check(Window& window, uint64_t page) const;

    kxbase::IInFileStream& m_stream;
    std::string m_name;
    uint64_t m_fileBytes;
    uint64_t m_bytesRead = 0;
    uint64_t m_uses = 0;
    std::array<Window, 4> m_windows;
};

}  // namespace kxexchange
