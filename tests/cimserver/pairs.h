// Files of this folder that pair what is read with what comes of it: lines, then "-> " and the answer. Comments begin
// with "# " at the beginning of a pair.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>

// Every answer must have that part.
inline void expect_pairs(const std::string& file, const std::function<std::string(const std::string& text)>& answer) {
    std::ifstream lines(OXR_SOURCE_DIR "/tests/cimserver/" + file);
    int pairs = 0;
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("-> ")) {
            const std::string answered = answer(text);
            EXPECT_NE(answered.find(line.substr(3)), std::string::npos) << text << "\n" << line << "\n" << answered;
            text.clear();
            ++pairs;
        } else if (!text.empty() || (!line.empty() && !line.starts_with("# "))) {
            text += (text.empty() ? "" : "\n") + line;
        }
    }
    EXPECT_GT(pairs, 20) << file;
}
