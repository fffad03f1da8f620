// Binds C library functions to symbol versions that older hosts have. The build includes this before every source file
// of the library. Otherwise a call uses the newest version of its function, and the loader of a host without that
// version refuses the library.
#pragma once

// Their newest versions only mark the move of the functions from the thread library to the C library.
__asm__(".symver pthread_create,pthread_create@GLIBC_2.2.5");
__asm__(".symver pthread_join,pthread_join@GLIBC_2.2.5");
__asm__(".symver pthread_mutex_trylock,pthread_mutex_trylock@GLIBC_2.2.5");
__asm__(".symver pthread_kill,pthread_kill@GLIBC_2.2.5");
__asm__(".symver pthread_sigmask,pthread_sigmask@GLIBC_2.2.5");

// fstat(2) under the name that every C library has: older ones have no symbol fstat, newer headers do not declare this
// one. 0, or -1 with errno. `version` is the version of the record.
struct stat;
inline constexpr int STAT_RECORD_VERSION = 1;
extern "C" int __fxstat(int version, int fd, struct stat* status);
