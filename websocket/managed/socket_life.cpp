// websocket/managed/socket_life.cpp - see the header for the contract.
#include "websocket/managed/socket_life.h"

#include "websocket/close_codes.h"

namespace pennywort::websocket {

bool socket_life::connect() {
    if (m_state != state::made) return false;
    m_state = state::connecting;
    return true;
}

bool socket_life::connected() {
    if (m_state != state::connecting) return false;
    m_state = state::open;
    return true;
}

socket_life::farewell socket_life::close() {
    switch (m_state) {
        case state::made:
        case state::connecting:
            m_state = state::closing;
            return farewell::drop;
        case state::open:
            m_state = state::closing;
            return farewell::say_goodbye;
        case state::closing:
        case state::closed:
            break;
    }
    return farewell::nothing;
}

// Who has asked for the close is told of no code: none was sent.
socket_life::ending socket_life::said_goodbye(std::uint16_t code) {
    return end(m_state == state::closing ? k_close_no_status : code, true);
}

socket_life::ending socket_life::failed(std::uint16_t code) {
    return end(m_state == state::closing ? k_close_no_status : code, false);
}

socket_life::ending socket_life::end(std::uint16_t code, bool was_clean) {
    if (m_state == state::closed) return {};
    m_state = state::closed;
    return {true, code, was_clean};
}

}  // namespace pennywort::websocket
