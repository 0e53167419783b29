// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "kxexchange/GridLayout.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

/// Text with everything but [A-Za-z0-9._~-] as %XX of its bytes, so that it is one word of a message.
std::string PercentEncode(std::string_view text);
/// The way back; a % without two hexadecimal digits stands for itself.
std::string PercentDecode(std::string_view text);

/// The keepsake of a scan whose source has no UUID.
inline const std::pair<std::string, std::string> kUuidMade{"uuid", "made"};

/// Puts into the message what a description says and a .qsn file has no field for: name, text, sensor,
/// declared range of the intensities, the scan's original.
void StoreFacts(const ScanDescription& description, LayoutMessage& message);
/// The way back: takes these facts out of the message's keepsakes.
void TakeFacts(LayoutMessage& message, ScanDescription& description);

}  // namespace kxexchange
