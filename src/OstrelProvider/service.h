// The service: its start, its stop and what the providers share. Any thread of the CIM server.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/mutex.h"

inline constexpr std::size_t VERSION_TEXT_SIZE = 20;

// The worker thread; 0: no worker exists.
extern std::atomic<pthread_t> oxr_thread;

// The worker's thread identifier, as the stop and exit messages print it.
extern std::atomic<std::int64_t> tid;

// Serialises StartService. Taken before config_file_mutex.
extern oxr::Mutex start_service_mutex;

// Versions of this service and of the PSP as read at the last start: one word, at most 19 characters.
struct ServiceVersions {
    char oxd_version[VERSION_TEXT_SIZE];
    char psp_version[VERSION_TEXT_SIZE];
};
ServiceVersions service_versions();

// Prepares the shared state and starts the service. Runs at every factory call; what is initialised already
// stays as it is.
void OstrelProviderInit();

// Creates or converts the configuration file, reads the versions and creates the worker, unless one runs.
// 0, or -1 when the thread could not be created.
int StartService();

// Stops the worker at its next stop point, joins it, and waits up to 60 seconds for a running renewal. With no
// worker only the renewal is waited for. 0, or -1 when the worker could not be signalled or joined.
int StopService();

// Ends what runs as StopService does, when the process ends, and logs nothing when nothing runs. It waits a minute for
// a stop that another thread is at, a minute for the worker and a minute for a renewal, at most.
void EndService();

// The first word of a version file into `buffer` (VERSION_TEXT_SIZE bytes, zeroed by the caller). 1, or -1.
int getOxdVersion(char* buffer);
int getPspVersion(char* buffer);
