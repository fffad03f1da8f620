// Stop points and waits. The worker thread is stopped by SIGUSR1, which it keeps blocked for its whole life
// and takes only here, where it holds no shared mutex, descriptor or list: a stop can come anywhere in a pass
// and leaves nothing locked. On any other thread a stop point does nothing and a wait only waits.
#pragma once

#include <signal.h>

namespace oxr {

// Makes the calling thread one that stops at stop points. SIGUSR1 must be blocked in it. `on_stop` is called
// there, as an ordinary function, with the signal's number when the signal was sent to this very thread (by
// pthread_kill); it does not return. A SIGUSR1 sent to the process is given to `on_foreign` and the thread
// goes on.
void enable_stop_points(void (*on_stop)(int signal), void (*on_foreign)(int signal, siginfo_t* info));

// A look at the signal, without waiting.
void stop_point();

// Waits in one piece; on the worker the whole wait is a stop point. 0 or less: returns at once.
void wait_seconds(long seconds);
void wait_milliseconds(long milliseconds);

}  // namespace oxr
