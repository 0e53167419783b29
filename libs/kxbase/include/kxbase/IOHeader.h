// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "kxbase/ByteReader.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Export.h"

namespace kxbase {

class IInFileStream;
class IOutFileStream;

/// The 16 bytes ahead of every payload.
struct RecordFrame {
    uint64_t tag = 0;          ///< tells the record class
    uint32_t version = 0;      ///< of the payload's layout
    uint32_t payloadSize = 0;  ///< bytes that follow the frame
};

/// Base of every on-disk record: a 16-byte frame, then the payload.
///
/// Frame, little-endian:
///
///     @0   u64  tag           the record class's `GetMagic()`
///     @8   u32  version
///     @12  u32  payload size  bytes that follow the frame
///
/// The frame's payload size rules: `Read` takes exactly that many bytes and hands them to `_Read`, which
/// ignores what a newer version appended. A payload shorter than its layout is no record.
/// A record object serves one thread at a time.
class KXBASE_EXPORT IOHeader {
public:
    static constexpr uint32_t FrameSize = 16;          ///< bytes
    static constexpr uint32_t WorkingAreaSize = 1024;  ///< payloads up to here need no memory of their own

    /// A record that has neither been read nor written.
    IOHeader();
    IOHeader(const IOHeader&);
    IOHeader(IOHeader&&) noexcept;
    IOHeader& operator=(const IOHeader&);
    IOHeader& operator=(IOHeader&&) noexcept;

    // The order of the next five is part of the class's binary interface.
    /// The record class's fixed 64-bit tag.
    virtual uint64_t GetMagic() const = 0;
    /// Payload size in bytes for `version`.
    virtual uint32_t DataSize(uint32_t version) const = 0;
    /// The version that `Write` stamps.
    virtual uint32_t GetCurrentVersion() const = 0;
    /// Decodes a payload of `GetDataSize()` bytes; `GetVersion()` is the frame's.
    /// \throws KXHeaderReadingException with the record's own text for a version that is too old
    virtual void _Read(const unsigned char* payload) = 0;
    /// Encodes the payload into `size` bytes.
    virtual void _Write(unsigned char* payload, uint32_t size) = 0;
    virtual ~IOHeader();
    /// Name of the record class, for messages.
    virtual const char* GetRecordName() const;

    /// Reads frame and payload at the stream's position.
    /// \returns bytes read (`HeaderSize()`), or 0 when no such record lies there: another tag, cut short,
    ///          or a size that the stream cannot hold. The stream then stands where it stood, and
    ///          `GetReadProblem()` tells why.
    /// \throws what `_Read` throws (position restored, context added)
    uint64_t Read(IInFileStream* in);
    /// Stamps tag, current version and size, and writes frame and payload in one `Write` of the stream. After
    /// an exception version and size are as before.
    /// \returns bytes written \throws KXWritingException
    uint64_t Write(IOutFileStream* out);
    /// What `Write` would write; stamps the record as that does.
    /// \throws KXWrongDataSizeofException  the record does not fit its size, and what `_Write` throws
    std::vector<unsigned char> Encode();

    /// Decodes a frame, its shape only: whether such a record exists and a payload follows is not looked at.
    /// For walkers that must judge a record before they read its payload.
    /// \throws ByteRangeException  fewer than 16 bytes
    static RecordFrame DecodeFrame(std::span<const unsigned char> bytes);

    /// Size of the whole record on disk: 16 + payload size. Before any read or write: as it would be
    /// written now.
    uint32_t HeaderSize() const;
    /// True when the last `Read` found a whole record of this class; false before any. Writing changes
    /// nothing here.
    bool IsValid() const;
    /// Version of the last read or write; before either, the current version.
    uint32_t GetVersion() const;
    /// Payload size of the last read or write.
    uint32_t GetDataSize() const;
    /// Why the last `Read` returned 0: record, field, offset, detail. Empty after a success.
    const ErrorContext& GetReadProblem() const;

    /// The next reads tell every field of the payload to `sink`, which is borrowed; null ends it. Copies of
    /// the record do too.
    void SetFieldSink(FieldSink* sink) { m_fieldSink = sink; }

    /// The next reads refuse a payload of more bytes, before any memory is taken for it. Copies of the record
    /// do too. Unless it is called only the bytes that the stream has left bound a payload.
    /// \param limit  its name, for `GetReadProblem()`; a literal
    void LimitPayload(uint64_t mostBytes, const char* limit) {
        m_mostPayload = mostBytes;
        m_limitName = limit;
    }

protected:
    /// A checked cursor over the payload that `_Read` was given.
    ByteReader PayloadReader(const unsigned char* payload) const;
    /// The same over bytes that were kept of the payload.
    /// \param offset  of the first of them in the payload
    ByteReader PartReader(std::span<const unsigned char> bytes, uint64_t offset) const;
    /// Fails with `KXHeaderReadingException(text)` when the frame's version is below `minimum`.
    void RequireVersion(uint32_t minimum, const char* text) const;

private:
    uint64_t ReadFailed(IInFileStream* in, uint64_t start, const char* field, std::string detail);

    uint64_t m_tag = 0;
    uint32_t m_dataSize = 0;
    uint32_t m_version = 0;
    std::array<unsigned char, WorkingAreaSize> m_workingArea{};
    bool m_stamped = false;  // m_version and m_dataSize come from a read or a write
    bool m_valid = false;
    uint64_t m_payloadOffset = 0;
    ErrorContext m_problem;
    FieldSink* m_fieldSink = nullptr;
    uint64_t m_mostPayload = UINT64_MAX;
    const char* m_limitName = "";
};

}  // namespace kxbase
