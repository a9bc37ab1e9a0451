// socket_life.h - which events a managed socket raises, and when: a table, no connection. It
// follows what websocket-sharp does.
#pragma once

#include <atomic>
#include <cstdint>

namespace pennywort::websocket {

class socket_life {
public:
    enum class state { made, connecting, open, closing, closed };
    // What close() asks of the connection.
    enum class farewell { nothing, drop, say_goodbye };

    struct ending {
        bool is_told = false;  // raise the close event with what follows
        std::uint16_t code = 0;
        bool was_clean = false;
    };

    // Each returns whether to go on: connect, raise the event, send.
    bool connect();
    bool connected();
    bool is_open() const { return m_state == state::open; }

    farewell close();
    // Both sides have said goodbye; `code` is the peer's.
    ending said_goodbye(std::uint16_t code);
    // The connection is gone without that; `code` says why.
    ending failed(std::uint16_t code);

    state now() const { return m_state; }

private:
    ending end(std::uint16_t code, bool was_clean);

    // Read by threads that send; changed by the binding's alone.
    std::atomic<state> m_state{state::made};
};

}  // namespace pennywort::websocket
