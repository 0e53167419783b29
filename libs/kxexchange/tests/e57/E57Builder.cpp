// SPDX-License-Identifier: MIT
#include "E57Builder.h"

#include <bit>

namespace kxexchange::plain {

namespace {

void Put(Bytes& bytes, size_t at, uint64_t value, size_t count) {
    for (size_t i = 0; i < count; ++i)
        bytes.at(at + i) = static_cast<unsigned char>(value >> (8 * i));
}

// Bytes of one value of the prototype's element number `index`.
size_t ValueBytes(const std::string& prototype, size_t index) {
    size_t at = prototype.find('<');
    for (size_t i = 0; i < index; ++i)
        at = prototype.find('<', at + 1);
    const std::string element = prototype.substr(at, prototype.find('>', at) - at);
    if (element.find("\"Float\"") != std::string::npos) return 8;
    return element.find("\"65535\"") != std::string::npos ? 2 : 1;
}

}  // namespace

Bytes DoubleBytes(std::initializer_list<double> values) {
    Bytes bytes(values.size() * 8);
    size_t at = 0;
    for (const double value : values) {
        Put(bytes, at, std::bit_cast<uint64_t>(value), 8);
        at += 8;
    }
    return bytes;
}

void Builder::Align() {
    m_content.resize((m_content.size() + 3) / 4 * 4);
}

void Builder::Scan(const std::string& prototype, const std::vector<Bytes>& streams, uint64_t records) {
    for (size_t i = 0; i < streams.size() && records == 0; ++i) {
        if (!streams[i].empty()) records = streams[i].size() / ValueBytes(prototype, i);
    }
    Align();
    const size_t start = m_content.size();
    m_scans.push_back({prototype, {}, Here(), records});
    m_content.resize(start + 32);
    m_content[start] = 1;
    Put(m_content, start + 16, Here(), 8);
    const size_t packet = m_content.size();
    m_content.resize(packet + 6 + 2 * streams.size());
    m_content[packet] = 1;
    Put(m_content, packet + 4, streams.size(), 2);
    for (size_t i = 0; i < streams.size(); ++i) {
        Put(m_content, packet + 6 + 2 * i, streams[i].size(), 2);
        m_content.insert(m_content.end(), streams[i].begin(), streams[i].end());
    }
    Align();
    Put(m_content, packet + 2, m_content.size() - packet - 1, 2);
    Put(m_content, start + 8, m_content.size() - start, 8);
}

void Builder::Image(const std::string& guid, const std::string& representation, const std::string& element,
                    const Bytes& bytes, uint64_t claimed) {
    Align();
    const size_t start = m_content.size();
    const uint64_t place = Here();
    m_content.resize(start + 16);
    m_content.insert(m_content.end(), bytes.begin(), bytes.end());
    Align();
    Put(m_content, start + 8, m_content.size() - start, 8);
    m_images +=
        "<vectorChild type=\"Structure\"><associatedData3DGuid type=\"String\">" + guid +
        "</associatedData3DGuid><" + representation + " type=\"Structure\"><" + element +
        " type=\"Blob\" fileOffset=\"" + std::to_string(place) + "\" length=\"" +
        std::to_string(claimed != 0 ? claimed : bytes.size()) +
        "\"/><imageWidth type=\"Integer\">40</imageWidth><imageHeight type=\"Integer\">30</imageHeight></" +
        representation + "></vectorChild>";
}

Bytes Builder::File() const {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><e57Root type=\"Structure\" "
        "xmlns=\"http://www.astm.org/COMMIT/E57/2010-e57-v1.0\"><data3D type=\"Vector\">";
    for (const OneScan& scan : m_scans) {
        xml += "<vectorChild type=\"Structure\">" + scan.extra +
               "<points type=\"CompressedVector\" fileOffset=\"" + std::to_string(scan.physical) +
               "\" recordCount=\"" + std::to_string(scan.records) + "\"><prototype type=\"Structure\">" +
               scan.prototype + "</prototype></points></vectorChild>";
    }
    xml += "</data3D><images2D type=\"Vector\">" + m_images + "</images2D></e57Root>";
    Bytes content = m_content;
    const uint64_t place = Here();
    content.insert(content.end(), xml.begin(), xml.end());
    const std::string signature = "ASTM-E57";
    std::copy(signature.begin(), signature.end(), content.begin());
    Put(content, 8, 1, 4);
    Put(content, 16, (content.size() + 1019) / 1020 * 1024, 8);
    Put(content, 24, place, 8);
    Put(content, 32, xml.size(), 8);
    Put(content, 40, 1024, 8);
    return PlainPages(content);
}

}  // namespace kxexchange::plain
