// Binds C library functions to the versions that older hosts have, too. The build puts this ahead of every source
// file of the library. A call that is bound nowhere takes the newest version of its function, and the host's loader
// refuses a library that names a version which its C library lacks.
#pragma once

// Their newest versions only tell that the functions moved from the thread library to the C library.
__asm__(".symver pthread_create,pthread_create@GLIBC_2.2.5");
__asm__(".symver pthread_join,pthread_join@GLIBC_2.2.5");
__asm__(".symver pthread_mutex_trylock,pthread_mutex_trylock@GLIBC_2.2.5");
__asm__(".symver pthread_kill,pthread_kill@GLIBC_2.2.5");
__asm__(".symver pthread_sigmask,pthread_sigmask@GLIBC_2.2.5");

// What fstat(2) is in every C library: older ones have no symbol fstat, newer headers don't declare this one. 0, or
// -1 with errno. `version` is that of the record.
struct stat;
inline constexpr int STAT_RECORD_VERSION = 1;
extern "C" int __fxstat(int version, int fd, struct stat* status);
