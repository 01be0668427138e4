// Small helpers the text-form tests share: read a whole text as a value,
// write a value, and catch the message of an expected exception.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "IgpCommon/framework/Text.h"

namespace testsupport {

/// The whole of `text` read as a T (Kest::strepToValue).
template <class T>
T parse(const std::string& text) {
    return Kest::strepToValue(text, static_cast<T*>(nullptr));
}

/// What `operator<<` writes for `v`.
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
