// SPDX-License-Identifier: MIT
#include "Machine.h"

#include <cstdlib>
#include <fstream>
#include <thread>

namespace {

std::string Processor() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);) {
        const size_t colon = line.find(": ");
        if (line.rfind("model name", 0) == 0 && colon != std::string::npos) return line.substr(colon + 2);
    }
    return "unknown";
}

std::string Compiler() {
#if defined(__clang__)
    return "clang " __clang_version__;
#elif defined(__GNUC__)
    return "g++ " __VERSION__;
#else
    return "unknown";
#endif
}

}  // namespace

std::vector<std::pair<std::string, std::string>> DescribeMachine() {
    return {{"processor", Processor()},
            {"cores", std::to_string(std::thread::hardware_concurrency())},
            {"load average", std::to_string(LoadAverage())},
            {"compiler", Compiler()},
            {"flags", KXIO_CXX_FLAGS},
            {"version", KXIO_VERSION},
            {"build type", KXIO_BUILD_TYPE}};
}

bool IsDebugBuild() {
#if defined(NDEBUG) && !defined(_GLIBCXX_ASSERTIONS)
    return false;
#else
    return true;
#endif
}

double LoadAverage() {
    double minute = -1;
    if (std::ifstream load("/proc/loadavg"); load) load >> minute;
    return minute;
}
