// Names of volumes as a person lists them.
#pragma once

#include <string>
#include <vector>

namespace shared {

// "db-01..db-12, db-14": names in order, runs of numbers drawn together, at most `most` pieces.
std::string name_list(const std::vector<std::string>& names, std::size_t most = 4);

}  // namespace shared
