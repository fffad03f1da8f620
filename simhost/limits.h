// What a host bears: the connection manager adds no session beyond the one and balances nothing at the other.
#pragma once

namespace simhost {

inline constexpr int MAX_SESSIONS = 2040;
inline constexpr int MAX_PATHS = 2048;

}  // namespace simhost
