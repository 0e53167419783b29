// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Picture.h"

namespace qsn {

/// Reads a PNG with the PNG library itself; an empty picture, and a failed expectation, when it is none.
Picture ReadPng(const std::string& path);

}  // namespace qsn
