// Many names in little room, as people write them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace text {

// "db-01..db-12, db-14 (13)": names in order, runs of numbers drawn together, at most `most` pieces.
std::string name_list(const std::vector<std::string>& names, std::size_t most = 4);

}  // namespace text
