// SPDX-License-Identifier: MIT
#include "SourceFacts.h"

#include <algorithm>

#include "TextFormat.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"

namespace kxexchange {

namespace {

constexpr std::string_view kIntensityRange = "intensity-range";
constexpr std::string_view kOriginal = "original";

struct TextFact {
    std::string_view key;
    std::string& (*text)(ScanDescription&);
};

constexpr TextFact kTexts[] = {
    {"name", [](ScanDescription& d) -> std::string& { return d.name; }},
    {"text", [](ScanDescription& d) -> std::string& { return d.text; }},
    {"vendor", [](ScanDescription& d) -> std::string& { return d.sensor.vendor; }},
    {"model", [](ScanDescription& d) -> std::string& { return d.sensor.model; }},
    {"serial", [](ScanDescription& d) -> std::string& { return d.sensor.serial; }},
    {"hardware", [](ScanDescription& d) -> std::string& { return d.sensor.hardwareVersion; }},
    {"software", [](ScanDescription& d) -> std::string& { return d.sensor.softwareVersion; }},
    {"firmware", [](ScanDescription& d) -> std::string& { return d.sensor.firmwareVersion; }},
};

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool TakeText(const std::string& key, const std::string& value, ScanDescription& description) {
    for (const TextFact& fact : kTexts) {
        if (fact.key != key) continue;
        fact.text(description) = PercentDecode(value);
        return true;
    }
    return false;
}

bool TakeIntensityRange(const std::string& value, FieldDescription& intensity) {
    const auto numbers = SplitNumbers(value);
    if (!numbers || numbers->size() != 2) return false;
    intensity.minimum = numbers->front();
    intensity.maximum = numbers->back();
    return true;
}

bool TakeOriginal(const std::string& value, ScanDescription& description) {
    try {
        description.original = kxbase::UUID(kxbase::Decode_UTF8(value));
        return true;
    } catch (const kxbase::KXBadInputException&) {
        return false;  // somebody else's keepsake
    }
}

}  // namespace

std::string PercentEncode(std::string_view text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    constexpr std::string_view kPlain = "._~-";
    std::string encoded;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           kPlain.find(c) != std::string_view::npos;
        if (plain) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return encoded;
}

std::string PercentDecode(std::string_view text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && text.size() - i > 2) {
            const int high = HexDigit(text[i + 1]), low = HexDigit(text[i + 2]);
            if (high >= 0 && low >= 0) {
                decoded += static_cast<char>(high << 4 | low);
                i += 2;
                continue;
            }
        }
        decoded += text[i];
    }
    return decoded;
}

void StoreFacts(const ScanDescription& description, LayoutMessage& message) {
    ScanDescription copy = description;
    for (const TextFact& fact : kTexts) {
        const std::string& text = fact.text(copy);
        if (!text.empty()) message.keepsakes.emplace_back(fact.key, PercentEncode(text));
    }
    const FieldDescription& intensity = description.intensity;
    if (intensity.present && intensity.minimum && intensity.maximum && !intensity.assumedRange) {
        const double range[] = {*intensity.minimum, *intensity.maximum};
        message.keepsakes.emplace_back(kIntensityRange, JoinNumbers(range));
    }
    if (!description.uuid || description.uuidMade) message.keepsakes.push_back(kUuidMade);
    if (description.original) {
        message.keepsakes.emplace_back(kOriginal, kxbase::Encode_UTF8(description.original->ToWString()));
    }
}

void TakeFacts(LayoutMessage& message, ScanDescription& description) {
    std::erase_if(message.keepsakes, [&](const auto& keepsake) {
        const auto& [key, value] = keepsake;
        if (key == kIntensityRange) return TakeIntensityRange(value, description.intensity);
        if (key == kOriginal) return TakeOriginal(value, description);
        return TakeText(key, value, description);
    });
}

}  // namespace kxexchange
