#include "common/mutex.h"

namespace oxr {

constinit thread_local int mutexes_held = 0;

}  // namespace oxr
