// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace qsn {

/// Text for people: sections of "label  value" rows, all values in one column, and tables.
class TextLayout {
public:
    void Section(const std::string& title);
    void Row(const std::string& label, const std::string& value);
    /// A table below the present section: the first line is its head. Columns named in `rightAligned`
    /// (one flag per column) are set flush right.
    void Table(const std::vector<std::vector<std::string>>& lines, const std::vector<bool>& rightAligned);

    std::string ToString() const;

private:
    struct Line {
        enum class Kind { Title, LabelValue, Verbatim } kind;
        std::string first;
        std::string second;
    };
    std::vector<Line> m_lines;
};

/// Number of characters of a UTF-8 text.
size_t CharacterCount(const std::string& utf8);

}  // namespace qsn
