#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "OstrelProvider/config.h"
#include "OstrelProvider/config_file.h"
#include "common/file_reader.h"
#include "common/text.h"
#include "configuration/config_text.h"

namespace {

constexpr LogOperation creation = "OSTREL_CreateConfigFile";

void create_config_dir() {
    if (::access(OSTREL_CONFIG_DIR, F_OK) == 0) {
        OXR_INFO_IN(creation, "Config dir exists. No need to create.");
        return;
    }
    OXR_INFO_IN(creation, "Creating config dir. %s", OSTREL_CONFIG_DIR);
    if (::mkdir(OSTREL_CONFIG_DIR, 0777) == 0) {
        OXR_INFO_IN(creation, "Config dir has been created.");
    } else {
        OXR_ERROR_IN(creation, "%s, Config dir was not created", oxr::error_text(errno));
    }
}

// If access() fails for another reason, the file may exist and must not be overwritten.
bool config_file_is_absent() {
    return ::access(OSTREL_CONFIG_FILE, F_OK) != 0 && errno == ENOENT;
}

void create_default_file() OXR_REQUIRES(config_file_mutex) {
    char text[CONFIG_TEXT_SIZE];
    const std::size_t length = compose_config(text, ConfigForm::created, ConfigValues());
    switch (write_config_file(text, length)) {
        case ConfigWrite::written:
            return;
        case ConfigWrite::not_opened:
            OXR_ERROR_IN(creation, "%s, fopen() failed", oxr::error_text(errno));
            return;
        case ConfigWrite::not_written:
            OXR_ERROR_IN(creation, "%s, writing oxr.conf failed", oxr::error_text(errno));
            return;
    }
}

// Only a file of the current format has comment lines.
bool has_comment_line() {
    oxr::FileReader file(OSTREL_CONFIG_FILE);
    std::string_view line;
    while (file.next_line(line)) {
        if (oxr::is_comment_line(line)) {
            return true;
        }
    }
    return false;
}

void convert_old_file() OXR_REQUIRES(config_file_mutex) {
    ConfigValues values;
    if (OSTREL_GetConfigValues(&values, CONFIG_CONVERT) == 0) {
        OXR_INFO_IN(creation, "Converted existing oxr.conf to new format.");
    } else {
        OXR_ERROR_IN(creation, "Failed to convert oxr.conf to new format, using internal defaults.");
    }
}

}  // namespace

void OSTREL_CreateConfigFile() {
    create_config_dir();
    if (config_file_is_absent()) {
        OXR_INFO("Config file does NOT exist. Create the file with default settings");
        create_default_file();
    } else if (has_comment_line()) {
        OXR_INFO("Config file exists. No need to create");
    } else {
        convert_old_file();
    }
}
