// The end of the library: the process exits or the library is unloaded.
#pragma once

// Ends what still runs as StopService does, and lets no thread of ours begin any more. Nothing is logged when nothing
// runs. In a child that was forked it does nothing to the parent's threads. Any thread; a destructor of the library
// calls it.
void end_what_runs();
