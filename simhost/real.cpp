#include "simhost/real.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace simhost::real {

SIMHOST_EARLY void* next(const char* name) {
    void* found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        static constexpr char text[] = "simhost: no definition behind an interposed function: ";
        (void)!::write(STDERR_FILENO, text, sizeof text - 1);
        (void)!::write(STDERR_FILENO, name, std::strlen(name));
        (void)!::write(STDERR_FILENO, "\n", 1);
        std::abort();
    }
    return found;
}

}  // namespace simhost::real
