// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CellLines.h"
#include "kxbase/IInFileStream.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Reads points as lines of text: XYZ, and PTS, whose blocks begin with a line that counts their points.
///
/// A line is x y z, x y z intensity, x y z red green blue or x y z intensity red green blue, the same for a
/// whole scan; blanks or tabs between. XYZ may begin with lines of '#' or '//'. A PTS may hold several
/// blocks: each is a scan. No grid, no pose.
class PointTextSource : public ScanSource {
public:
    PointTextSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                    const SourceOptions& options, bool counted);

    std::string FormatName() const override { return m_counted ? "PTS" : "XYZ"; }
    std::string Name() const override { return m_name; }
    uint64_t ScanCount() override;
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    uint64_t BytesRead() const override { return m_text.BytesTaken(); }
    uint64_t FileBytes() const override { return m_fileBytes; }

private:
    struct Place {
        uint64_t offset;
        uint64_t line;
    };
    bool SkipBlankLines();
    uint64_t ReadCount();
    bool FindScan(uint64_t index);
    size_t ValuesInLine() const;
    [[noreturn]] void Fail(const char* at, const std::string& field, const std::string& expected) const;

    std::unique_ptr<kxbase::IInFileStream> m_stream;
    std::string m_name;
    int m_threads;
    bool m_counted;
    uint64_t m_fileBytes;
    TextBuffer m_text;
    std::vector<Place> m_starts;
    bool m_allKnown = false;
    uint64_t m_left = 0;  // points of the open scan; of an XYZ: as many as there are
    size_t m_values = 0;  // of a line
};

class XyzSource final : public PointTextSource {
public:
    XyzSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
              const SourceOptions& options = {})
        : PointTextSource(std::move(stream), std::move(name), options, false) {}
};

class PtsSource final : public PointTextSource {
public:
    PtsSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
              const SourceOptions& options = {})
        : PointTextSource(std::move(stream), std::move(name), options, true) {}
};

}  // namespace kxexchange
