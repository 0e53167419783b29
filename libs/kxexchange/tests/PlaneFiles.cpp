// SPDX-License-Identifier: MIT
#include "PlaneFiles.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cstdio>

namespace kxexchange::testing {

void FailBehindTheEnd() {
    ADD_FAILURE() << "read behind the end";
}

double Array::Number(size_t row, size_t column) const {
    if (type == "<f4") return static_cast<double>(Get<float>(row, column));
    if (type == "<f8") return Get<double>(row, column);
    if (type == "<u2") return Get<uint16_t>(row, column);
    EXPECT_EQ(type, "|u1");
    return Get<uint8_t>(row, column);
}

Array ParseNpy(const std::string& npy) {
    EXPECT_EQ(npy.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
    const size_t length = At<uint16_t>(npy, 8);
    EXPECT_EQ((10 + length) % 64, 0u);
    const std::string header = npy.substr(10, length);
    EXPECT_NE(header.find("'fortran_order': True"), std::string::npos);
    EXPECT_EQ(header.back(), '\n');
    Array array;
    const size_t shape = header.find("'shape': (");
    EXPECT_NE(shape, std::string::npos);
    EXPECT_EQ(std::sscanf(header.c_str() + shape, "'shape': (%zu, %zu)", &array.rows, &array.columns), 2);
    const size_t type = header.find("'descr': '") + 10;
    array.type = header.substr(type, 3);
    array.data = npy.substr(10 + length);
    return array;
}

std::map<std::string, std::string> Unzip(const std::string& zip) {
    std::map<std::string, std::string> members;
    const size_t end = zip.size() - 22;
    EXPECT_EQ(At<uint32_t>(zip, end), 0x06054b50u);
    EXPECT_EQ(At<uint32_t>(zip, end - 20), 0x07064b50u);
    const auto record = At<uint64_t>(zip, end - 12);
    EXPECT_EQ(At<uint32_t>(zip, record), 0x06064b50u);
    const auto count = At<uint64_t>(zip, record + 32);
    size_t at = At<uint64_t>(zip, record + 48);
    for (uint64_t i = 0; i < count; ++i) {
        EXPECT_EQ(At<uint32_t>(zip, at), 0x02014b50u);
        const auto crc = At<uint32_t>(zip, at + 16);
        const size_t nameBytes = At<uint16_t>(zip, at + 28), extraBytes = At<uint16_t>(zip, at + 30);
        const std::string name = zip.substr(at + 46, nameBytes);
        const size_t extra = at + 46 + nameBytes;
        EXPECT_EQ(At<uint16_t>(zip, extra), 1);
        const auto bytes = At<uint64_t>(zip, extra + 4), packed = At<uint64_t>(zip, extra + 12),
                   offset = At<uint64_t>(zip, extra + 20);
        EXPECT_EQ(At<uint32_t>(zip, offset), 0x04034b50u);
        EXPECT_EQ(At<uint32_t>(zip, offset + 14), crc);
        EXPECT_EQ(zip.substr(offset + 30, nameBytes), name);
        EXPECT_EQ(At<uint64_t>(zip, offset + 30 + nameBytes + 4), bytes);
        EXPECT_EQ(At<uint64_t>(zip, offset + 30 + nameBytes + 12), packed);
        const size_t data = offset + 30 + nameBytes + At<uint16_t>(zip, offset + 28);
        std::string out(bytes, '\0');
        z_stream stream{};
        EXPECT_EQ(inflateInit2(&stream, -15), Z_OK);
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zip.data() + data));
        stream.avail_in = static_cast<uInt>(packed);
        stream.next_out = reinterpret_cast<Bytef*>(out.data());
        stream.avail_out = static_cast<uInt>(out.size());
        EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
        EXPECT_EQ(stream.total_out, bytes);
        inflateEnd(&stream);
        EXPECT_EQ(crc32(0, reinterpret_cast<const Bytef*>(out.data()), static_cast<uInt>(out.size())), crc);
        members[name] = out;
        at = extra + extraBytes;
    }
    return members;
}

Picture ParsePng(const std::string& bytes) {
    Picture picture;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    struct Input {
        const std::string& bytes;
        size_t at = 0;
    } input{bytes};
    png_set_read_fn(png, &input, [](png_structp self, png_bytep out, size_t count) {
        auto* const in = static_cast<Input*>(png_get_io_ptr(self));
        if (in->bytes.size() - in->at < count) png_error(self, "short");
        std::memcpy(out, in->bytes.data() + in->at, count);
        in->at += count;
    });
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    picture.width = png_get_image_width(png, info);
    picture.height = png_get_image_height(png, info);
    picture.bits = png_get_bit_depth(png, info);
    picture.channels = png_get_channels(png, info);
    png_bytepp rows = png_get_rows(png, info);
    for (uint32_t i = 0; i < picture.height; ++i)
        picture.rows.emplace_back(rows[i], rows[i] + png_get_rowbytes(png, info));
    png_textp text = nullptr;
    int count = 0;
    png_get_text(png, info, &text, &count);
    if (count == 1 && std::string(text[0].key) == "kxio") picture.text = text[0].text;
    png_destroy_read_struct(&png, &info, nullptr);
    return picture;
}

Channels ReadExr(const std::filesystem::path& path) {
    Imf::InputFile file(path.string().c_str());
    const auto window = file.header().dataWindow();
    Channels channels;
    channels.rows = static_cast<size_t>(window.max.y + 1);
    channels.columns = static_cast<size_t>(window.max.x + 1);
    Imf::FrameBuffer buffer;
    for (auto it = file.header().channels().begin(); it != file.header().channels().end(); ++it) {
        std::vector<float>& values = channels.values[it.name()];
        values.resize(channels.rows * channels.columns);
        buffer.insert(it.name(), Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(values.data()), sizeof(float),
                                            channels.columns * sizeof(float)));
    }
    file.setFrameBuffer(buffer);
    file.readPixels(0, window.max.y);
    return channels;
}

}  // namespace kxexchange::testing
