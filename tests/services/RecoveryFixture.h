// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/InMemoryStream.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/MainFileHeader.h"
#include "kxio/ScanHeader.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"

namespace recovery_test {

using Bytes = std::vector<unsigned char>;

/// A folder of its own for one test, whose files are named by wide paths.
class TemporaryFolder : public TempFolder {
public:
    std::wstring operator/(const std::string& name) const { return Wide(Path() / name); }
};

/// `action` throws an `Exception` that says `text`.
template <class Exception, class Action>
void ExpectFailure(const char* text, const Action& action) {
    EXPECT_EQ(kxtest::ThrownBy<Exception>(action), text);
}

inline std::filesystem::path NarrowPath(const std::wstring& path) {
    return std::filesystem::path(kxbase::Encode_UTF8(path));
}

inline void WriteBytes(const std::wstring& path, const Bytes& bytes) {
    std::ofstream out(NarrowPath(path), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline Bytes ReadBytes(const std::wstring& path) {
    std::ifstream in(NarrowPath(path), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline std::string ReadText(const std::wstring& path) {
    const Bytes bytes = ReadBytes(path);
    return {bytes.begin(), bytes.end()};
}

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// Takes what is printed on std::cout while it lives.
class CapturedOutput {
public:
    CapturedOutput() : m_before(std::cout.rdbuf(m_text.rdbuf())) {}
    ~CapturedOutput() { std::cout.rdbuf(m_before); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string Text() const { return m_text.str(); }

private:
    std::ostringstream m_text;
    std::streambuf* m_before;
};

/// One chunk of `width` x `height` values.
template <class Value>
Bytes Encode(const std::vector<Value>& values, uint32_t width, uint32_t height, float quality = 1.0F,
             const kxcodecs::QKXChunkCodec& codec = kxcodecs::SnappyChunkCodec()) {
    Bytes chunk;
    codec.Encode(values.data(), width, height, values.size() * sizeof(Value), quality, chunk);
    return chunk;
}

/// A scan file put together record by record, without the writer.
class FileBytes {
public:
    FileBytes() { m_mainHeader.Write(&m_stream); }

    uint64_t Size() const { return m_stream.GetBytes().size(); }
    const Bytes& Get() const { return m_stream.GetBytes(); }

    /// Appends a chunk and returns the position of its record.
    uint64_t AddChunk(uint32_t row, uint32_t column, kxbase::ComponentType component, const Bytes& chunk) {
        const uint64_t position = Size();
        m_stream.SeekEnd(0);
        kxio::DataChunkHeader(static_cast<uint32_t>(chunk.size()), component, row, column).Write(&m_stream);
        m_stream.Write(chunk.data(), chunk.size());
        return position;
    }
    /// Appends any record and returns its position.
    uint64_t AddRecord(kxbase::IOHeader& record) {
        const uint64_t position = Size();
        m_stream.SeekEnd(0);
        record.Write(&m_stream);
        return position;
    }
    void AddBytes(const Bytes& bytes) {
        m_stream.SeekEnd(0);
        m_stream.Write(bytes.data(), bytes.size());
    }
    /// The main header, as `WriteMainHeader` will write it at the start.
    kxio::MainFileHeader& MainHeader() { return m_mainHeader; }
    void WriteMainHeader() {
        m_stream.Seek(0);
        m_mainHeader.Write(&m_stream);
    }

private:
    kxio::MainFileHeader m_mainHeader;
    kxbase::InMemoryStream m_stream;
};

}  // namespace recovery_test
