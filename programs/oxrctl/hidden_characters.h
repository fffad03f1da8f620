// Characters of a text file that an editor doesn't show.
#pragma once

#include <string>
#include <vector>

#include "oxrctl/config_report.h"

namespace oxrctl {

// Those that are no plain blank, each kind once a line. In comment lines only those that are in every line or in front
// of the file.
std::vector<ConfigReport::HiddenCharacter> hidden_characters(const std::vector<std::string>& lines);

// "Line 3", "Lines 1 to 57, 60 and more".
std::string line_numbers(const std::vector<int>& lines);

}  // namespace oxrctl
