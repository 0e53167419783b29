// SPDX-License-Identifier: MIT
// The input is a scan file and a list of calls on one reader, in whatever order and with whatever numbers: u8
// count n, n calls of 8 bytes (call, component, u16 row, u16 column, level, flag), then the file.
#include <algorithm>
#include <span>
#include <string>

#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/HistogramHeader.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace {

class OpenReader : public kxio::QSNScanReader {
public:
    using QSNScanReader::AnalyseCodecs;
    using QSNScanReader::FailSafeInit;
    using QSNScanReader::FillupPatchPosition;
    using QSNScanReader::FillupPreviewPosition;
    using QSNScanReader::FillupScanProperties;
    using QSNScanReader::GetCompressedHistogram;
    using QSNScanReader::InitFile;
    using QSNScanReader::ReadHeaders;
    using QSNScanReader::ReadTailHeaders;
    using QSNScanReader::SetupComponentMap;
    using QSNScanReader::SetupGrid;
    using QSNScanReader::SetupPostOpening;
};

struct Call {
    uint8_t what;
    kxbase::ComponentType component;
    uint32_t row;
    uint32_t column;
    unsigned level;
    bool flag;
};

// 255 stands for a number that no scan has.
uint32_t Number(uint8_t low, uint8_t high) {
    return high == 255 ? 0xffffff00U | low : low + 256U * high;
}

class Play {
public:
    explicit Play(std::span<const uint8_t> file) : m_stream(file.data(), file.size()) {}

    void Do(const Call& call) {
        try {
            Try(call);
        } catch (const kxbase::KXException& e) {
            Require(e.what()[0] != '\0', "a refusal has a text");
        }
    }

    /// Whatever was called before: closed and opened again the reader is as a new one is.
    void OpenAgain() {
        m_reader.Close();
        m_reader.SetIntegrityChecks(true);
        OpenReader fresh;
        const bool opens = Opens(fresh);
        Require(Opens(m_reader) == opens, "what opens at first opens again");
        if (!opens) return;
        const auto same = [&](const auto& what) { return what(m_reader) == what(fresh); };
        Require(same([](const auto& r) { return r.GetAvailableComponents(); }), "the same components");
        Require(same([](const auto& r) { return r.GetAvailablePreviews(); }), "the same previews");
        Require(same([](const auto& r) { return r.GetAvailableHistograms(); }), "the same histograms");
        Require(same([](const auto& r) { return r.GetMessageList(); }), "the same messages");
        Require(same([](const auto& r) { return r.GetWarningList(); }), "the same warnings");
        Require(same([](const auto& r) { return r.GetPatchNumber(); }), "the same number of patches");
        Require(same([](const auto& r) { return r.HasIntegrity(); }), "hashes or none");
        Require(same([](const auto& r) { return r.GetIntegrityProblems().size(); }), "the same problems");
        for (const kxbase::ComponentType component : fresh.GetAvailableComponents()) {
            for (unsigned index = 0; index < std::min(fresh.GetPatchNumber(), 4U); ++index) {
                Require(same([&](const auto& r) { return PatchBytes(r, index, component); }),
                        "the same patches");
            }
        }
    }

private:
    bool Opens(OpenReader& reader) {
        try {
            reader.Open(&m_stream);
            return true;
        } catch (const kxbase::KXException&) {
            return false;
        }
    }
    static std::vector<unsigned char> PatchBytes(const OpenReader& reader, unsigned index,
                                                 kxbase::ComponentType component) {
        std::vector<unsigned char> bytes;
        try {
            reader.GetPatchCompressed(index, bytes, component);
        } catch (const kxbase::KXUnreadablePatchException& e) {
            const std::string text = e.what();
            bytes.assign(text.begin(), text.end());
        }
        return bytes;
    }

    // A damaged grid may claim any number of patches; what is made per patch is asked for few only.
    bool FewPatches() { return m_reader.Grid().PatchCount64() <= 4096; }

    void Try(const Call& call) {
        switch (call.what % 32) {
            case 0:
                return m_reader.Open(&m_stream);
            case 1:
                return m_reader.Close();
            case 2:
                return m_reader.SetIntegrityChecks(call.flag);
            case 3:
                return m_reader.FailSafeInit();
            case 4:
                return m_reader.SetupPostOpening();
            case 5:
                return m_reader.InitFile();
            case 6:
                m_reader.ReadHeaders();
                return;
            case 7:
                return m_reader.FillupPatchPosition();
            case 8:
                return m_reader.FillupPreviewPosition();
            case 9:
                return m_reader.SetupGrid();
            case 10:
                return m_reader.FillupScanProperties();
            case 11:
                return m_reader.ReadTailHeaders();
            case 12:
                return m_reader.AnalyseCodecs();
            case 13:
                return m_reader.SetupComponentMap();
            case 14:
                return m_reader.GetPatchCompressed(call.row, call.column, m_bytes, call.component);
            case 15:
                return m_reader.GetPatchCompressed(call.row, m_bytes, call.component);
            case 16: {
                unsigned level = call.level % 4;
                return m_reader.GetPatchCompressed(call.row, call.column, m_bytes, call.component, level,
                                                   call.flag);
            }
            case 17: {
                if (!FewPatches()) return;
                std::vector<kxbase::ImageCoordinates> list;
                return m_reader.GetOrderedPatchList(list, call.component);
            }
            case 18:
                return m_reader.GetCompressedPreview(m_bytes, call.component);
            case 19: {
                unsigned width = 0;
                unsigned height = 0;
                m_reader.GetThumbnailRGB(m_bytes, width, height);
                Require(m_bytes.size() == uint64_t{3} * width * height, "three bytes per pixel");
                return;
            }
            case 20:
                m_reader.GetThumbnailJPEG(m_bytes);
                return;
            case 21: {
                kxbase::tBasePolarPoint<float> min, max;
                return m_reader.GetBoundingBox(call.row, call.column, min, max);
            }
            case 22:
                m_reader.GetPatchVertices(call.row, call.column);
                return;
            case 23: {
                std::vector<kxbase::tBaseXYZPoint<float>> points;
                return m_reader.Get3DPatch(call.row, call.column, points, call.flag);
            }
            case 24: {
                std::vector<kxbase::tXYZLuminance8Point> points;
                return m_reader.Get3DPreview(points, call.flag);
            }
            case 25: {
                std::vector<kxbase::QSNIndex> places;
                unsigned count = 0;
                m_reader.GetProjectedPatchCoordinates(call.row, places, count, call.flag);
                Require(places.size() == count, "the count is that of the places");
                return;
            }
            case 26:
                m_reader.GetCompressedHistogram(call.component);
                return;
            case 27: {
                kxio::ScanProperties properties;
                return m_reader.GetScanInformation(properties);
            }
            case 28:
                m_reader.HasRegistrationBeenModified();
                return;
            case 29: {
                const kxio::ScanAccess access(m_reader);
                access.ReadPatchBytes(call.component, call.row, call.column,
                                      access.ElementBytes(call.component));
                return;
            }
            case 30: {
                const kxio::ScanAccess access(m_reader);
                access.ReadPreviewBytes(call.component, access.ElementBytes(call.component));
                return;
            }
            default:
                kxio::ScanAccess(m_reader).Summarise();
                return;
        }
    }

    kxbase::InMemoryStream m_stream;
    OpenReader m_reader;
    std::vector<unsigned char> m_bytes;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kCallBytes = 8;
    if (size == 0) return 0;
    const size_t count = std::min<size_t>(data[0], (size - 1) / kCallBytes);
    const std::span<const uint8_t> calls(data + 1, count * kCallBytes);
    Play play({data + 1 + calls.size(), size - 1 - calls.size()});
    for (size_t i = 0; i < count; ++i) {
        const auto c = calls.subspan(i * kCallBytes, kCallBytes);
        play.Do({c[0], static_cast<kxbase::ComponentType>(c[1]), Number(c[2], c[3]), Number(c[4], c[5]), c[6],
                 c[7] % 2 != 0});
    }
    play.OpenAgain();
    return 0;
}
