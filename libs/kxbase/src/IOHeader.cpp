// SPDX-License-Identifier: MIT
#include "kxbase/IOHeader.h"

#include <memory>
#include <span>
#include <tuple>
#include <vector>

#include "kxbase/ByteWriter.h"
#include "kxbase/IInFileStream.h"
#include "kxbase/IOutFileStream.h"
#include "kxbase/Sizes.h"
#include "kxbase/UTF8.h"

namespace kxbase {

namespace {

void EncodeFrame(const RecordFrame& frame, std::span<unsigned char> bytes) {
    ByteWriter out(bytes);
    out.U64(frame.tag);
    out.U32(frame.version);
    out.U32(frame.payloadSize);
}

std::string Hex(uint64_t value) {
    static const char* digits = "0123456789abcdef";
    std::string text = "0x";
    for (int shift = 60; shift >= 0; shift -= 4)
        text += digits[(value >> shift) & 15];
    return text;
}

}  // namespace

IOHeader::IOHeader() = default;
IOHeader::IOHeader(const IOHeader&) = default;
IOHeader::IOHeader(IOHeader&&) noexcept = default;
IOHeader& IOHeader::operator=(const IOHeader&) = default;
IOHeader& IOHeader::operator=(IOHeader&&) noexcept = default;
IOHeader::~IOHeader() = default;
const char* IOHeader::GetRecordName() const {
    return "record";
}

RecordFrame IOHeader::DecodeFrame(std::span<const unsigned char> bytes) {
    ByteReader in(bytes);
    RecordFrame frame;
    frame.tag = in.U64("tag");
    frame.version = in.U32("version");
    frame.payloadSize = in.U32("payload size");
    return frame;
}

uint64_t IOHeader::ReadFailed(IInFileStream* in, uint64_t start, const char* field, std::string detail) {
    m_valid = false;
    m_problem = ErrorContext{Encode_UTF8(in->GetName()), GetRecordName(), field, start, std::move(detail)};
    in->Seek(start);
    return 0;
}

uint64_t IOHeader::Read(IInFileStream* in) {
    m_valid = false;
    m_problem = ErrorContext{};
    if (in == nullptr) {
        m_problem.record = GetRecordName();
        m_problem.detail = "no stream";
        return 0;
    }
    const uint64_t start = in->Tell();
    std::array<unsigned char, FrameSize> frameBytes{};
    const uint64_t got = in->Read(frameBytes.data(), FrameSize);
    if (got != FrameSize) {
        return ReadFailed(in, start, "frame", "16 bytes needed, " + std::to_string(got) + " left");
    }
    const RecordFrame frame = DecodeFrame(frameBytes);
    if (frame.tag != GetMagic()) {
        return ReadFailed(in, start, "tag", "found " + Hex(frame.tag) + ", expected " + Hex(GetMagic()));
    }
    const uint64_t size = in->GetSize();
    const uint64_t left = size > in->Tell() ? size - in->Tell() : 0;
    const std::string claim = std::to_string(frame.payloadSize) + " bytes announced, ";
    if (frame.payloadSize > left) {
        return ReadFailed(in, start, "payload size", claim + std::to_string(left) + " left");
    }
    if (frame.payloadSize > m_mostPayload) {
        return ReadFailed(in, start, "payload size",
                          OverLimit(m_limitName, frame.payloadSize, m_mostPayload));
    }
    std::unique_ptr<unsigned char[]> large;  // not a vector: clearing it would cost as much as reading
    unsigned char* payload = m_workingArea.data();
    if (frame.payloadSize > WorkingAreaSize) {
        large = std::make_unique_for_overwrite<unsigned char[]>(frame.payloadSize);
        payload = large.get();
    }
    const uint64_t payloadGot = in->Read(payload, frame.payloadSize);
    if (payloadGot != frame.payloadSize) {
        return ReadFailed(in, start, "payload", claim + std::to_string(payloadGot) + " could be read");
    }
    // _Read sees the frame's values; a record that is refused leaves the object's own as they were.
    const auto before = std::make_tuple(m_tag, m_version, m_dataSize, m_stamped, m_payloadOffset);
    const auto restore = [&] {
        std::tie(m_tag, m_version, m_dataSize, m_stamped, m_payloadOffset) = before;
        in->Seek(start);
    };
    m_tag = frame.tag;
    m_version = frame.version;
    m_dataSize = frame.payloadSize;
    m_stamped = true;
    m_payloadOffset = start + FrameSize;
    try {
        _Read(payload);
    } catch (const ByteRangeException& e) {
        restore();
        m_problem = e.Context();
        m_problem.file = Encode_UTF8(in->GetName());
        return 0;
    } catch (KXException& e) {
        restore();
        e.AddContext({Encode_UTF8(in->GetName()),
                      GetRecordName(),
                      {},
                      start,
                      "version " + std::to_string(frame.version) + ", " + std::to_string(frame.payloadSize) +
                          " bytes of payload"});
        throw;
    } catch (...) {
        restore();
        throw;
    }
    m_valid = true;
    return uint64_t{FrameSize} + m_dataSize;  // not HeaderSize(): 32 bits could wrap around to 0
}

uint64_t IOHeader::Write(IOutFileStream* out) {
    if (out == nullptr)
        throw KXWritingException("Cannot write file", {{}, GetRecordName(), {}, {}, "no stream"});
    // What cannot be written leaves the record describing what it described before.
    const auto before = std::make_tuple(m_tag, m_version, m_dataSize, m_stamped);
    try {
        const std::vector<unsigned char> bytes = Encode();
        out->Write(bytes.data(), bytes.size());
        return bytes.size();
    } catch (...) {
        std::tie(m_tag, m_version, m_dataSize, m_stamped) = before;
        throw;
    }
}

std::vector<unsigned char> IOHeader::Encode() {
    const auto before = std::make_tuple(m_tag, m_version, m_dataSize, m_stamped);
    try {
        // The version first: the size of some records depends on the version they hold.
        m_tag = GetMagic();
        m_version = GetCurrentVersion();
        m_stamped = true;
        m_dataSize = DataSize(m_version);
        std::vector<unsigned char> bytes(size_t{FrameSize} + m_dataSize);
        EncodeFrame({m_tag, m_version, m_dataSize}, std::span(bytes).first(FrameSize));
        _Write(bytes.data() + FrameSize, m_dataSize);
        if (DataSize(m_version) != m_dataSize) {
            throw KXWrongDataSizeofException(
                "Record does not fit its size",
                {{}, GetRecordName(), {}, {}, "its size changed while it was encoded"});
        }
        return bytes;
    } catch (...) {
        std::tie(m_tag, m_version, m_dataSize, m_stamped) = before;
        throw;
    }
}

uint32_t IOHeader::HeaderSize() const {
    return FrameSize + (m_stamped ? m_dataSize : DataSize(GetCurrentVersion()));
}
bool IOHeader::IsValid() const {
    return m_valid;
}
uint32_t IOHeader::GetVersion() const {
    return m_stamped ? m_version : GetCurrentVersion();
}
uint32_t IOHeader::GetDataSize() const {
    return m_dataSize;
}
const ErrorContext& IOHeader::GetReadProblem() const {
    return m_problem;
}

ByteReader IOHeader::PayloadReader(const unsigned char* payload) const {
    return PartReader({payload, m_dataSize}, 0);
}

ByteReader IOHeader::PartReader(std::span<const unsigned char> bytes, uint64_t offset) const {
    ByteReader reader(bytes, m_payloadOffset + offset, GetRecordName());
    reader.ReportTo(m_fieldSink);
    return reader;
}

void IOHeader::RequireVersion(uint32_t minimum, const char* text) const {
    if (GetVersion() >= minimum) return;
    ErrorContext context;
    context.record = GetRecordName();
    context.field = "version";
    context.offset = m_payloadOffset - 8;
    context.detail =
        "found " + std::to_string(GetVersion()) + ", at least " + std::to_string(minimum) + " is read";
    throw KXHeaderReadingException(text, context);
}

}  // namespace kxbase
