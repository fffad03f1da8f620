#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// Warnings are off, because a header that is compiled by itself has "#pragma once" in the main file.
TEST(Headers, EachCompilesAloneAsFirstInclude) {
    const char* const chosen = std::getenv("CXX");
    const std::string compiler = chosen != nullptr ? chosen : "c++";
    EXPECT_EQ(std::system(("cd " OXR_SOURCE_DIR " && find src platform include -name '*.h' | xargs " + compiler +
                           " -std=c++20 -fsyntax-only -w -Isrc -Iplatform -Iinclude -x c++")
                              .c_str()),
              0);
}
