// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kxexchange {

/// What went wrong in an E57 file and where; `offset` counts bytes of the file.
struct E57Fault {
    std::string file{};
    std::string record{};  ///< "header", "page 7", "scan 2", "points of scan 1"
    std::string field{};
    std::optional<uint64_t> offset{};
    std::string detail{};  ///< "found A, expected B"
};

/// \throws SourceFormatException "E57 file cannot be read"
[[noreturn]] void FailE57(const E57Fault& fault);

}  // namespace kxexchange
