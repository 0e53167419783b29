// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kxio {

class QSNScanReader;

/// A property of a scan as text: two scans whose texts are equal have the same property, to the last bit.
struct PropertyText {
    std::string name;
    std::string text;
    bool storage = false;  ///< how the scan is stored, not what it holds
};

/// All properties of an open scan, always the same names in the same order.
std::vector<PropertyText> PropertyTexts(const QSNScanReader& reader);

}  // namespace kxio
