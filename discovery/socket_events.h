// socket_events.h - tells a thread, through its message loop, that something has arrived on a
// DNS-SD socket. Twins: socket_events_linux.cpp, socket_events_win.cpp.
#pragma once

#include <functional>
#include <memory>

namespace pennywort::discovery {

// Belongs to the thread that makes it.
class socket_events {
public:
    // Called with the number of a socket, from the message loop of the thread, when it can be read
    // or has been closed. False when nothing more will ever be read from it: without this, a loop
    // that asks again and again whether a socket can be read would find that it can, for ever.
    using arrived = std::function<bool(int number)>;

    // Null when the system gives none.
    static std::unique_ptr<socket_events> make(arrived call);

    socket_events() = default;
    socket_events(const socket_events&) = delete;
    socket_events& operator=(const socket_events&) = delete;
    // Also from within a call, which goes on without this object.
    virtual ~socket_events() = default;

    // Watches a socket under a number; under -1 what arrives is passed over. False when the system
    // does not take it, or when the thread of this object has ended.
    virtual bool watch(int socket, int number) = 0;
    // From now on nothing is called for this socket.
    virtual void unwatch(int socket) = 0;
};

enum class arrival { there, timed_out, failed };

// Waits until there is something to read on a socket.
arrival wait_for_arrival(int socket, int timeout_ms);

// The calls above, as tests can replace them. Only while no object of this family is at work.
struct event_calls {
    decltype(&socket_events::make) make = &socket_events::make;
    decltype(&wait_for_arrival) wait = &wait_for_arrival;
};
event_calls& event_calls_in_use();

}  // namespace pennywort::discovery
