// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kxexchange::testing {

/// A little-endian number in the middle of bytes; a failure of the test when they end before it.
template <class Value>
Value At(const std::string& bytes, size_t offset);

/// An NPY array of (rows, columns) in Fortran order.
struct Array {
    std::string type;  ///< "<f4"
    size_t rows = 0, columns = 0;
    std::string data;
    template <class Value>
    Value Get(size_t row, size_t column) const {
        return At<Value>(data, (column * rows + row) * sizeof(Value));
    }
    /// Whatever the type.
    double Number(size_t row, size_t column) const;
};
/// Reads an NPY file, checking its header.
Array ParseNpy(const std::string& npy);

/// The members of a zip, by its directory, each checked against its local header and checksum.
std::map<std::string, std::string> Unzip(const std::string& zip);

/// A PNG as libpng reads it: its rows as they are, and its text with the keyword "kxio".
struct Picture {
    uint32_t width = 0, height = 0;
    int bits = 0, channels = 0;
    std::vector<std::vector<unsigned char>> rows;
    std::string text;
    unsigned Get(size_t row, size_t column, size_t channel = 0) const {
        const size_t at = column * static_cast<size_t>(channels) + channel;
        return bits == 16 ? static_cast<unsigned>(rows[row][2 * at] << 8 | rows[row][2 * at + 1])
                          : rows[row][at];
    }
};
Picture ParsePng(const std::string& bytes);

/// All channels of an OpenEXR file, as its own library reads them; rows one after another.
struct Channels {
    size_t rows = 0, columns = 0;
    std::map<std::string, std::vector<float>> values;
};
Channels ReadExr(const std::filesystem::path& path);

void FailBehindTheEnd();

template <class Value>
Value At(const std::string& bytes, size_t offset) {
    Value value{};
    if (offset > bytes.size() || sizeof value > bytes.size() - offset) {
        FailBehindTheEnd();
        return value;
    }
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

}  // namespace kxexchange::testing
