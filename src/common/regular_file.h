// Opening files that must be regular ones.
#pragma once

#include <sys/types.h>

namespace oxr {

// Opens a regular file or a link to one with the flags of open(2), and close-on-exec; a new file's mode is 0666.
// Never waits, as open(2) does for the other end of a FIFO. `size`, when not null, receives the file's bytes. The
// descriptor, or -1 with errno: EISDIR for a folder, ENXIO for what is no file either.
int open_regular_file(const char* path, int flags, off_t* size = nullptr);

}  // namespace oxr
