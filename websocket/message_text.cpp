// websocket/message_text.cpp - see the header for the contract.
#include "websocket/message_text.h"

#include "core/limits.h"

namespace pennywort::websocket {

namespace {

// The memory of a message that was longer than most goes back.
void empty(std::string& taken) {
    if (taken.capacity() > k_max_kept_message_bytes) {
        std::string().swap(taken);
    } else {
        taken.clear();
    }
}

}  // namespace

message_text::state message_text::take(piece_kind kind, std::string_view bytes) {
    if (m_is_complete) {
        empty(m_text);
        m_is_complete = false;
    }
    const bool is_text = kind == piece_kind::text_message || kind == piece_kind::text_fragment;
    const bool is_end = m_ends_empty && !m_text.empty() && kind == piece_kind::text_message;
    if (!is_text || (bytes.empty() && !is_end)) return state::need_more;
    const std::string_view taken = bytes.substr(0, bytes.find('\0'));
    if (taken.size() > m_limit - m_text.size()) return state::too_long;
    m_text += taken;
    m_is_complete = kind == piece_kind::text_message;
    return m_is_complete ? state::complete : state::need_more;
}

message_text::state message_bytes::take(piece_kind kind, std::string_view bytes) {
    using state = message_text::state;
    if (m_is_complete) {
        empty(m_bytes);
        m_is_complete = false;
    }
    m_is_complete = kind == piece_kind::binary_message;
    if (!m_is_complete && kind != piece_kind::binary_fragment) return state::need_more;
    if (bytes.size() > m_limit - m_bytes.size()) return state::too_long;
    m_bytes += bytes;
    return m_is_complete ? state::complete : state::need_more;
}

}  // namespace pennywort::websocket
