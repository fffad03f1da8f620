// The configuration writer.
#pragma once

#include "OstrelProvider/config.h"

// Rewrites the configuration file in its canonical form with the record's values. A log level other than 1 or 2 becomes
// 1 in the record. 0: written. -1: the file could not be opened or written completely; it keeps its old text.
int set_value_in_file(ConfigValues* values) OXR_REQUIRES(config_file_mutex);
