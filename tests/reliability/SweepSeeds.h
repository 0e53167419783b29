// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace reliability {

using Bytes = std::vector<unsigned char>;

/// A small whole file.
struct Seed {
    std::string name;
    Bytes bytes;
    bool hashes = false;  ///< it carries integrity records
    /// What the file was before each of its edits: where an appended record is cut off, one of these is
    /// right.
    std::vector<Bytes> earlier = {};
};

/// Files of at most 16 KiB that together hold every kind of record in every version, every codec and every
/// component, most of them once without and once with integrity records. Names are letters and digits, so
/// that they can name tests.
const std::vector<Seed>& SweepSeeds();

/// One of them. \throws std::out_of_range  there is none of that name
const Seed& SeedNamed(const std::string& name);

}  // namespace reliability
