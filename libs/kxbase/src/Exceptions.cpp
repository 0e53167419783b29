// SPDX-License-Identifier: MIT
#include "kxbase/Exceptions.h"

namespace kxbase {

bool ErrorContext::Empty() const noexcept {
    return file.empty() && record.empty() && field.empty() && !offset && detail.empty();
}

std::string ErrorContext::ToString() const {
    std::string place = record;
    if (offset) {
        if (!place.empty()) place += ' ';
        place += "at byte " + std::to_string(*offset);
    }
    if (!field.empty()) {
        if (!place.empty()) place += ", ";
        place += "field " + field;
    }
    std::string line;
    for (const std::string* piece : {&file, static_cast<const std::string*>(&place), &detail}) {
        if (piece->empty()) continue;
        if (!line.empty()) line += ": ";
        line += *piece;
    }
    return line;
}

struct KXException::State {
    std::string text;
    ErrorContext context;
};

KXException::KXException(const std::string& text) : KXException(text, ErrorContext{}) {}
KXException::KXException(const std::string& text, ErrorContext context)
    : m_state(std::make_shared<State>(State{text, std::move(context)})) {}
KXException::KXException(const KXException&) noexcept = default;
KXException& KXException::operator=(const KXException&) noexcept = default;
KXException::~KXException() = default;

const char* KXException::what() const noexcept {
    return m_state->text.c_str();
}
const ErrorContext& KXException::Context() const noexcept {
    return m_state->context;
}

void KXException::AddContext(const ErrorContext& more) {
    ErrorContext& mine = m_state->context;
    if (mine.file.empty()) mine.file = more.file;
    // Record, field and offset describe one place: taking them from different levels would mix places.
    if (mine.record.empty() && mine.field.empty() && !mine.offset) {
        mine.record = more.record;
        mine.field = more.field;
        mine.offset = more.offset;
    } else if (mine.record.empty()) {
        mine.record = more.record;
    }
    if (mine.detail.empty()) mine.detail = more.detail;
}

std::string KXException::Describe() const {
    const std::string where = m_state->context.ToString();
    return where.empty() ? m_state->text : m_state->text + " (" + where + ")";
}

// Out of line, so that each type's run-time type information has one home.
KXHeaderReadingException::~KXHeaderReadingException() = default;
KXHeaderOperationException::~KXHeaderOperationException() = default;
KXFileNotOpenException::~KXFileNotOpenException() = default;
KXUnkownCodecException::~KXUnkownCodecException() = default;
KXUnkownComponentException::~KXUnkownComponentException() = default;
KXUnreadablePatchException::~KXUnreadablePatchException() = default;
KXIncompleteFileException::~KXIncompleteFileException() = default;
KXWrongDataSizeofException::~KXWrongDataSizeofException() = default;
KXComponentNotInFileException::~KXComponentNotInFileException() = default;
KXBadInputException::~KXBadInputException() = default;
KXWritingException::~KXWritingException() = default;
KXIndexOutOfBoundsException::~KXIndexOutOfBoundsException() = default;

}  // namespace kxbase
