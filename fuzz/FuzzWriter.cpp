// SPDX-License-Identifier: MIT
// The input is a list of calls on a writer, in whatever order. What was written is read again and held
// against what was handed over.
#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <span>

#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxbase/InMemoryStream.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"

namespace {

using Bytes = std::vector<unsigned char>;

/// The input, taken piece by piece; zeros behind its end.
class Choices {
public:
    Choices(const uint8_t* data, size_t size) : m_left(data, size) {}
    bool Empty() const { return m_left.empty(); }
    uint8_t Byte() {
        if (m_left.empty()) return 0;
        const uint8_t value = m_left.front();
        m_left = m_left.subspan(1);
        return value;
    }
    uint32_t Below(uint32_t limit) { return Byte() % limit; }
    /// `count` bytes: a few of the input, repeated.
    Bytes Fill(size_t count) {
        const std::array<unsigned char, 5> few = {Byte(), Byte(), Byte(), Byte(), Byte()};
        Bytes bytes(count);
        for (size_t i = 0; i < count; ++i)
            bytes[i] = few[i % few.size()];
        return bytes;
    }

private:
    std::span<const uint8_t> m_left;
};

struct Component {
    kxbase::ComponentType type;
    uint32_t bytes;
};
constexpr std::array<Component, 5> kComponents = {{{kxbase::Range, 4},
                                                   {kxbase::VerticalAngle, 4},
                                                   {kxbase::Luminance8, 1},
                                                   {kxbase::Luminance16, 2},
                                                   {kxbase::Color, 3}}};

/// What a file should hold.
struct Model {
    kxbase::GridTopology grid;
    std::map<std::pair<kxbase::ComponentType, uint32_t>, Bytes> patches;  ///< by component and patch index
    std::vector<std::wstring> messages;
};

kxbase::GridTopology MakeGrid(Choices& choices) {
    kxbase::GridTopology grid;
    grid.columns = 1 + choices.Below(20);
    grid.rows = 1 + choices.Below(20);
    grid.patchWidth = 1 + choices.Below(8);
    grid.patchHeight = 1 + choices.Below(8);
    grid.columnAngularStep = 0.01F;
    grid.rowAngularStep = 0.01F;
    return grid;
}

class Play {
public:
    explicit Play(Choices& choices) : m_choices(choices) {}

    void Run() {
        // Enough calls for every kind to meet every other.
        for (int calls = 0; calls < 200 && !m_choices.Empty(); ++calls)
            Call(m_choices.Below(10));
        if (m_open && !m_ended) End();
        if (m_ended) Compare();
    }

private:
    void Call(uint32_t what) {
        try {
            switch (what) {
                case 0:
                    return Create();
                case 1:
                    m_writer.SetPointcount(m_choices.Byte());
                    return;
                case 2:
                    m_writer.SetSpeckleFilteringNeeded(m_choices.Byte() % 2 != 0);
                    return;
                case 3:
                    return AddText();
                case 4:
                    return AddEmpty();
                case 5:
                    m_writer.DisableHistogramComputation(m_choices.Byte() % 2 != 0);
                    return;
                case 6:
                    return Preview();
                case 7:
                    if (m_choices.Byte() < 8) End();
                    return;
                default:
                    return AddFlat();
            }
        } catch (const kxbase::KXException&) {
            // A call out of order or with a place that is none: refused, and the writer stays usable.
        }
    }

    void Create() {
        const kxbase::GridTopology grid = MakeGrid(m_choices);
        m_writer.CreateNew(&m_stream, grid);  // refuses a second time
        m_open = true;
        m_model.grid = grid;
    }

    void AddText() {
        std::wstring text;
        for (uint32_t i = m_choices.Below(20); i-- > 0;)
            text += static_cast<wchar_t>(1 + m_choices.Byte());
        m_writer.AddMessage(text);
        if (!m_ended) m_model.messages.push_back(text);
    }

    void AddFlat() {
        const Component& component = kComponents[m_choices.Below(kComponents.size())];
        const uint32_t index = m_choices.Byte();
        const uint64_t cells = uint64_t{m_model.grid.patchWidth} * m_model.grid.patchHeight;
        Bytes values = m_choices.Fill(cells * component.bytes);
        kxio::FlatPatchDescriptor patch(
            component.type, component.bytes, kxio::RowMajor, 1.0,
            m_choices.Byte() % 2 != 0 ? static_cast<kxcodecs::QKXChunkCodec*>(&m_zlib) : &m_snappy);
        patch.data = values.data();
        patch.size = cells;
        m_writer.AddPatch({&patch}, index);
        Require(m_open && !m_ended && index < m_model.grid.PatchCount(),
                "patches have a place in an open file");
        m_model.patches[{component.type, index}] = std::move(values);
    }

    void AddEmpty() {
        const Component& component = kComponents[m_choices.Below(kComponents.size())];
        const uint32_t index = m_choices.Byte();
        kxio::EmptyPatchDescriptor patch(component.type, component.bytes);
        m_writer.AddPatch({&patch}, index);
        const uint64_t cells = uint64_t{m_model.grid.patchWidth} * m_model.grid.patchHeight;
        m_model.patches[{component.type, index}] = Bytes(cells * component.bytes);
    }

    void Preview() {
        Bytes bytes = m_choices.Fill(m_choices.Byte());
        const kxbase::ComponentType type = kComponents[m_choices.Below(kComponents.size())].type;
        m_writer.SetCompressedPreview(bytes.data(), bytes.size(), type);
        // Nonsense of the caller's is stored; the whole file must still open.
        m_foreignPreview = m_foreignPreview || !bytes.empty();
    }

    void End() {
        m_writer.EndCreation();
        Require(m_open && !m_ended, "a file ends once");
        m_ended = true;
    }

    void Compare() {
        kxbase::InMemoryStream stream(m_stream.GetBytes().data(), m_stream.GetBytes().size());
        std::optional<kxio::QSNScanReader> reader;
        try {
            reader.emplace(&stream);
        } catch (const kxbase::KXException&) {
            // Without a component there is no scan; a preview that is none may be met first.
            Require(m_model.patches.empty() || m_foreignPreview, "a complete file opens");
            return;
        }
        const kxio::ScanAccess scan(*reader);
        Require(scan.Grid().columns == m_model.grid.columns && scan.Grid().rows == m_model.grid.rows,
                "the grid comes back");
        for (const auto& [place, values] : m_model.patches) {
            const auto& [component, index] = place;
            const uint32_t bytes = scan.ElementBytes(component);
            const uint32_t perRow = m_model.grid.PatchesPerRow();
            Require(
                scan.ReadStoredPatchBytes(component, index / perRow, index % perRow, bytes).values == values,
                "a patch comes back");
        }
        size_t found = 0;
        const auto& messages = reader->GetScanInformation().messages;
        for (const std::wstring& text : messages)
            found += found < m_model.messages.size() && text == m_model.messages[found];
        Require(found == m_model.messages.size(), "messages come back in their order");
    }

    Choices& m_choices;
    kxcodecs::SnappyChunkCodec m_snappy;
    kxcodecs::ZLibChunkCodec m_zlib;
    kxbase::InMemoryStream m_stream;
    kxio::QSNScanWriter m_writer;
    Model m_model;
    bool m_open = false;
    bool m_ended = false;
    bool m_foreignPreview = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    Play(choices).Run();
    return 0;
}
