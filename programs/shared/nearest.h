// What a mistyped name is most likely meant for.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace shared {

// The names at most two letters off, the nearest first.
std::vector<std::string_view> nearest_names(std::string_view word, std::span<const std::string_view> names);

// The first of them; empty when there is none.
std::string nearest(std::string_view word, std::span<const std::string_view> names);

}  // namespace shared
