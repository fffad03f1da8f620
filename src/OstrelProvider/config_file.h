// Writes the configuration file.
#pragma once

#include <cstddef>

#include "OstrelProvider/config.h"

// The result of writing the file.
enum class ConfigWrite { written, not_opened, not_written };

// Replaces the file's content in place, so that links, owner and mode are kept. If it cannot be written completely, the
// file keeps its old text, or is removed if it was new. Exceptions: after a failed close it may contain the new text,
// and the target of a dangling link may stay empty. A kill leaves the old or the new text, possibly followed by line
// feeds; a file longer than CONFIG_TEXT_SIZE may keep old lines after the new text. `length`: at most
// CONFIG_TEXT_SIZE. On failure errno has the cause.
ConfigWrite write_config_file(const char* text, std::size_t length) OXR_REQUIRES(config_file_mutex);
