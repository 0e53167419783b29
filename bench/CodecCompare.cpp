// SPDX-License-Identifier: MIT
// What each codec makes of a scan: every chunk of every component is packed and unpacked by all of them, in
// rounds that take turns, so that what disturbs the machine disturbs all.
//
//   kxio_codec_compare SCAN [--json] [--rounds=N] [--threads=N] [--only=TEXT]
//
// --only keeps the memory copy and the codecs whose names hold the text.
// SCAN is a .qsn file, any format that imports, or synthetic[:COLUMNSxROWS]. Sizes are those of whole chunks.
// Speeds are medians of the rounds, of values that lie in memory and go to memory: of one thread by its
// processor time, of several by the clock. The last column, `patch_us` in JSON: one thread, one patch
// unpacked.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CompareScan.h"
#include "CompareWays.h"
#include "Machine.h"

namespace {

using Bytes = CompareWay::Bytes;

struct Figures {
    uint64_t bytes = 0;
    std::vector<double> pack, unpack;  // seconds
};

struct Settings {
    bool json = false;
    int rounds = 5;
    unsigned threads = 1;
    std::string only;
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Does `work` for each index, and tells the time. What others do on the machine takes the clock's time, but
// little of a thread's own.
double SecondsFor(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work) {
    const clockid_t clock = threads == 1 ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC;
    const double start = Now(clock);
    if (threads == 1) {
        for (std::size_t i = 0; i < count; ++i)
            work(i);
    } else {
        std::atomic<std::size_t> next{0};
        std::vector<std::thread> workers;
        for (unsigned t = 0; t < threads; ++t) {
            workers.emplace_back([&] {
                for (std::size_t i = next++; i < count; i = next++)
                    work(i);
            });
        }
        for (std::thread& worker : workers)
            worker.join();
    }
    return Now(clock) - start;
}

std::vector<Figures> Measure(const std::vector<CompareWay>& ways, const CompareComponent& component,
                             const Settings& settings) {
    const auto& patches = component.patches;
    std::vector<Figures> all(ways.size());
    std::vector<Bytes> packed(patches.size());
    std::vector<std::size_t> starts(patches.size() + 1);
    for (std::size_t i = 0; i < patches.size(); ++i)
        starts[i + 1] = starts[i] + patches[i].values.size();
    Bytes out(starts.back());
    for (int round = 0; round < settings.rounds; ++round) {
        for (std::size_t w = 0; w < ways.size(); ++w) {
            std::atomic<bool> good{true};
            all[w].pack.push_back(SecondsFor(patches.size(), settings.threads,
                                             [&](std::size_t i) { ways[w].pack(patches[i], packed[i]); }));
            all[w].unpack.push_back(SecondsFor(patches.size(), settings.threads, [&](std::size_t i) {
                if (!ways[w].unpack(patches[i], packed[i], out.data() + starts[i])) good = false;
            }));
            if (!good) throw std::runtime_error(ways[w].name + " does not unpack its own");
            if (round > 0) continue;
            for (std::size_t i = 0; i < patches.size(); ++i) {
                if (std::memcmp(out.data() + starts[i], patches[i].values.data(), patches[i].values.size()) !=
                    0)
                    throw std::runtime_error(ways[w].name + " changes values");
                all[w].bytes += packed[i].size();
            }
        }
    }
    return all;
}

void Print(const Settings& settings, const CompareComponent& component, const std::string& codec,
           const Figures& figures, double copySeconds, uint64_t returns) {
    const auto cells = static_cast<double>(component.cells);
    const double pack = cells / Median(figures.pack), unpack = cells / Median(figures.unpack);
    const auto bytes = static_cast<unsigned long long>(figures.bytes);
    const double patchMicroseconds =
        1e6 * Median(figures.unpack) * settings.threads / static_cast<double>(component.patches.size());
    if (settings.json) {
        std::printf(
            "{\"codec\": \"%s\", \"component\": \"%s\", \"cells\": %llu, \"returns\": %llu, \"bytes\": %llu, "
            "\"encode_cells_per_s\": %.0f, \"decode_cells_per_s\": %.0f, \"threads\": %u, "
            "\"patch_us\": %.1f}\n",
            codec.c_str(), component.name.c_str(), static_cast<unsigned long long>(component.cells),
            static_cast<unsigned long long>(returns), bytes, pack, unpack, settings.threads,
            patchMicroseconds);
    } else {
        std::printf("%-18s %-22s %11llu %9.2f %9.1f %9.1f %8.2f %8.1f\n", component.name.c_str(),
                    codec.c_str(), bytes,
                    8.0 * static_cast<double>(bytes) / static_cast<double>(std::max<uint64_t>(1, returns)),
                    pack / 1e6, unpack / 1e6, copySeconds / Median(figures.unpack), patchMicroseconds);
    }
    std::fflush(stdout);
}

void Compare(const CompareScan& scan, const Settings& settings) {
    std::vector<CompareWay> all;
    AddPlainWays(all);
    AddPeerWays(all);
    AddPointWays(all);
    AddOwnWays(all);
    if (!settings.json)
        std::printf("%-18s %-22s %11s %9s %9s %9s %8s %8s\n", "component", "codec", "bytes", "bits/ret",
                    "enc Mc/s", "dec Mc/s", "x memcpy", "us/patch");
    for (const CompareComponent& component : scan.components) {
        if (component.patches.empty()) continue;
        std::vector<CompareWay> ways;
        for (const CompareWay& way : all) {
            const bool wanted = ways.empty() || way.name.find(settings.only) != std::string::npos;
            if (wanted && (!way.takes || way.takes(component.patches[0].elementBytes))) ways.push_back(way);
        }
        const std::vector<Figures> figures = Measure(ways, component, settings);
        for (std::size_t w = 0; w < ways.size(); ++w)
            Print(settings, component, ways[w].name, figures[w], Median(figures[0].unpack), scan.returns);
    }
}

CompareScan LoadScan(const std::string& text) {
    unsigned columns = 4000, rows = 2000;
    if (text == "synthetic") return MakeSyntheticScan(columns, rows);
    if (std::sscanf(text.c_str(), "synthetic:%ux%u", &columns, &rows) == 2 && columns > 0 && rows > 0 &&
        columns <= 100000 && rows <= 100000)
        return MakeSyntheticScan(columns, rows);
    return LoadCompareScan(text);
}

}  // namespace

int main(int argc, char** argv) {
    std::string scan;
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--json") {
            settings.json = true;
        } else if (argument.rfind("--rounds=", 0) == 0) {
            settings.rounds = std::max(1, std::atoi(argument.c_str() + 9));
        } else if (argument.rfind("--threads=", 0) == 0) {
            settings.threads = static_cast<unsigned>(std::clamp(std::atoi(argument.c_str() + 10), 1, 64));
        } else if (argument.rfind("--only=", 0) == 0) {
            settings.only = argument.substr(7);
        } else {
            scan = argument;
        }
    }
    if (scan.empty()) {
        std::cerr << "usage: kxio_codec_compare SCAN|synthetic[:COLUMNSxROWS] [--json] [--rounds=N] "
                     "[--threads=N] [--only=TEXT]\n";
        return 2;
    }
    for (const auto& [what, value] : DescribeMachine())
        std::cerr << what << ": " << value << '\n';
    if (IsDebugBuild()) std::cerr << "*** This is a DEBUG build: its speeds mean nothing. ***\n";
    std::cerr << "load average " << LoadAverage() << '\n';
    try {
        CompareScan loaded = LoadScan(scan);
        AddPoints(loaded);
        Compare(loaded, settings);
    } catch (const std::exception& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
