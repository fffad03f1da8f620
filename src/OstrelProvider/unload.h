// The end of the library: the process exits or the library is unloaded.
#pragma once

// Stops what still runs, as StopService does, and prevents new threads. Logs nothing if nothing runs. In a forked child
// it leaves the parent's threads alone. Any thread; a destructor of the library calls it. If a signal handler
// interrupts our code and ends the process, this only waits for a renewal, and on the renewal thread itself for
// nothing.
void end_what_runs();
