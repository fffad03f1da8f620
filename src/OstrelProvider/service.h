// The service: start, stop, and state that the providers share. Any thread of the CIM server.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/mutex.h"

inline constexpr std::size_t VERSION_TEXT_SIZE = 20;

// The worker thread, or 0.
extern std::atomic<pthread_t> oxr_thread;

// The worker's thread identifier in the stop and exit messages.
extern std::atomic<std::int64_t> tid;

// Serialises StartService. Taken before config_file_mutex.
extern oxr::Mutex start_service_mutex;

// The versions of this service and of the PSP, read at the last start: one word each, at most 19 characters.
struct ServiceVersions {
    char oxd_version[VERSION_TEXT_SIZE];
    char psp_version[VERSION_TEXT_SIZE];
};
ServiceVersions service_versions();

// Prepares the shared state and starts the service. Skips what is already initialised.
void OstrelProviderInit();

// Creates or converts the configuration file, reads the versions and creates the worker, unless one runs. 0, or -1 if
// the thread could not be created.
int StartService();

// Stops the worker, if any, at its next stop point, joins it, and waits up to 60 seconds for a running renewal. 0, or
// -1 if the worker could not be signalled or joined.
int StopService();

// StopService for the end of the process; logs nothing if nothing runs. Waits at most a minute each for a stop by
// another thread, for the worker and for a renewal.
void EndService();

// The first word of a version file into `buffer` (VERSION_TEXT_SIZE bytes, zeroed by the caller). 1, or -1.
int getOxdVersion(char* buffer);
int getPspVersion(char* buffer);
