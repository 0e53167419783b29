// SPDX-License-Identifier: MIT
// The first byte picks what is done with the rest:
//   0  PTX text, plain or gzip data: every scan of it is read, fitted to a grid and laid into patches
//   1  a line of text that may be a layout message
//   2  text of numbers: the first one against the standard library, whole lines that are read many at a time
//      against each number by itself
#include <bit>
#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "ImportPlan.h"
#include "PatchAssembler.h"
#include "PlainLines.h"
#include "ScanSurvey.h"
#include "TextNumbers.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/kxexchange.h"

namespace {

using namespace kxexchange;

constexpr uint64_t kMaxCells = 1 << 14;

// Every return ends up in a patch, and nothing else does.
void LayOut(const std::vector<Cell>& cells, uint64_t columns, uint64_t rows, ScanSurvey& survey) {
    const FittedGrid fitted = survey.Grid();
    Require(fitted.layout.IsConsistent(), "a fitted layout is consistent");
    Require(fitted.columnStep > 0 && fitted.rowStep > 0, "fitted steps are above 0");
    Require(std::isfinite(fitted.columnStart) && std::isfinite(fitted.rowStart), "fitted angles are finite");
    ImportOptions options;
    options.patchWidth = options.patchHeight = 4;
    StorageRules rules;
    rules.rangeScale = FittingRangeScale(0.1, survey.GreatestRange());
    rules.intensity = survey.Intensity();
    PatchAssembler assembler(MakeTopology(fitted, options), fitted.layout, rules);
    uint64_t returns = 0;
    const std::span<const Cell> all(cells);
    for (size_t i = 0; i < columns; ++i) {
        assembler.AddColumn(all.subspan(i * rows, rows), [&](std::unique_ptr<PatchColumn> column) {
            for (const float range : column->range) {
                Require(range >= 0 && std::isfinite(range), "a range is a number");
                returns += range > 0 ? 1 : 0;
            }
            assembler.Recycle(std::move(column));
        });
    }
    Require(assembler.OpenColumns() == 0, "every column of patches is complete");
    Require(returns == survey.Returns(), "every return is in a patch");
}

void ReadText(const uint8_t* data, size_t size) {
    try {
        const auto source = OpenScanSource(std::make_unique<kxbase::InMemoryStream>(data, size), "fuzz.ptx");
        for (uint64_t index = 0; index < 4; ++index) {
            const ScanDescription description = source->OpenScan(index);
            Require(description.columns > 0 && description.rows > 0, "a scan has cells");
            ScanSurvey survey(description.rows);
            std::vector<Cell> kept, cells;
            uint64_t columns = 0;
            while (const uint64_t read = source->ReadColumns(7, cells)) {
                columns += read;
                Require(cells.size() == read * description.rows, "columns are whole");
                for (const Cell& cell : cells) {
                    Require(std::isfinite(cell.x) && std::isfinite(cell.y) && std::isfinite(cell.z) &&
                                std::isfinite(cell.intensity),
                            "values are finite");
                    Require(cell.valid == (cell.x != 0 || cell.y != 0 || cell.z != 0), "zeros are no return");
                }
                survey.Add(cells);
                if (kept.size() <= kMaxCells) kept.insert(kept.end(), cells.begin(), cells.end());
            }
            Require(columns == description.columns, "a scan that ends well has all its columns");
            if (kept.size() <= kMaxCells) LayOut(kept, columns, description.rows, survey);
        }
    } catch (const SourceFormatException& e) {
        Require(!e.Context().detail.empty() && e.Context().offset.has_value(),
                "a refusal says what and where");
    } catch (const kxbase::KXIndexOutOfBoundsException&) {
    }
}

void ReadLayout(const uint8_t* data, size_t size) {
    const auto message = LayoutMessage::Parse(std::string(reinterpret_cast<const char*>(data), size));
    if (!message) return;
    Require(message->layout.IsConsistent(), "a parsed layout is consistent");
    const auto again = LayoutMessage::Parse(message->Format());
    Require(again && again->layout == message->layout && again->intensity == message->intensity,
            "a layout comes back from its own line");
}

void ReadNumber(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), std::min<size_t>(size, 2000));
    const std::string line = text.substr(0, text.find_first_of(std::string(" \t\r\n\0", 5))) + "\n";
    const char* at = line.data();
    double value = 0;
    const NumberStatus status = ParseNumber(at, value);
    const char* begin = line.data() + (line.front() == '+' ? 1 : 0);
    const char* const end = line.data() + line.size() - 1;
    double expected = 0;
    const auto result = std::from_chars(begin, end, expected);
    const bool number = result.ec == std::errc() && result.ptr == end && std::isfinite(expected) &&
                        !(line.front() == '+' && *begin == '-');
    Require(!number || status == NumberStatus::Ok, "what the standard library reads is read");
    if (status == NumberStatus::Ok) {
        Require(at == end, "a number is read to its end");
        Require(number ? value == expected : value == 0, "the same number is read");
    } else {
        Require(at == line.data(), "what is no number is not moved over");
    }
}

void ReadLines(const uint8_t* data, size_t size) {
    std::string memory(kReadableInFront, '1');
    memory.append(reinterpret_cast<const char*>(data), std::min<size_t>(size, 4000));
    memory += '\n';
    const size_t end = memory.size();
    memory.append(kReadableBehind, '1');
    for (const LineShape& shape : {LineShape{true, false, true}, LineShape{true, true, true}, LineShape{}}) {
        std::vector<Cell> cells(1000);
        const char* behind = memory.data() + kReadableInFront;
        const char* at = behind;
        cells.resize(ParsePlainLines(shape, behind, memory.data() + end, cells.size(), cells.data()));
        for (const Cell& cell : cells) {
            const double values[] = {cell.x, cell.y, cell.z, cell.intensity};
            for (size_t i = 0; i < (shape.intensity ? 4 : 3); ++i) {
                double value = 0;
                Require(ParseNumber(at, value) == NumberStatus::Ok, "what is read at once is a number");
                Require(std::bit_cast<uint64_t>(value) == std::bit_cast<uint64_t>(values[i]), "the same one");
                Require(IsBlank(*at) || i + 1 == shape.Values(), "a blank is between values");
                if (i + 1 < shape.Values()) ++at;
            }
            for (const uint16_t color : {cell.red, cell.green, cell.blue}) {
                if (!shape.color) break;
                uint64_t whole = 0;
                Require(ParseWhole(at, 255, whole) && whole == color, "the same colour");
                if (*at != '\n' && *at != '\r') ++at;
            }
            if (*at == '\r') ++at;
            Require(*at++ == '\n', "a line ends behind its values");
        }
        Require(at == behind, "as many lines are passed over as are read");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    switch (data[0] % 3) {
        case 0:
            ReadText(data + 1, size - 1);
            break;
        case 1:
            ReadLayout(data + 1, size - 1);
            break;
        default:
            ReadNumber(data + 1, size - 1);
            ReadLines(data + 1, size - 1);
            break;
    }
    return 0;
}
