// SPDX-License-Identifier: MIT
#include "CellLines.h"

#include <omp.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "LineCount.h"

namespace kxexchange {

namespace {

// Below this a piece is not worth a thread.
constexpr size_t kLeastPieceBytes = size_t{1} << 15;
// How far the cells grow ahead of the lines that fill them, when the lines are not counted first.
constexpr size_t kGrowCells = 4096;

struct Piece {
    const char* begin = nullptr;
    const char* end = nullptr;
    size_t lines = 0;
    size_t parsed = 0;
    LineFault fault;
    std::exception_ptr error;
};

const char* BehindLine(const char* at, const char* end) {
    const void* found = std::memchr(at, '\n', static_cast<size_t>(end - at));
    return found ? static_cast<const char*>(found) + 1 : end;
}

std::vector<Piece> Cut(const char* begin, const char* end, size_t pieces) {
    std::vector<Piece> result;
    const auto bytes = static_cast<size_t>(end - begin);
    const char* at = begin;
    for (size_t i = 1; i <= pieces && at != end; ++i) {
        const char* const aim = begin + bytes / pieces * i;
        const char* const stop = i == pieces || aim >= end ? end : BehindLine(std::max(at, aim), end);
        Piece piece;
        piece.begin = at;
        piece.end = stop;
        result.push_back(std::move(piece));
        at = stop;
    }
    return result;
}

template <class Work>
void ForEachPiece(WorkerTeam& team, std::vector<Piece>& pieces, const Work& work) {
    team.Run(pieces.size(), pieces.size(), [&](size_t i) {
        try {
            work(pieces[i]);
        } catch (...) {
            pieces[i].error = std::current_exception();
        }
    });
    for (const Piece& piece : pieces) {
        if (piece.error) std::rethrow_exception(piece.error);
    }
}

// The lines in memory at once, in pieces.
size_t ReadPieces(TextBuffer& text, size_t count, uint64_t wanted, std::vector<Cell>& cells, size_t filled,
                  const LinesParser& parse, LineFault& fault) {
    std::vector<Piece> pieces = Cut(text.At(), text.LinesEnd(), count);
    ForEachPiece(text.Team(), pieces,
                 [](Piece& piece) { piece.lines = CountLineEnds(piece.begin, piece.end); });
    size_t lines = 0;
    std::vector<size_t> first;
    for (Piece& piece : pieces) {
        piece.lines = static_cast<size_t>(std::min<uint64_t>(piece.lines, wanted - lines));
        first.push_back(filled + lines);
        lines += piece.lines;
    }
    if (cells.size() < filled + lines) cells.resize(filled + lines);
    ForEachPiece(text.Team(), pieces, [&](Piece& piece) {
        Cell* const out = cells.data() + first[static_cast<size_t>(&piece - pieces.data())];
        piece.parsed = parse(piece.begin, piece.end, piece.lines, out, piece.fault);
    });
    size_t parsed = 0;
    for (Piece& piece : pieces) {
        if (piece.lines == 0) break;
        parsed += piece.parsed;
        text.Advance(piece.begin, piece.parsed);
        if (piece.fault.at) {
            fault = std::move(piece.fault);
            break;
        }
    }
    return parsed;
}

}  // namespace

int ThreadCount(int threads) {
    return threads > 0 ? threads : std::max(1, omp_get_num_procs());
}

size_t ReadCellLines(TextBuffer& text, int threads, uint64_t wanted, std::vector<Cell>& cells, size_t filled,
                     const LinesParser& parse, LineFault& fault) {
    const auto most = static_cast<size_t>(ThreadCount(threads));
    size_t done = 0;
    while (done < wanted && text.HasLine()) {
        const auto bytes = static_cast<size_t>(text.LinesEnd() - text.At());
        const size_t pieces = std::min(most, bytes / kLeastPieceBytes);
        if (pieces > 1) {
            done += ReadPieces(text, pieces, wanted - done, cells, filled + done, parse, fault);
        } else {
            if (cells.size() == filled + done) {
                const uint64_t room = std::max<uint64_t>(2 * cells.size(), kGrowCells);
                cells.resize(static_cast<size_t>(std::min<uint64_t>(filled + wanted, room)));
            }
            const char* at = text.At();
            const auto room =
                static_cast<size_t>(std::min<uint64_t>(wanted - done, cells.size() - (filled + done)));
            const size_t lines = parse(at, text.LinesEnd(), room, cells.data() + filled + done, fault);
            text.Advance(at, lines);
            done += lines;
        }
        if (fault.at) break;
    }
    return done;
}

}  // namespace kxexchange
