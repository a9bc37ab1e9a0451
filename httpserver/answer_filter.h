// answer_filter.h - knows how far an answer is that a handler writes piece by piece, and in a
// strict server makes it fit its request. No clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/http/chunked_body.h"
#include "core/http/head_parser.h"

namespace pennywort::httpserver {

// What a strict server adds to an answer and takes from it.
struct answer_terms {
    bool is_head = false;   // the request was HEAD: the body stays here
    bool is_last = false;   // the connection ends behind the answer
    std::string_view date;  // the Date header; valid during the call
};

class answer_filter {
public:
    // Everything passes as it is and is only watched.
    void begin_plain();
    // The head waits until it is whole; then it tells Date and whether the connection goes on. A
    // body goes out no further than its head has told.
    void begin_strict(const answer_terms& terms);

    // What is to be sent in place of `bytes`; valid until the next call.
    std::string_view pass(std::string_view bytes);

    bool is_strict() const { return m_is_strict; }
    bool is_head() const { return m_terms.is_head; }
    bool has_begun() const { return m_has_begun; }
    // Whether the answer is whole; false for one whose length nobody can tell.
    bool is_complete();
    // Whether the end of the connection is the end of the answer.
    bool is_until_close() const { return m_is_head_whole && m_place == place::unlimited; }
    // Whether a strict server must end the connection behind the answer.
    bool ends_connection() const { return m_ends_connection; }
    bool is_head_whole() const { return m_is_head_whole; }
    // Bytes of the body that are still to come; -1 where the head does not count them.
    std::int64_t counted_left() const {
        return m_place == place::counted ? static_cast<std::int64_t>(m_left) : -1;
    }

private:
    enum class place { head, counted, chunked, unlimited, done };

    void begin();
    std::size_t take_head(std::string_view bytes);
    void look_for_end();
    void watch(std::string_view bytes);
    void read_head();
    void rewrite_head();
    void set_place(const http::message_head& head);
    std::size_t watch_body(std::string_view bytes);
    std::string_view pass_body(std::string_view bytes);

    bool m_is_strict = false;
    bool m_has_begun = false;
    bool m_is_head_whole = false;
    bool m_is_head_read = false;
    bool m_ends_connection = false;
    answer_terms m_terms;
    place m_place = place::head;
    std::uint64_t m_left = 0;    // of a counted body
    std::uint64_t m_passed = 0;  // bytes that passed unchanged, head and body
    std::size_t m_searched = 0;  // of m_head
    std::string m_head;          // and, before its end is known, what came behind it
    std::string m_out;
    http::chunked_body m_chunks;
    http::head_parser m_parser{http::head_kind::answer, http::k_tolerant_answers};
};

}  // namespace pennywort::httpserver
