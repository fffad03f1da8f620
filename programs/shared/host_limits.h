// What the connection manager takes for the most that a host can have.
#pragma once

namespace shared {

inline constexpr int MOST_HOST_SESSIONS = 2040;
inline constexpr int MOST_HOST_PATHS = 2048;

}  // namespace shared
