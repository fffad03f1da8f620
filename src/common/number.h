// Decimal numbers in the configuration file.
#pragma once

#include <cstdint>
#include <string_view>

namespace oxr {

// Reads blanks, an optional sign and digits up to the first other character; 0 without digits. A negative number is
// returned as a very large one, and reads the same after it was written. A number beyond both 32-bit ranges becomes the
// largest or smallest signed number, so it stays out of every range.
std::uint32_t read_number(std::string_view text);

}  // namespace oxr
