// What the programs do with the text of a configuration file beside the service's own judgement.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "configuration/config_judge.h"
#include "configuration/config_keys.h"

namespace shared {

// Notices nothing: for the judgement alone.
class NoObserver final : public ConfigObserver {};

// The lines as the service reads them: with their line feeds, of longer ones the first 255 characters.
std::vector<std::string_view> config_lines(std::string_view text);

// Without the blanks at its ends.
std::string_view trimmed(std::string_view text);

// The value of the file's last logs-path line; empty: it has none.
std::string last_logs_path(std::string_view text);

// A value as it stands in a file.
std::string value_text(const ConfigKey& key, const ConfigValues& values);

}  // namespace shared
