// SPDX-License-Identifier: MIT
#include "PcdSource.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <span>

#include "Lzf.h"
#include "Quaternion.h"
#include "TextNumbers.h"
#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

constexpr uint64_t kPointsPerRead = uint64_t{1} << 18;
constexpr uint64_t kMaxHeaderBytes = uint64_t{1} << 16;
constexpr uint64_t kMostPoints = uint64_t{1} << 40;
constexpr uint64_t kMostFields = 1024;
constexpr uint64_t kMostElements = uint64_t{1} << 20;
constexpr uint64_t kUnpackedInMemory = uint64_t{1} << 26;

std::vector<std::string> SplitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    for (const char c : line + " ") {
        if (c == ' ' || c == '\t' || c == '\r') {
            if (!word.empty()) words.push_back(std::move(word));
            word.clear();
        } else {
            word += c;
        }
    }
    return words;
}

bool Whole(const std::string& word, uint64_t most, uint64_t& value) {
    const auto result = std::from_chars(word.data(), word.data() + word.size(), value);
    return result.ec == std::errc() && result.ptr == word.data() + word.size() && value <= most;
}

constexpr const char* kNoViewpoint = "VIEWPOINT is no translation and quaternion; the pose is left out";
constexpr size_t kExactPoseWords = 3;  // # kxio-pose 1
// Quaternions that differ by less are one rotation.
constexpr double kSameRotation = 1e-9;

// The words behind the first ones as numbers, neither more nor fewer.
bool Numbers(const std::vector<std::string>& words, size_t first, std::span<double> values) {
    if (words.size() != first + values.size()) return false;
    for (size_t i = 0; i < values.size(); ++i) {
        const std::string& word = words[first + i];
        const auto result = std::from_chars(word.data(), word.data() + word.size(), values[i]);
        if (result.ec != std::errc() || result.ptr != word.data() + word.size() ||
            !(std::abs(values[i]) <= PointRecord::kMaxCoordinate)) {
            return false;
        }
    }
    return true;
}

}  // namespace

PcdSource::PcdSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                     const SourceOptions& options)
    : m_stream(std::move(stream)),
      m_name(std::move(name)),
      m_options(options),
      m_fileBytes(m_stream->GetSize()),
      m_bytes(*m_stream, m_name, "PCD") {}

void PcdSource::Fail(const std::string& record, uint64_t offset, const std::string& detail) const {
    kxbase::ErrorContext context;
    context.file = m_name;
    context.record = record;
    context.offset = offset;
    context.detail = detail;
    throw SourceFormatException("PCD file cannot be read", context);
}

uint64_t PcdSource::BytesRead() const {
    return m_taken + m_bytes.BytesTaken() + (m_text ? m_text->BytesTaken() : 0);
}

uint64_t PcdSource::ScanCount() {
    m_open = false;
    ReadHeader();
    return 1;
}

void PcdSource::ReadViewpoint(const std::vector<std::string>& words, const std::vector<std::string>& exact) {
    std::array<double, 7> values{};
    if (!Numbers(words, 1, values)) {
        m_warnings.push_back(kNoViewpoint);
        return;
    }
    const std::array<double, 3> translation{values[0], values[1], values[2]};
    const Quaternion rotation{values[3], values[4], values[5], values[6]};
    std::array<double, kxbase::RegistrationInformation::ValueCount> pose{};
    if (Numbers(exact, kExactPoseWords, pose)) {
        const auto candidate = kxbase::RegistrationInformation::FromValues(pose.data());
        const Quaternion q = QuaternionOf(candidate);
        bool same = std::equal(translation.begin(), translation.end(), pose.begin() + 9);
        for (size_t i = 0; i < q.size(); ++i)
            same = same && std::abs(q[i] - rotation[i]) <= kSameRotation;
        if (same) {
            m_pose = candidate;
            return;
        }
        m_warnings.push_back("VIEWPOINT and the comment kxio-pose differ; VIEWPOINT counts");
    }
    if (!IsRotation(rotation)) {
        m_warnings.push_back(kNoViewpoint);
        return;
    }
    m_pose = PoseOf(translation, rotation);
}

void PcdSource::ReadHeader() {
    if (m_headerRead) return;
    m_warnings.clear();
    std::string text(static_cast<size_t>(std::min(m_fileBytes, kMaxHeaderBytes)), '\0');
    m_stream->Seek(0);
    text.resize(static_cast<size_t>(m_stream->Read(text.data(), text.size())));
    m_taken += text.size();
    std::map<std::string, std::vector<std::string>> lines;
    std::map<std::string, uint64_t> offsets;
    std::vector<std::string> exactPose;
    size_t at = 0;
    uint64_t line = 0;
    while (lines.find("DATA") == lines.end()) {
        const size_t end = text.find('\n', at);
        ++line;
        if (end == std::string::npos)
            Fail("line " + std::to_string(line), at, "expected a line that begins with DATA");
        std::vector<std::string> words = SplitWords(text.substr(at, end - at));
        const uint64_t offset = at;
        at = end + 1;
        if (words.size() > 2 && words[0] == "#" && words[1] == "kxio-pose" && words[2] == "1")
            exactPose = words;
        if (words.empty() || words[0][0] == '#') continue;
        static constexpr const char* kKeys[] = {"VERSION", "FIELDS",    "COLUMNS", "SIZE",   "TYPE", "COUNT",
                                                "WIDTH",   "VIEWPOINT", "HEIGHT",  "POINTS", "DATA"};
        if (std::none_of(std::begin(kKeys), std::end(kKeys),
                         [&](const char* key) { return words[0] == key; })) {
            Fail("line " + std::to_string(line), offset,
                 "found '" + words[0].substr(0, 40) + "', which a PCD header does not have");
        }
        const std::string key = words[0] == "COLUMNS" ? "FIELDS" : words[0];
        offsets[key] = offset;
        lines[key] = std::move(words);
    }
    m_dataOffset = at;
    m_dataLine = line + 1;
    const auto number = [&](const std::string& key, size_t index, uint64_t most) {
        uint64_t value = 0;
        const auto found = lines.find(key);
        if (found == lines.end()) Fail("header", 0, "found no line " + key);
        if (index >= found->second.size() || !Whole(found->second[index], most, value)) {
            Fail("header", offsets[key], key + ": expected a whole number up to " + std::to_string(most));
        }
        return value;
    };
    const std::vector<std::string>& fields = lines["FIELDS"];
    const std::vector<std::string>& types = lines["TYPE"];
    if (fields.size() < 2 || fields.size() > kMostFields || types.size() != fields.size())
        Fail("header", offsets["FIELDS"], "expected as many types as fields, one at least");
    m_record = PointRecord();
    uint64_t recordBytes = 0;
    const bool ascii = lines["DATA"].size() == 2 && lines["DATA"][1] == "ascii";
    for (size_t i = 1; i < fields.size(); ++i) {
        const uint64_t size = number("SIZE", i, 8);
        const uint64_t count = lines.count("COUNT") != 0 ? number("COUNT", i, kMostElements) : 1;
        static const std::map<std::string, ValueType> kTypes{
            {"I1", ValueType::I8},  {"U1", ValueType::U8},  {"I2", ValueType::I16}, {"U2", ValueType::U16},
            {"I4", ValueType::I32}, {"U4", ValueType::U32}, {"I8", ValueType::I64}, {"U8", ValueType::U64},
            {"F4", ValueType::F32}, {"F8", ValueType::F64}};
        const auto type = kTypes.find(types[i] + std::to_string(size));
        if (type == kTypes.end() || count == 0)
            Fail("header", offsets["TYPE"], "field " + std::to_string(i) + " has no type that PCD has");
        recordBytes += size * count;
        if (recordBytes > kMostElements) Fail("header", offsets["SIZE"], "found points of more than 1 MiB");
        // In text every element is a word of its own.
        if (ascii && count > 1) {
            if (count > kMostFields) Fail("header", offsets["COUNT"], "found too many values for a line");
            for (uint64_t element = 0; element < count; ++element)
                m_record.Add(fields[i] + "[" + std::to_string(element) + "]", type->second);
        } else {
            m_record.Add(fields[i], type->second, count);
        }
    }
    m_record.Settle();
    if (!m_record.HasCoordinates()) Fail("header", offsets["FIELDS"], "found no fields x, y and z");
    m_columns = number("WIDTH", 1, kMostPoints);
    m_rows = lines.count("HEIGHT") != 0 ? number("HEIGHT", 1, kMostPoints) : 1;
    if (m_rows != 0 && m_columns > kMostPoints / m_rows)
        Fail("header", offsets["WIDTH"], "found more than 2^40 points");
    m_points = m_columns * m_rows;
    if (lines.count("POINTS") != 0 && number("POINTS", 1, kMostPoints) != m_points)
        Fail("header", offsets["POINTS"], "found " + lines["POINTS"][1] + " points, expected WIDTH x HEIGHT");
    if (lines.count("VIEWPOINT") != 0) ReadViewpoint(lines["VIEWPOINT"], exactPose);
    const std::string data = lines["DATA"].size() == 2 ? lines["DATA"][1] : "";
    if (ascii) {
        m_encoding = Encoding::Ascii;
        m_text = std::make_unique<TextBuffer>(MakeByteFeed(*m_stream, m_name), m_name);
    } else if (data == "binary") {
        m_encoding = Encoding::Binary;
    } else if (data == "binary_compressed") {
        m_encoding = Encoding::Packed;
    } else {
        Fail("header", offsets["DATA"], "expected ascii, binary or binary_compressed");
    }
    CheckClaims();
    m_headerRead = true;
}

// Counts are held against the file before anything follows them.
void PcdSource::CheckClaims() const {
    if (m_encoding == Encoding::Packed) return;
    const uint64_t left = m_fileBytes - m_dataOffset;
    const uint64_t least = m_encoding == Encoding::Ascii ? 2 * m_record.Fields().size() : m_record.Bytes();
    // The last line of a text may lack its end.
    if (m_points > (left + (m_encoding == Encoding::Ascii ? 1 : 0)) / least) {
        Fail("data", m_dataOffset,
             "found " + std::to_string(left) + " bytes, expected " + std::to_string(m_points) + " points");
    }
}

void PcdSource::Unpack() {
    unsigned char sizes[8] = {};
    m_stream->Seek(m_dataOffset);
    if (m_stream->Read(sizes, sizeof sizes) != sizeof sizes)
        Fail("data", m_dataOffset, "found the end of the file");
    const auto size = [&](size_t first) {
        uint64_t value = 0;
        for (size_t i = 0; i < 4; ++i)
            value |= uint64_t{sizes[first + i]} << (8 * i);
        return value;
    };
    const uint64_t packed = size(0), unpacked = size(4);
    const uint64_t begin = m_dataOffset + sizeof sizes;
    if (packed > m_fileBytes - begin)
        Fail("data", m_dataOffset, "found the end of the file inside the packed data");
    const uint64_t wanted = m_points * m_record.Bytes();
    if (m_points > (uint64_t{1} << 32) || unpacked != wanted || unpacked > MostLzfBytes(packed)) {
        Fail("data", m_dataOffset,
             "found " + std::to_string(packed) + " packed bytes of " + std::to_string(unpacked) +
                 ", expected " + std::to_string(m_points) + " points of " + std::to_string(m_record.Bytes()) +
                 " bytes");
    }
    auto planes = std::make_unique<Spool>(m_options.temporaryFolder, kUnpackedInMemory);
    uint64_t left = packed;
    const bool good = UnpackLzf(
        [&](std::span<unsigned char> out) {
            const uint64_t got = m_stream->Read(out.data(), std::min<uint64_t>(out.size(), left));
            left -= got;
            m_taken += got;
            return static_cast<size_t>(got);
        },
        [&](std::span<const unsigned char> bytes) { planes->Append(bytes); }, unpacked);
    if (!good) Fail("data", begin, "the packed data is damaged");
    m_planes = std::move(planes);
}

void PcdSource::BeginPoints() {
    m_nextPoint = 0;
    if (m_encoding == Encoding::Ascii) m_text->GoTo(m_dataOffset, m_dataLine);
    if (m_encoding == Encoding::Binary) m_bytes.Begin(m_record, m_dataOffset, m_points);
    if (m_encoding == Encoding::Packed && !m_planes) Unpack();
}

size_t PcdSource::ReadPoints(std::vector<Cell>& cells) {
    const uint64_t wanted = std::min(m_points - m_nextPoint, kPointsPerRead);
    size_t read = 0;
    if (wanted == 0) {
        cells.clear();
    } else if (m_encoding == Encoding::Ascii) {
        LineFault fault;
        read = ReadCellLines(*m_text, m_options.threads, wanted, cells, 0,
                             EachLine([this](const char*& at, Cell& cell, LineFault& why) {
                                 return m_record.ParseLine(at, cell, why);
                             }),
                             fault);
        const std::string record = "line " + std::to_string(m_text->Line());
        if (fault.at) Fail(record, m_text->Offset(fault.at), fault.field + ": expected " + fault.expected);
        if (read != wanted)
            Fail(record, m_text->Offset(), "found the end of the text, expected further points");
    } else if (m_encoding == Encoding::Binary) {
        read = m_bytes.Read(wanted, cells, 0);
    } else {
        read = static_cast<size_t>(wanted);
        cells.resize(read);
        std::vector<unsigned char> records(read * static_cast<size_t>(m_record.Bytes())), plane;
        const auto stride = static_cast<size_t>(m_record.Bytes());
        const std::vector<PointField>& fields = m_record.Fields();
        for (size_t i = 0; i < fields.size(); ++i) {
            if (fields[i].target == PointTarget::None) continue;
            const size_t size = SizeOf(fields[i].type);
            plane.resize(read * size);
            m_planes->Read(fields[i].offset * m_points + m_nextPoint * size, plane.data(), plane.size());
            for (size_t point = 0; point < read; ++point)
                std::copy_n(plane.data() + point * size, size,
                            records.data() + point * stride + fields[i].offset);
        }
        for (size_t point = 0; point < read; ++point) {
            if (!m_record.Decode(records.data() + point * stride, cells[point])) {
                Fail("point " + std::to_string(m_nextPoint + point + 1), m_dataOffset,
                     "found a coordinate beyond 1e12 m");
            }
        }
    }
    cells.resize(read);
    m_nextPoint += read;
    return read;
}

void PcdSource::GatherGrid() {
    auto gather = std::make_unique<GridGather>(m_columns, m_rows, m_options.temporaryFolder);
    BeginPoints();
    std::vector<Cell> cells;
    uint64_t point = 0, nowhere = 0;
    while (ReadPoints(cells) != 0) {
        for (const Cell& cell : cells) {
            nowhere += IsNowhere(cell) ? 1 : 0;
            gather->Put(point % m_columns, point / m_columns, IsNowhere(cell) ? Cell() : cell);
            ++point;
        }
    }
    if (nowhere != 0) m_warnings.push_back(NowhereWarning(nowhere));
    m_gather = std::move(gather);
    m_planes.reset();
}

ScanDescription PcdSource::OpenScan(uint64_t index) {
    m_open = false;
    ReadHeader();
    if (index != 0) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.detail = "asked for scan " + std::to_string(index + 1) + ", the file holds 1";
        throw kxbase::KXIndexOutOfBoundsException("No such scan in the file", context);
    }
    ScanDescription description;
    m_record.Describe(description);
    description.pose = m_pose;
    description.points = m_points;
    if (m_rows > 1 && m_columns > 0) {
        if (!m_gather) GatherGrid();
        m_gather->Rewind();
        description.columns = m_columns;
        description.rows = m_rows;
    } else {
        BeginPoints();
    }
    m_open = true;
    return description;
}

uint64_t PcdSource::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    cells.clear();
    if (!m_open || maxColumns == 0) return 0;
    if (m_gather) {
        return m_gather->Read(std::min(maxColumns, std::max<uint64_t>(1, kPointsPerRead / m_rows)), cells);
    }
    while (ReadPoints(cells) != 0) {
        std::erase_if(cells, [](const Cell& cell) { return !cell.valid; });
        if (!cells.empty()) return 1;
    }
    return 0;
}

}  // namespace kxexchange
