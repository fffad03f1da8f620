// The log: one plain-text file with one or more lines per message, each message written immediately. Any thread may
// log; messages never interleave. No function here reports a failure: a message that cannot be written is lost.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/log_place.h"
#include "common/mutex.h"
#include "ostrel/oxr_log.h"  // the log call for other components of the host

inline constexpr std::uint32_t LOG_LEVEL_ERROR = 0;
inline constexpr std::uint32_t LOG_LEVEL_INFO = 1;
inline constexpr std::uint32_t LOG_LEVEL_DEBUG = 2;

// Held during each write, each rotation and each change of the log file's name. Always the last lock taken.
extern oxr::Mutex log_file_mutex;

// Full path of the current log file.
extern char g_log_filename[LOG_FILENAME_SIZE] OXR_GUARDED_BY(log_file_mutex);

// Whether DEBUG messages are written.
bool logs_debug();

// Writes the message if `level` is at most log_level. Rotates first if the file is larger than 2 MiB. `format` must
// begin with the standard prefix, which the macros below add. Allocates nothing.
void oxr_log_to_file(std::uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The local time in the log's format, at most 63 characters. Valid until the thread's next call.
const char* get_time();

// Starts a new log and keeps the current one and five older files.
void begin_new_log() OXR_REQUIRES(log_file_mutex);

// Copies one file over another. Returns the result of closing the destination, or -1 if it could not be opened.
int move_log_file(const char* source, const char* destination);

// Replaces the log file's name. At most 99 characters.
void set_log_filename(const char* filename) OXR_EXCLUDES(log_file_mutex);

// The name of an operation in messages. Steps of one operation share its name as a constant.
using LogOperation = const char*;

// Log one message: text and arguments, without the final line feed. The _IN forms print the name of the operation for
// which a step or a shared helper logs; the _OF form also prints its module. The arguments of a DEBUG message are
// evaluated only if it is written; the other levels are always on.
#define OXR_LOG(level, word, module, operation, text, ...)                                        \
    oxr_log_to_file(level, "%s: %s: %s: %s:%d : " text "\n", get_time(), word, module, operation, \
                    __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define OXR_ERROR_IN(operation, text, ...) \
    OXR_LOG(LOG_LEVEL_ERROR, "ERROR", OXR_MODULE, operation, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_WARN_OF(module, operation, text, ...) \
    OXR_LOG(LOG_LEVEL_ERROR, "WARN", module, operation, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_WARN_IN(operation, text, ...) OXR_WARN_OF(OXR_MODULE, operation, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_INFO_IN(operation, text, ...) \
    OXR_LOG(LOG_LEVEL_INFO, "INFO", OXR_MODULE, operation, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_DEBUG_IN(operation, text, ...)                                                             \
    do {                                                                                               \
        if (logs_debug()) {                                                                            \
            OXR_LOG(LOG_LEVEL_DEBUG, "DEBUG", OXR_MODULE, operation, text __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                              \
    } while (false)

#define OXR_ERROR(text, ...) OXR_ERROR_IN(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_WARN(text, ...) OXR_WARN_IN(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_INFO(text, ...) OXR_INFO_IN(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define OXR_DEBUG(text, ...) OXR_DEBUG_IN(__func__, text __VA_OPT__(, ) __VA_ARGS__)
