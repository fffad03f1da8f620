// The folder of the log: the default, or the value of the configuration key ostrel_logs_path.
#pragma once

#include "OstrelProvider/log.h"

// Fills `result` (LOG_FILENAME_SIZE bytes) with the log folder: the value of the last logs-path line if that path
// exists, else the default, which is logged at ERROR. If the configuration file cannot be opened: the default, without
// a message.
void get_logs_path(char* result);

// Fills `buffer` (LOG_FILENAME_SIZE bytes) with the log file's full path and returns it.
char* get_log_filename(char* buffer);

// Creates the default log folder if it does not exist.
void OSTREL_CreateLogDir();
