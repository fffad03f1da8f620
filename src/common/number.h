// Decimal numbers as the configuration file has them.
#pragma once

#include <cstdint>
#include <string_view>

namespace oxr {

// Leading blanks, an optional sign, digits; reading stops at the first other character; no digits give 0. A
// negative number becomes a very large one, and what was written from that reads as the same again. A number that
// fits 32 bits neither way is taken as the largest or smallest signed one, so that it stays out of every range.
std::uint32_t read_number(std::string_view text);

}  // namespace oxr
