// Small helpers for what the commands print.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

// The name that `word` is most likely meant for: at most two letters off; empty when none is.
std::string nearest(std::string_view word, std::span<const std::string_view> names);

// Text from a file made fit for a terminal: control characters as \xNN, cut to `most` characters.
std::string printable(std::string_view text, std::size_t most = 120);

// Rows with their columns aligned, two blanks between them, each line behind `indent`. A row's last cell isn't padded.
std::string table_text(const std::vector<std::vector<std::string>>& rows, std::string_view indent = "  ");

}  // namespace oxrctl
