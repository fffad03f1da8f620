// Decimal numbers as the configuration file has them.
#pragma once

#include <cstdint>
#include <string_view>

namespace oxr {

// Leading blanks, an optional sign, digits; reading stops at the first other character; no digits give 0.
// A number beyond 32 bits is taken as the nearest 32-bit one, so that it stays out of every range.
std::int32_t read_number(std::string_view text);

}  // namespace oxr
