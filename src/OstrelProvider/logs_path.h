// Where the log stands: the default directory, or the one that the configuration file's key ostrel_logs_path
// names.
#pragma once

#include "OstrelProvider/log.h"

// Fills `result` (LOG_FILENAME_SIZE bytes) with the log directory: the last logs-path line's value when it
// names something that exists, else the default, which is logged at ERROR. Default too, without a message,
// when the configuration file can't be opened.
void get_logs_path(char* result);

// Fills `buffer` (LOG_FILENAME_SIZE bytes) with the log file's full path and returns it.
char* get_log_filename(char* buffer);

// Makes the default log directory when it isn't there.
void OSTREL_CreateLogDir();
