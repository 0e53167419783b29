// SPDX-License-Identifier: MIT
// PTX text parsed by several threads: nothing may depend on their number.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "PtxSource.h"
#include "TestTools.h"
#include "kxbase/InMemoryStream.h"

namespace kxexchange::testing {

namespace {

std::unique_ptr<PtxSource> Threaded(const std::string& bytes, int threads) {
    SourceOptions options;
    options.threads = threads;
    return std::make_unique<PtxSource>(std::make_unique<kxbase::InMemoryStream>(bytes.data(), bytes.size()),
                                       "test.ptx", options);
}

// Numbers whose nearest double takes some care, among plain ones; lines of very different lengths.
std::string ManyCells(uint64_t columns, uint64_t rows) {
    std::string text = PtxHeader(columns, rows);
    std::mt19937_64 random(20);
    char line[400];
    for (uint64_t i = 0; i < columns * rows; ++i) {
        const double x = std::ldexp(static_cast<double>(random() >> 11), -50);
        const double y = static_cast<double>(random() % 2000001) / 1e5 - 10;
        if (i % 7 == 3) {
            text += "0 0 0 0.5\n";
        } else if (i % 5 == 1) {
            std::snprintf(line, sizeof line, "%.17g %.25f %.12e 0.25\r\n", x, y, y * 1e-7);
            text += line;
        } else {
            std::snprintf(line, sizeof line, "%.6f\t%.5f  %.4f %.6f\n", x, y, -x, 0.5);
            text += line;
        }
    }
    return text;
}

struct Failure {
    std::string record, field, detail;
    uint64_t offset = 0;
    bool operator==(const Failure&) const = default;
};

Failure FailureOf(const std::string& bytes, int threads) {
    try {
        const auto source = Threaded(bytes, threads);
        ReadScan(*source);
    } catch (const SourceFormatException& e) {
        return {e.Context().record, e.Context().field, e.Context().detail, e.Context().offset.value_or(0)};
    }
    ADD_FAILURE() << "nothing was refused";
    return {};
}

TEST(PtxThreads, CellsAreTheSameWhateverTheNumberOfThreads) {
    const std::string text = ManyCells(91, 700);
    const Scan expected = ReadScan(*Threaded(text, 1));
    ASSERT_EQ(expected.cells.size(), size_t{91 * 700});
    for (const std::string& bytes : {text, Gzip(text)}) {
        for (const int threads : {2, 3, 8, 0}) {
            const auto source = Threaded(bytes, threads);
            for (int pass = 0; pass < 2; ++pass) {
                const Scan scan = ReadScan(*source);
                ASSERT_EQ(scan.cells.size(), expected.cells.size());
                for (size_t i = 0; i < scan.cells.size(); ++i) {
                    const Cell& a = scan.cells[i];
                    const Cell& b = expected.cells[i];
                    ASSERT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z && a.intensity == b.intensity &&
                                a.valid == b.valid)
                        << "cell " << i << ", " << threads << " threads";
                }
            }
            EXPECT_GE(source->BytesRead(), 2 * bytes.size());
        }
    }
}

TEST(PtxThreads, SeveralScansAreFoundAndReadByManyThreads) {
    std::string text = ManyCells(40, 500);
    text += PtxHeader(1, 2) + "1 2 3 0.5\n4 5 6 0.25\n";
    for (const std::string& bytes : {text, Gzip(text)}) {
        const auto source = Threaded(bytes, 4);
        EXPECT_EQ(source->ScanCount(), 2u);
        const Scan second = ReadScan(*source, 1);
        ASSERT_EQ(second.cells.size(), 2u);
        EXPECT_EQ(second.cells[1].y, 5.0);
        EXPECT_EQ(ReadScan(*source, 0).cells.size(), size_t{40 * 500});
        EXPECT_EQ(ReadScan(*source, 1).cells[0].x, 1.0);
    }
}

TEST(PtxThreads, TheFirstFaultOfTheTextIsNamedByLineAndByte) {
    const std::string text = ManyCells(60, 700);
    std::vector<size_t> starts;
    for (size_t at = 0; at != std::string::npos && at + 1 < text.size(); at = text.find('\n', at + 1))
        starts.push_back(at == 0 ? 0 : at + 1);
    for (const size_t line : {size_t{10}, size_t{500}, size_t{9000}, size_t{20000}, starts.size() - 1}) {
        std::string broken = text;
        broken[starts[line]] = 'q';
        // A second fault behind the first, in another piece.
        broken[starts[std::min(line + 12000, starts.size() - 1)] + 1] = 'z';
        const Failure expected = FailureOf(broken, 1);
        EXPECT_EQ(expected.record, "line " + std::to_string(line + 1));
        EXPECT_EQ(expected.offset, starts[line]);
        for (const int threads : {2, 5}) {
            EXPECT_EQ(FailureOf(broken, threads), expected) << "line " << line;
            EXPECT_EQ(FailureOf(Gzip(broken), threads), expected) << "line " << line;
        }
    }
}

TEST(PtxThreads, ACutTextIsNamedByTheCellThatIsMissing) {
    const std::string text = ManyCells(60, 700);
    for (const double share : {0.3, 0.61, 0.97}) {
        const std::string cut = text.substr(0, static_cast<size_t>(share * static_cast<double>(text.size())));
        const Failure expected = FailureOf(cut, 1);
        EXPECT_EQ(FailureOf(cut, 3), expected);
        EXPECT_EQ(FailureOf(Gzip(cut), 3), expected);
    }
}

TEST(PtxThreads, DamagedGzipDataIsRefusedFromTheUnpackingThread) {
    std::string packed = Gzip(ManyCells(60, 700));
    packed.resize(packed.size() / 2);
    const Failure failure = FailureOf(packed, 2);
    EXPECT_EQ(failure.record, "gzip data");
    EXPECT_EQ(failure, FailureOf(packed, 1));
}

TEST(PtxThreads, ASourceMayBeLeftInTheMiddle) {
    const std::string packed = Gzip(ManyCells(300, 700));
    const auto source = Threaded(packed, 2);
    std::vector<Cell> cells;
    source->OpenScan(0);
    source->ReadColumns(1, cells);
    EXPECT_EQ(cells.size(), 700u);
}

}  // namespace

}  // namespace kxexchange::testing
