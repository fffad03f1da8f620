// What the service can log and which codes it has, read out of its source.
#pragma once

#include <map>
#include <string>
#include <vector>

struct SourceMessage {
    std::string level;
    std::string format;
    std::string place;  // "OstrelProvider/log.cpp:12"
};

// The messages of every log call in src/: literals joined, escapes undone. A call that prints a text of the source
// as its "%s" counts with that text.
std::vector<SourceMessage> source_messages();

// The enumerators NAME = NUMBER of a header in src/ whose names begin with `prefix`, of the enumeration that begins
// with `head`.
std::map<int, std::string> source_codes(const std::string& header, const std::string& head, const std::string& prefix);

// The return texts of a function's switch, by the enumerators of its cases.
std::map<std::string, std::string> source_case_texts(const std::string& file);
