/* The log of the connection manager, for other components of the host. Link with libostrelprovider.so.1. */
#ifndef OSTREL_OXR_LOG_H
#define OSTREL_OXR_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Writes one message, a line feed added, to the connection manager's log, whatever the log level. `level`: 3 is
   printed as ERROR, 2 as WARNING, any other as INFO. Any thread may call it; a message that can't be written is lost.
   The log begins anew when it is larger than 2 MiB. */
__attribute__((visibility("default"))) void oxr_log(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif
