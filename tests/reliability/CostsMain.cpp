// SPDX-License-Identifier: MIT
// What saving and hostile input cost, as figures: nothing here is a test, for a busy machine must fail none.
//
//   kxio_costs make FILE COLUMNS ROWS [hashed]   a scan with seven components
//   kxio_costs recover FILE OUT         time and memory of a recovery
//   kxio_costs hostile                  the dearest of the cases of the byte sweep, and of changes of the
//                                       headers and tables of a file of some megabytes
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "../services/RecoveryScan.h"
#include "SweepSeeds.h"
#include "kxbase/UTF8.h"
#include "kxio/RecoverToFile.h"
#include "kxio/VerifyScan.h"
#include "support/ReadEverything.h"
#include "support/ScanFileBuilder.h"
#include "support/Soak.h"
#include "support/StoredFile.h"

namespace {

using reliability::Bytes;
using reliability::Seed;

/// Seconds of the processor, of all threads.
double Processor() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

/// The most memory that this process has had, in MiB; 0 where the system does not tell.
double MostMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
    }
    return 0;
}

int Make(const std::string& path, const std::string& columns, const std::string& rows, bool hashes) {
    recovery_test::SampleScan scan;
    scan.hashes = hashes;
    scan.columns = static_cast<uint32_t>(std::stoul(columns));
    scan.rows = static_cast<uint32_t>(std::stoul(rows));
    scan.patchWidth = scan.patchHeight = 64;
    const Bytes bytes = scan.Write();
    kxtest::StoreFile(kxbase::Decode_UTF8(path), bytes);
    std::cout << "made " << bytes.size() << " bytes\n";
    return 0;
}

int Recover(const std::string& path, const std::string& output) {
    const double memory = MostMemory();
    const double processor = Processor();
    const auto begin = std::chrono::steady_clock::now();
    const kxio::RecoveryReport report =
        kxio::RecoverToFile(kxbase::Decode_UTF8(path), kxbase::Decode_UTF8(output));
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const double used = Processor() - processor;
    const double megabytes = static_cast<double>(report.fileBytes) * 1e-6;
    std::printf("recovery: %.1f MB, %llu chunks, %.2f s, %.2f s of the processor, %.0f MB/s per core, ",
                megabytes, static_cast<unsigned long long>(report.chunksRecovered), elapsed, used,
                megabytes / used);
    std::printf("%.1f MiB of memory besides the %.1f of the program\n", MostMemory() - memory, memory);
    return 0;
}

/// The dearest case of one way to read.
struct Dearest {
    const char* what;
    std::function<void(const Bytes&)> run;
    double seconds = 0;
    std::string where = {};

    void Try(const Bytes& bytes, const std::string& place) {
        const double begin = Processor();
        try {
            run(bytes);
        } catch (const kxbase::KXException&) {
            // Refused.
        }
        const double used = Processor() - begin;
        if (used <= seconds) return;
        seconds = used;
        where = place;
    }
};

Dearest OpenAndReadAll() {
    return {"open and read all", [](const Bytes& bytes) {
                kxbase::InMemoryStream in(bytes);
                kxtest::ReadEverything(in);
            }};
}

Dearest Open() {
    return {"open", [](const Bytes& bytes) {
                kxbase::InMemoryStream in(bytes);
                const kxio::QSNScanReader reader(&in);
            }};
}

Dearest Verify() {
    return {"verify", [](const Bytes& bytes) {
                kxbase::InMemoryStream in(bytes);
                kxio::VerifyScan(in);
            }};
}

Dearest Recover() {
    return {"recover", [](const Bytes& bytes) {
                kxbase::InMemoryStream in(bytes), out;
                kxio::RecoverToStream(in, out);
            }};
}

void Tell(const std::vector<Dearest>& all, uint64_t cases) {
    for (const Dearest& one : all)
        std::printf("hostile: %s, %llu cases, at most %.2f ms: %s\n", one.what,
                    static_cast<unsigned long long>(cases), one.seconds * 1e3, one.where.c_str());
}

constexpr unsigned kChanges[] = {0x00U, 0xffU, 0x7fU, 0x80U};

void TryChange(std::vector<Dearest>& all, Bytes& bytes, size_t at, unsigned change, const std::string& name) {
    const unsigned char before = bytes[at];
    bytes[at] = static_cast<unsigned char>(change);
    for (Dearest& one : all)
        one.Try(bytes, name + " of " + std::to_string(bytes.size()) + " bytes, byte " + std::to_string(at) +
                           " = " + std::to_string(change));
    bytes[at] = before;
}

int Hostile() {
    std::vector<Dearest> all{OpenAndReadAll(), Verify(), Recover()};
    uint64_t cases = 0;
    for (Seed seed : reliability::SweepSeeds()) {
        const size_t step = kxtest::Trials<size_t>(67, 1);
        for (size_t at = 0; at < seed.bytes.size(); at += step) {
            for (const unsigned change : kChanges) {
                TryChange(all, seed.bytes, at, change, seed.name);
                ++cases;
            }
        }
    }
    Tell(all, cases);
    return 0;
}

/// What lies in front of the chunks and behind them, where every length and every position is, in a larger
/// file.
int HostileLarge() {
    recovery_test::SampleScan scan;
    scan.columns = 1200;
    scan.rows = 900;
    scan.patchWidth = scan.patchHeight = 64;
    Bytes bytes = scan.Write();
    std::vector<size_t> places;
    for (size_t at = 0; at < kxio::MainFileHeader::RecordSize; ++at)
        places.push_back(at);
    const size_t tail = static_cast<size_t>(kxtest::GetMainField(bytes, kxtest::MainField::ScanHeader));
    const size_t few = kxtest::Trials<size_t>(300, 3000);
    for (size_t i = 0; i < few; ++i)
        places.push_back(tail + (bytes.size() - tail) * i / few);
    // The first kilobytes of the tail hold the headers, the rest are tables and counts.
    for (size_t at = tail; at < std::min(tail + 700, bytes.size()); ++at)
        places.push_back(at);
    std::vector<Dearest> cheap{Open()}, dear{Verify(), Recover()};
    uint64_t cases = 0, dearCases = 0;
    for (const size_t at : places) {
        for (const unsigned change : kChanges) {
            TryChange(cheap, bytes, at, change, "large");
            if (cases++ % 97 != 0) continue;
            TryChange(dear, bytes, at, change, "large");
            ++dearCases;
        }
    }
    Tell(cheap, cases);
    Tell(dear, dearCases);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "make" && argc == 5) return Make(argv[2], argv[3], argv[4], false);
    if (what == "make" && argc == 6 && argv[5] == std::string("hashed"))
        return Make(argv[2], argv[3], argv[4], true);
    if (what == "recover" && argc == 4) return Recover(argv[2], argv[3]);
    if (what == "hostile" && argc == 2) return Hostile() + HostileLarge();
    std::fprintf(stderr, "usage: kxio_costs make FILE COLUMNS ROWS [hashed] | recover FILE OUT | hostile\n");
    return 2;
}
