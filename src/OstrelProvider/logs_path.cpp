#include "OstrelProvider/logs_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "OstrelProvider/config.h"
#include "common/file_reader.h"
#include "common/text.h"
#include "configuration/logs_path_rule.h"

namespace {

bool exists(const char* path) {
    return ::access(path, F_OK) == 0;
}

}  // namespace

void get_logs_path(char* result) {
    oxr::FileReader file(OSTREL_CONFIG_FILE);
    if (!file.opened()) {
        oxr::copy_field(result, LOG_FILENAME_SIZE, DEFAULT_LOG_DIR);
        return;
    }
    // As long as a line, so that the message can contain a path of any length.
    char found[256];
    read_logs_path(file, found);
    if (!is_usable_logs_path(found)) {
        OXR_ERROR("Unable to find [%s], Setting Logs Path to default [%s]", found, DEFAULT_LOG_DIR);
        oxr::copy_text(found, DEFAULT_LOG_DIR);
    }
    oxr::copy_field(result, LOG_FILENAME_SIZE, oxr::field_view(found));
}

char* get_log_filename(char* buffer) {
    char directory[LOG_FILENAME_SIZE];
    get_logs_path(directory);
    (void)std::snprintf(buffer, LOG_FILENAME_SIZE, "%.*s/oxr.log", static_cast<int>(MAX_LOGS_PATH), directory);
    return buffer;
}

void OSTREL_CreateLogDir() {
    if (exists(DEFAULT_LOG_DIR)) {
        OXR_INFO("Log dir exists. No need to create.");
    } else if (::mkdir(DEFAULT_LOG_DIR, 0777) == 0) {
        OXR_INFO("Log dir has been created.");
    }
}
