// SPDX-License-Identifier: MIT
// Benchmarks of the library; bench/command does the same for the whole command.
//
//   kxio_bench [--benchmark_filter=REGEX] [--benchmark_repetitions=N] ...
//
// KXIO_BENCH_PTX names another scan than the tree's sample. Figures carry bytes per second of decoded
// values (import: of values written), so that lines compare.
#include <benchmark/benchmark.h>

#include <exception>
#include <iostream>

#include "BenchScan.h"
#include "Machine.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    if (IsDebugBuild()) {
        std::cerr << "*** This is a DEBUG build: its figures mean nothing. Use the preset release. ***\n";
    }
    if (LoadAverage() > 0.5) {
        std::cerr << "*** The machine is busy (load average " << LoadAverage()
                  << "): figures will be off. ***\n";
    }
    try {
        const BenchScan& scan = BenchScan::Get();
        for (const auto& [name, value] : DescribeMachine())
            benchmark::AddCustomContext(name, value);
        benchmark::AddCustomContext("input", scan.Ptx().filename().string());
        benchmark::AddCustomContext("cells", std::to_string(scan.Cells()));
        benchmark::AddCustomContext("patches", std::to_string(scan.Patches()));
        benchmark::AddCustomContext("components", std::to_string(scan.Components().size()));
        benchmark::AddCustomContext("bytes of values in the grid", std::to_string(scan.ValueBytes()));
        benchmark::AddCustomContext("bytes unpacked from all chunks", std::to_string(scan.UnpackedBytes()));
        benchmark::AddCustomContext("bytes of all chunks", std::to_string(scan.StreamBytes()));
        RegisterCodecScenarios();
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
