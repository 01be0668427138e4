// Text-form helpers: read a whole text as a value, write one, catch an expected message.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "IgpCommon/framework/Text.h"

namespace testsupport {

template <class T>
T parse(const std::string& text) {
    return Kest::strepToValue(text, static_cast<T*>(nullptr));
}

template <class T>
std::string text(const T& v) {
    std::ostringstream os;
    os << v;
    return os.str();
}

/// The message of the E that `f` throws; a test failure when it throws none.
template <class E, class F>
std::string messageOf(F&& f) {
    try {
        f();
    } catch (const E& e) {
        return e.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

}  // namespace testsupport
