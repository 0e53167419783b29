// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "kxbase/Exceptions.h"

namespace kxtest {

/// The text of the exception that `call` throws; its type must be `Exception` itself.
template <class Exception, class Call>
std::string ThrownBy(const Call& call) {
    try {
        call();
    } catch (const kxbase::KXException& e) {
        EXPECT_EQ(typeid(e), typeid(Exception)) << e.what();
        return e.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/// What the exception that `call` throws tells beside its text; its type must be `Exception` itself, its text
/// `text`.
template <class Exception, class Call>
kxbase::ErrorContext ContextOf(const char* text, const Call& call) {
    try {
        call();
    } catch (const kxbase::KXException& e) {
        EXPECT_EQ(typeid(e), typeid(Exception)) << e.what();
        EXPECT_STREQ(e.what(), text);
        return e.Context();
    }
    ADD_FAILURE() << "nothing was thrown where expected: " << text;
    return {};
}

}  // namespace kxtest
