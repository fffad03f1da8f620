// Marks the calling thread as being inside the simulated host, so that what it allocates there isn't counted
// as the connection manager's.
#pragma once

namespace simhost {

extern thread_local int inside_depth;

class Inside {
public:
    Inside() { ++inside_depth; }
    ~Inside() { --inside_depth; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

}  // namespace simhost
