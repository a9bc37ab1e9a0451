// message_text.h - puts the pieces of a message together. No clock, no I/O.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

class message_text {
public:
    enum class state { need_more, complete, too_long };

    // `ends_empty`: a compressed message may end with a piece without bytes, which counts then.
    message_text(std::size_t limit, bool ends_empty) : m_limit(limit), m_ends_empty(ends_empty) {}

    // Takes a piece up to its first NUL, which hosts rely on; other kinds and pieces without bytes
    // are passed over. `complete`: text() is a message until the next piece.
    state take(piece_kind kind, std::string_view bytes);
    const std::string& text() const { return m_text; }

private:
    const std::size_t m_limit;
    const bool m_ends_empty;
    std::string m_text;
    bool m_is_complete = false;
};

// The same for a binary message, which has its length and keeps its NULs.
class message_bytes {
public:
    explicit message_bytes(std::size_t limit) : m_limit(limit) {}

    // Passes over what is not binary. `complete`: bytes() is a message until the next piece.
    message_text::state take(piece_kind kind, std::string_view bytes);
    const std::string& bytes() const { return m_bytes; }

private:
    const std::size_t m_limit;
    std::string m_bytes;
    bool m_is_complete = false;
};

struct incoming_messages {
    message_text text;
    message_bytes binary;
};

}  // namespace pennywort::websocket
