// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

/// Processor, cores, compiler, version, build type: what a figure means nothing without.
std::vector<std::pair<std::string, std::string>> DescribeMachine();
/// True when the standard library's or our own checks slow this build down.
bool IsDebugBuild();
/// Number of processes ready to run, averaged over a minute; below 0 when the system does not tell.
double LoadAverage();
