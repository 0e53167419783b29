// SPDX-License-Identifier: MIT
#include "TextLayout.h"

#include <algorithm>

namespace qsn {

namespace {

const std::string kIndent = "  ";
const std::string kGap = "  ";

std::string Padding(size_t width, const std::string& text) {
    const size_t count = CharacterCount(text);
    return std::string(width > count ? width - count : 0, ' ');
}

}  // namespace

size_t CharacterCount(const std::string& utf8) {
    // Continuation bytes are 10xxxxxx.
    return static_cast<size_t>(std::count_if(
        utf8.begin(), utf8.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void TextLayout::Section(const std::string& title) {
    m_lines.push_back({Line::Kind::Title, title, {}});
}

void TextLayout::Row(const std::string& label, const std::string& value) {
    m_lines.push_back({Line::Kind::LabelValue, label, value});
}

void TextLayout::Table(const std::vector<std::vector<std::string>>& lines,
                       const std::vector<bool>& rightAligned) {
    std::vector<size_t> widths(rightAligned.size(), 0);
    for (const auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], CharacterCount(line[i]));
    }
    for (const auto& line : lines) {
        std::string text;
        for (size_t i = 0; i < line.size(); ++i) {
            if (i > 0) text += kGap;
            const std::string padding = Padding(widths[i], line[i]);
            text += rightAligned[i] ? padding + line[i] : line[i] + padding;
        }
        text.erase(text.find_last_not_of(' ') + 1);
        m_lines.push_back({Line::Kind::Verbatim, text, {}});
    }
}

std::string TextLayout::ToString() const {
    size_t labelWidth = 0;
    for (const Line& line : m_lines) {
        if (line.kind == Line::Kind::LabelValue)
            labelWidth = std::max(labelWidth, CharacterCount(line.first));
    }
    std::string text;
    for (const Line& line : m_lines) {
        switch (line.kind) {
            case Line::Kind::Title:
                text += (text.empty() ? "" : "\n") + line.first + "\n";
                break;
            case Line::Kind::LabelValue:
                text += kIndent + line.first;
                // Continuation rows have an empty label; empty values leave no blanks at the line's end.
                if (!line.second.empty()) text += Padding(labelWidth, line.first) + kGap + line.second;
                text += "\n";
                break;
            case Line::Kind::Verbatim:
                text += kIndent + line.first + "\n";
                break;
        }
    }
    return text;
}

}  // namespace qsn
