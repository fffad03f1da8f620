// Opens files that must be regular files.
#pragma once

#include <sys/types.h>

namespace oxr {

// Opens a regular file or a link to one with the flags of open(2) and close-on-exec. A new file gets mode 0666. Never
// blocks, as open(2) does on a FIFO. If `size` is not null, it receives the size in bytes. Returns the descriptor, or
// -1 with errno: EISDIR for a folder, ENXIO for anything else that is not a regular file.
int open_regular_file(const char* path, int flags, off_t* size = nullptr);

}  // namespace oxr
