// The texts of log messages as their printf formats, and which logged text is of which format.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

// Whether `text` can have been printed from `format` (conversions %s %d %u %x %p %c with their flags, and %%); the
// printed arguments are then in `arguments`, in their order. A %s takes as little as the rest allows.
bool match(std::string_view format, std::string_view text, std::vector<std::string_view>& arguments);
bool matches(std::string_view format, std::string_view text);

// The letters of a format that stand in every text printed from it.
std::size_t own_letters(std::string_view format);

}  // namespace oxrctl
