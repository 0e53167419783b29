// SPDX-License-Identifier: MIT
#include "ByteFeed.h"

#include <zlib.h>

#include <algorithm>
#include <limits>
#include <new>
#include <vector>

#include "ReadAhead.h"
#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

class PlainFeed final : public ByteFeed {
public:
    explicit PlainFeed(kxbase::IInFileStream& stream) : m_stream(stream) { m_stream.Seek(0); }

    size_t Read(char* out, size_t bytes) override {
        size_t done = 0;
        while (done < bytes) {
            const auto got = static_cast<size_t>(m_stream.Read(out + done, bytes - done));
            if (got == 0) break;
            done += got;
        }
        m_taken += done;
        return done;
    }
    uint64_t GoTo(uint64_t offset) override { return m_stream.Seek(offset) ? offset : (m_stream.Seek(0), 0); }
    uint64_t BytesTaken() const override { return m_taken; }

private:
    kxbase::IInFileStream& m_stream;
    uint64_t m_taken = 0;
};

constexpr unsigned char kGzipMagic0 = 0x1f;
constexpr unsigned char kGzipMagic1 = 0x8b;
constexpr int kGzipWindow = 15 + 16;  // largest window, gzip wrapping
constexpr size_t kInputBytes = size_t{1} << 16;

class GzipFeed final : public ByteFeed {
public:
    GzipFeed(kxbase::IInFileStream& stream, std::string name)
        : m_stream(stream), m_name(std::move(name)), m_input(kInputBytes) {
        if (inflateInit2(&m_inflate, kGzipWindow) != Z_OK) throw std::bad_alloc();
        m_stream.Seek(0);
    }
    ~GzipFeed() override { inflateEnd(&m_inflate); }
    GzipFeed(const GzipFeed&) = delete;
    GzipFeed& operator=(const GzipFeed&) = delete;

    size_t Read(char* out, size_t bytes) override {
        size_t done = 0;
        while (done < bytes && !m_ended) {
            if (m_inflate.avail_in == 0 && !Refill()) {
                if (m_inMember) Fail("the compressed data ends early");
                m_ended = true;
                break;
            }
            if (!m_inMember && !BeginMember()) {
                m_ended = true;
                break;
            }
            const size_t room = std::min<size_t>(bytes - done, std::numeric_limits<uInt>::max() / 2);
            m_inflate.next_out = reinterpret_cast<Bytef*>(out + done);
            m_inflate.avail_out = static_cast<uInt>(room);
            const int status = inflate(&m_inflate, Z_NO_FLUSH);
            done += room - m_inflate.avail_out;
            if (status == Z_STREAM_END) {
                m_inMember = false;
                inflateReset(&m_inflate);
            } else if (status == Z_MEM_ERROR) {
                throw std::bad_alloc();
            } else if (status != Z_OK && status != Z_BUF_ERROR) {
                Fail(m_inflate.msg ? m_inflate.msg : "the compressed data is damaged");
            }
        }
        return done;
    }

    uint64_t GoTo(uint64_t) override {
        m_stream.Seek(0);
        m_position = 0;
        inflateReset(&m_inflate);
        m_inflate.avail_in = 0;
        m_inMember = m_ended = m_anyMember = false;
        return 0;
    }
    uint64_t BytesTaken() const override { return m_taken; }

private:
    bool Refill() {
        const auto got = m_stream.Read(m_input.data(), m_input.size());
        m_inflate.next_in = m_input.data();
        m_inflate.avail_in = static_cast<uInt>(got);
        m_position += got;
        m_taken += got;
        return got != 0;
    }

    // Behind a member: another one, zero padding up to the end (tapes and some tools leave it), or nothing.
    bool BeginMember() {
        if (m_anyMember) {
            while (m_inflate.avail_in != 0 && *m_inflate.next_in == 0) {
                ++m_inflate.next_in;
                --m_inflate.avail_in;
                if (m_inflate.avail_in == 0) Refill();
            }
            if (m_inflate.avail_in == 0) return false;
            if (*m_inflate.next_in != kGzipMagic0)
                Fail("bytes behind the compressed data that belong to nothing");
        }
        m_inMember = m_anyMember = true;
        return true;
    }

    [[noreturn]] void Fail(const std::string& detail) const {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.record = "gzip data";
        context.offset = m_position - m_inflate.avail_in;
        context.detail = detail;
        throw SourceFormatException("Compressed file cannot be unpacked", context);
    }

    kxbase::IInFileStream& m_stream;
    std::string m_name;
    std::vector<Bytef> m_input;
    z_stream m_inflate{};
    uint64_t m_position = 0;
    uint64_t m_taken = 0;
    bool m_inMember = false;
    bool m_anyMember = false;
    bool m_ended = false;
};

}  // namespace

std::unique_ptr<ByteFeed> MakeByteFeed(kxbase::IInFileStream& stream, const std::string& name, bool ahead) {
    unsigned char magic[2] = {0, 0};
    stream.Seek(0);
    const bool gzip = stream.Read(magic, sizeof magic) == sizeof magic && magic[0] == kGzipMagic0 &&
                      magic[1] == kGzipMagic1;
    if (gzip) {
        auto feed = std::make_unique<GzipFeed>(stream, name);
        if (ahead) return MakeReadAhead(std::move(feed));
        return feed;
    }
    return std::make_unique<PlainFeed>(stream);
}

}  // namespace kxexchange
