// What a guest must leave in its host as it was.
#pragma once
#include <map>
#include <string>

namespace trust {

// Everything by name, as text: "signal 13", "descriptor 4", "umask" ...
typedef std::map<std::string, std::string> HostState;

// The state of this process and, where it is one of a thread, of the calling thread. The environment without
// ZAT_L_LEVEL, in which the object hands its log level on to the programs that it starts.
HostState TakeState();

// The names of what differs, with both values; "" for nothing.
std::string Differences(const HostState& before, const HostState& after);

} // namespace trust
