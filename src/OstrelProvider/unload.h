// The end of the library: the process exits or the library is unloaded.
#pragma once

// Ends what still runs as StopService does, and lets no thread of ours begin any more. Nothing is logged when nothing
// runs. In a child that was forked it does nothing to the parent's threads. Any thread; a destructor of the library
// calls it. A signal handler may end the process on top of our own code: then it only waits for a renewal, and on the
// renewal thread itself for nothing.
void end_what_runs();
