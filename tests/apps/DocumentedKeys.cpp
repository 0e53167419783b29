// SPDX-License-Identifier: MIT
#include "DocumentedKeys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

namespace qsn {

namespace {

using Json = nlohmann::json;

/// "grid.columns", "components[].codec": every key of the document. Arrays of plain values end the path.
void CollectKeys(const Json& json, const std::string& prefix, std::set<std::string>& keys) {
    for (const auto& [key, value] : json.items()) {
        const std::string name = prefix.empty() ? key : prefix + "." + key;
        if (value.is_object()) {
            CollectKeys(value, name, keys);
        } else if (value.is_array() && !value.empty() && value[0].is_object()) {
            for (const Json& element : value)
                CollectKeys(element, name + "[]", keys);
        } else {
            keys.insert(name);
        }
    }
}

/// From rows "| `key` | ..." of the section.
std::set<std::string> KeysOfTheGuide(const std::string& heading) {
    std::ifstream guide(KXIO_SOURCE_DIR "/docs/guide-qsn.md");
    const std::string text((std::istreambuf_iterator<char>(guide)), {});
    const size_t begin = text.find("\n" + heading + "\n");
    EXPECT_NE(begin, std::string::npos) << heading;
    if (begin == std::string::npos) return {};
    const std::string section = text.substr(begin, text.find("\n##", begin + heading.size()) - begin);
    const std::regex row("\\n\\| `([^`]+)` \\|");
    std::set<std::string> keys;
    for (std::sregex_iterator it(section.begin(), section.end(), row), end; it != end; ++it)
        keys.insert((*it)[1]);
    return keys;
}

}  // namespace

void ExpectDocumentedKeys(const std::vector<Json>& documents, const std::string& heading) {
    std::set<std::string> present;
    for (const Json& document : documents)
        CollectKeys(document, "", present);
    const std::set<std::string> documented = KeysOfTheGuide(heading);
    for (const std::string& key : present)
        EXPECT_EQ(documented.count(key), 1U) << key << " is not documented";
    for (const std::string& key : documented) {
        // An object that is null has none of its keys; the guide lists both.
        const size_t dot = key.rfind('.');
        const bool insideNull = dot != std::string::npos && present.count(key.substr(0, dot)) != 0;
        const bool isObject =
            std::any_of(documented.begin(), documented.end(),
                        [&](const std::string& other) { return other.starts_with(key + "."); });
        EXPECT_TRUE(present.count(key) == 1 || insideNull || isObject)
            << key << " is documented but not there";
    }
}

}  // namespace qsn
