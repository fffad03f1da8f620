// A little colour for a terminal.
#pragma once

#include <string>

namespace oxrctl {

// The text of a command with the words of health, the levels and the verdicts of plans painted where they stand for
// themselves: in a cell of their own, or at the head of what they are about.
std::string painted(const std::string& text);

}  // namespace oxrctl
