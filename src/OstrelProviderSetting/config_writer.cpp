#include "OstrelProviderSetting/config_writer.h"

#include <cerrno>

#include "OstrelProvider/config_file.h"
#include "common/text.h"
#include "configuration/config_text.h"

int set_value_in_file(ConfigValues* values) {
    if (values->log_level != 1 && values->log_level != 2) {
        values->log_level = 1;
    }
    char text[CONFIG_TEXT_SIZE];
    const std::size_t length = compose_config(text, ConfigForm::rewritten, *values);
    switch (write_config_file(text, length)) {
        case ConfigWrite::written:
            return 0;
        case ConfigWrite::not_opened:
            OXR_ERROR("fopen of oxr.conf returned NULL");
            return -1;
        case ConfigWrite::not_written:
            break;
    }
    OXR_ERROR("%s, writing oxr.conf failed", oxr::error_text(errno));
    return -1;
}
