// SPDX-License-Identifier: MIT
#include "reader/ScanningMode.h"

#include <array>

namespace kxio {

namespace {

struct StepRange {
    float above;  // exclusive
    float upTo;   // inclusive
    const wchar_t* mode;
};

float Midpoint(float lower, float upper) {
    return (upper - lower) * 0.5F + lower;
}

// The bounds lie half way between neighbouring nominal steps. Between "Level 1" and "Preview" a gap is left
// on purpose: half way to 0.001131, and from there on.
std::array<StepRange, 5> MakeRanges() {
    const float level3 = 0.00019F;
    const float extended = 0.000252F;
    const float level2 = 0.00038F;
    const float level1 = 0.000754F;
    const float gapEnd = 0.001131F;
    const float preview = 0.001508F;
    return {{{Midpoint(level3 * 0.5F, level3), Midpoint(level3, extended), L"Level 3"},
             {Midpoint(level3, extended), Midpoint(extended, level2), L"Extended"},
             {Midpoint(extended, level2), Midpoint(level2, level1), L"Level 2"},
             {Midpoint(level2, level1), Midpoint(level1, gapEnd), L"Level 1"},
             {gapEnd, preview * 1.25F, L"Preview"}}};
}

}  // namespace

bool IsRmModel(const std::wstring& scannerModel) {
    // Not a regular expression: the standard engine recurses once per character of a text that comes from
    // the file.
    const std::wstring prefix = L"Ostrak RM";
    return scannerModel.compare(0, prefix.size(), prefix) == 0 &&
           scannerModel.find_first_of(L"\n\r\u2028\u2029", prefix.size()) == std::wstring::npos;
}

std::wstring ScanningModeOfStep(float rowAngularStep) {
    static const std::array<StepRange, 5> ranges = MakeRanges();
    for (const StepRange& range : ranges) {
        if (rowAngularStep > range.above && rowAngularStep <= range.upTo) return range.mode;
    }
    return {};
}

}  // namespace kxio
