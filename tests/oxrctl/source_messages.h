// What the service can log, read out of its source.
#pragma once

#include <set>
#include <string>
#include <utility>

// Level and format of every log call in src/: literals joined, escapes undone. A call that prints a text of the source
// as its "%s" counts with that text.
std::set<std::pair<std::string, std::string>> source_messages();

std::string content_of(const std::string& path);  // below the source's folder, unless it begins with "/"
