#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

// Warnings are off, because a header that is compiled by itself has "#pragma once" in the main file.
TEST(Headers, EachCompilesAloneAsFirstInclude) {
    const std::filesystem::path source = OXR_SOURCE_DIR;
    const char* const chosen = std::getenv("CXX");
    std::string command = std::string(chosen != nullptr ? chosen : "c++") + " -std=c++20 -fsyntax-only -w -I" +
                          (source / "src").string() + " -I" + (source / "platform").string() + " -I" +
                          (source / "include").string() + " -x c++";
    int headers = 0;
    for (const char* const folder : {"src", "platform", "include"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(source / folder)) {
            if (entry.path().extension() == ".h") {
                command += ' ' + entry.path().string();
                ++headers;
            }
        }
    }
    EXPECT_GT(headers, 0);
    EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
