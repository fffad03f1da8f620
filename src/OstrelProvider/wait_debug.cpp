#include "OstrelProvider/wait_debug.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "common/stop_point.h"

void wait_for_debugger(std::atomic<std::int32_t>& waitDebug) {
    if (std::getenv("WAIT_PROC") == nullptr) {
        waitDebug = 0;
        (void)std::fprintf(stderr, "Current process:pid=%d, ppid=%d\n", getpid(), getppid());
        return;
    }
    waitDebug = 1;
    char line[64];
    (void)std::snprintf(line, sizeof line, "Waiting for vmkgdbd attach:pid=%d, ppid=%d\n", getpid(), getppid());
    while (waitDebug != 0) {
        oxr::wait_seconds(1);
        (void)std::fputs(line, stderr);
    }
}
