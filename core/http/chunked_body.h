// chunked_body.h - takes the chunked coding off a body as its bytes come in, by RFC 9112 section
// 7.1. No clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/http/head_parser.h"

namespace pennywort::http {

class chunked_body {
public:
    enum class state { need_more, complete, refused };

    // Takes some bytes and returns their number; `content` becomes what lies in them of the body,
    // empty if nothing. To be called again with the rest, until there is none or the state is not
    // need_more. Nothing is copied.
    std::size_t feed(std::string_view bytes, std::string_view& content);
    void reset();

    state status() const { return m_state; }
    // Bytes that are still to come of the chunk that has begun, as far as its size has been read.
    std::uint64_t left_of_chunk() const { return m_left; }
    // The headers behind the body, when complete.
    const header_list& trailers() const { return m_trailers.head().headers; }

private:
    enum class place { size, extension, size_lf, content, content_cr, content_lf, trailers };

    std::size_t take_content(std::string_view bytes, std::string_view& content);
    std::size_t take_trailers(std::string_view bytes);
    void take_byte(char c);
    void take_size(char c);
    void take_extension(char c);
    void expect(char c, char wanted, place next);
    void begin_chunk();
    void refuse() { m_state = state::refused; }

    state m_state = state::need_more;
    place m_place = place::size;
    std::uint64_t m_left = 0;  // of the chunk
    std::size_t m_digits = 0;
    bool m_has_extension = false;
    std::size_t m_extension_bytes = 0;  // of all chunks
    head_parser m_trailers{head_kind::headers};
};

}  // namespace pennywort::http
