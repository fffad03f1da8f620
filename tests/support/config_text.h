// The configuration file with these values, in the form that the service gives it.
#pragma once

#include <string>

#include "configuration/config_text.h"

namespace testing_support {

inline std::string config_text(const ConfigValues& values = {}) {
    char text[CONFIG_TEXT_SIZE];
    return {text, compose_config(text, ConfigForm::rewritten, values)};
}

}  // namespace testing_support
