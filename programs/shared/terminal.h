// What a person's terminal expects of a program: its width, colours or none, a quiet end.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace shared {

// Columns of the terminal that standard output goes to, else those of the variable COLUMNS; empty: neither is known.
std::optional<std::size_t> terminal_width();

enum class ColourWish { automatic, always, never };

// "auto", "always", "never"; empty for any other word.
std::optional<ColourWish> colour_wish(std::string_view word);

// Whether standard output gets colours. Automatic: a terminal does that isn't a dumb one, unless NO_COLOR is set.
bool wants_colours(ColourWish wish);

// Whether nobody reads standard output any more: a pipe or a terminal whose other end is closed.
bool output_is_abandoned();

// Ends the program as the signal does.
[[noreturn]] void end_by_signal(int signal);

}  // namespace shared
