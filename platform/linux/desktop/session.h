// What a process needs to know before it talks to the user's desktop session.
//
// Thread rule: the host mustn't change its environment meanwhile (getenv(3)).
#pragma once

#include <chrono>
#include <string>

namespace platform::linux_os {

// A point on the monotonic clock: time that a suspended computer sleeps doesn't count.
using Deadline = std::chrono::steady_clock::time_point;

constexpr Deadline unlimited = Deadline::max();

// By when services that answer without the user must have answered. Callers are promised 5 seconds; the rest is for
// starting and cleaning up.
Deadline answerDeadline();

// Milliseconds until `deadline` for poll(2), rounded up: 0 once it has passed, -1 for unlimited.
int millisecondsUntil(Deadline deadline);

// Whether the process belongs to a session with an X or a Wayland display. Says nothing about the display's health.
bool hasDisplay();

// D-Bus address of the user's session bus; empty when there is none. Only sockets of this machine are taken: the
// other transports that D-Bus knows run a program or look up a host, for as long as that takes.
std::string sessionBusAddress();

} // namespace platform::linux_os
