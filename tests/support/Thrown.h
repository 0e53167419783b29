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

}  // namespace kxtest
