// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "FileWalker.h"
#include "kxbase/Exceptions.h"
#include "kxbase/GridTopology.h"
#include "kxbase/InMemoryStream.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/QSNScanWriter.h"

namespace support {

using Bytes = std::vector<unsigned char>;

/// A codec that outlives every writer.
inline kxcodecs::SnappyChunkCodec& Snappy() {
    static kxcodecs::SnappyChunkCodec codec;
    return codec;
}

/// A grid of `columns` x `rows` cells; the preview is left to the writer.
inline kxbase::GridTopology MakeGrid(uint32_t columns, uint32_t rows, uint32_t patchWidth,
                                     uint32_t patchHeight) {
    kxbase::GridTopology grid;
    grid.columnAngularStep = 0.001F;
    grid.rowAngularStep = 0.002F;
    grid.columns = columns;
    grid.rows = rows;
    grid.patchWidth = patchWidth;
    grid.patchHeight = patchHeight;
    return grid;
}

inline kxbase::CylindricalTopology MakeCylinder(uint32_t width, uint32_t height, uint32_t patchWidth,
                                                uint32_t patchHeight) {
    kxbase::CylindricalTopology cylinder;
    cylinder.patchWidth = patchWidth;
    cylinder.patchHeight = patchHeight;
    cylinder.width = width;
    cylinder.height = height;
    cylinder.previewFactor = 2.0;
    return cylinder;
}

/// A flat patch that owns its values.
template <class T>
struct Flat : kxio::FlatPatchDescriptor {
    std::vector<T> values;

    Flat(kxbase::ComponentType c, std::vector<T> valuesIn, kxcodecs::QKXChunkCodec* codecIn,
         double scaleIn = 1.0)
        : FlatPatchDescriptor(c, sizeof(T), kxio::RowMajor, scaleIn, codecIn), values(std::move(valuesIn)) {
        data = reinterpret_cast<unsigned char*>(values.data());
        size = values.size();
    }
    Flat(const Flat&) = delete;
};

/// A codec that fails as told, and is Snappy otherwise.
class FailingCodec : public kxcodecs::SnappyChunkCodec {
public:
    enum class Kind { KXException, BadAlloc };
    explicit FailingCodec(Kind kind = Kind::KXException) : m_kind(kind) {}
    bool fails = true;

    void Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount, float quality,
                std::vector<unsigned char>& out) const override {
        if (!fails) return SnappyChunkCodec::Encode(data, width, height, byteCount, quality, out);
        if (m_kind == Kind::BadAlloc) throw std::bad_alloc();
        throw kxbase::KXException("codec out of order");
    }

private:
    Kind m_kind;
};

/// A stream in memory whose n-th write (counted from 1) and all later ones fail; 0 = none fails.
class FailingStream : public kxbase::IOutFileStream {
public:
    explicit FailingStream(uint64_t failFrom = 0, bool failOnlyOnce = false)
        : m_failFrom(failFrom), m_onlyOnce(failOnlyOnce) {}

    bool IsOpen() const override { return true; }
    bool Seek(uint64_t position) override { return m_memory.Seek(position); }
    bool SeekForward(uint64_t bytes) override { return m_memory.SeekForward(bytes); }
    bool SeekBackward(uint64_t bytes) override { return m_memory.SeekBackward(bytes); }
    bool SeekEnd(uint64_t offset) override { return m_memory.SeekEnd(offset); }
    uint64_t Tell() const override { return m_memory.Tell(); }
    uint64_t Write(const void* data, uint64_t bytes) override {
        ++m_writes;
        const bool fails = m_failFrom != 0 && (m_onlyOnce ? m_writes == m_failFrom : m_writes >= m_failFrom);
        if (fails) {
            m_torn[m_memory.Tell()] = bytes / 2;
            m_memory.Write(data, bytes / 2);  // a short write, as a full disk has it
            throw kxbase::KXWritingException("Cannot write file");
        }
        return m_memory.Write(data, bytes);
    }
    void Close() override { m_closed = true; }
    std::wstring GetName() const override { return L"failing stream"; }

    uint64_t Writes() const { return m_writes; }
    bool Closed() const { return m_closed; }
    /// Position and size of what failed writes left behind.
    const std::map<uint64_t, uint64_t>& Torn() const { return m_torn; }
    const Bytes& GetBytes() const { return m_memory.GetBytes(); }

private:
    kxbase::InMemoryStream m_memory;
    std::map<uint64_t, uint64_t> m_torn;
    uint64_t m_failFrom;
    bool m_onlyOnce;
    uint64_t m_writes = 0;
    bool m_closed = false;
};

/// The exception text of `action`; empty when nothing was thrown.
template <class Exception, class Action>
std::string TextOf(Action action) {
    try {
        action();
    } catch (const Exception& e) {
        return e.what();
    }
    return {};
}

template <class T>
std::vector<T> ValuesOf(const walker::Decoded& decoded) {
    if (decoded.elementBytes != sizeof(T)) throw std::runtime_error("another element size");
    std::vector<T> values(decoded.values.size() / sizeof(T));
    std::memcpy(values.data(), decoded.values.data(), values.size() * sizeof(T));
    return values;
}

/// A writer on memory, and what became of it.
struct Session {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    std::map<std::string, uint64_t> statistics;

    walker::File End() {
        statistics = writer.EndCreation();
        return walker::Walk(stream.GetBytes());
    }
};

}  // namespace support
