// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "PlainLines.h"
#include "TextBuffer.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Why a line is no cell.
struct LineFault {
    const char* at = nullptr;  ///< the offending piece, in the text buffer; null: nothing is wrong
    std::string field;
    std::string expected;
};

/// Parses whole lines from `begin` to `end`, at most `lines`, into as many cells from `out` on. \return lines
/// parsed; `begin` stands behind them. Stops in front of a faulty line: `fault` then says why.
using LinesParser =
    std::function<size_t(const char*& begin, const char* end, size_t lines, Cell* out, LineFault& fault)>;

/// Makes a LinesParser of a function for one line: bool(const char*& at, Cell& cell, LineFault& fault), which
/// moves `at` behind the line's '\n' and sets every field of the cell.
template <class ParseLine>
LinesParser EachLine(ParseLine parseLine) {
    return [parseLine](const char*& begin, const char* end, size_t lines, Cell* out, LineFault& fault) {
        size_t done = 0;
        for (const char* at = begin; done < lines && at != end; ++done) {
            if (!parseLine(at, out[done], fault)) [[unlikely]]
                break;
            begin = at;
        }
        return done;
    };
}

/// The same for lines of a shape: those that look as most do are read many at a time, the others by
/// `parseLine`, which tells what is wrong with them.
template <class ParseLine>
LinesParser PlainOrEachLine(const LineShape& shape, ParseLine parseLine) {
    return
        [shape, parseLine](const char*& begin, const char* end, size_t lines, Cell* out, LineFault& fault) {
            size_t done = 0;
            while (done < lines && begin != end) {
                done += ParsePlainLines(shape, begin, end, lines - done, out + done);
                for (size_t i = 0; i < kLinesAtATime && done < lines && begin != end; ++i, ++done) {
                    if (!parseLine(begin, out[done], fault)) [[unlikely]]
                        return done;
                }
            }
            return done;
        };
}

/// Reads the next lines of `text` as cells, up to `wanted`, into `cells` from index `filled` on; the vector
/// grows with the lines that are there, never with `wanted`. The lines in memory are cut into pieces that are
/// parsed side by side by at most `threads` threads (0: as many as the machine has cores).
///
/// \return lines parsed. Fewer than wanted at the end of the text, or in front of a faulty line: the first
/// such line of the text, whatever the number of threads; `fault` is then set and `text` stands at the line.
size_t ReadCellLines(TextBuffer& text, int threads, uint64_t wanted, std::vector<Cell>& cells, size_t filled,
                     const LinesParser& parse, LineFault& fault);

/// How many threads "0: as many as the machine has cores" means.
int ThreadCount(int threads);

}  // namespace kxexchange
