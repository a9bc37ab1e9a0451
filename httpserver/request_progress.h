// request_progress.h - knows, while the bytes of a request come in, whether it is complete. No
// clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace pennywort::httpserver {

// However a peer splits its bytes, each of them is looked at a fixed number of times: what was
// looked at stays known.
class request_progress {
public:
    // `text` is the request so far; what was there before must be unchanged. Whether it is
    // complete: a known method, a blank line, and behind that as many bytes as the first
    // "Content-Length:" says, wherever in the request it stands, which may be in the body.
    bool look(std::string_view text);
    // Prepares for the next request; the count of bytes goes on.
    void reset();

    // 0 while it is not known. With 4 bytes and more that does not change.
    std::uint32_t method() const { return m_method; }
    // At least 4 bytes are there, and they are no method: this never becomes complete.
    bool is_hopeless() const { return m_is_hopeless; }
    // Where the blank line ends; 0 before that is known.
    std::size_t body_offset() const { return m_body_offset; }
    // What was read so far, held at the ends of the type; 0 if nothing.
    std::int32_t content_length() const;
    // All bytes that were looked at, counted once per purpose.
    std::uint64_t bytes_examined() const { return m_bytes_examined; }

private:
    // Reads a number as scanf does: white space, a sign, digits.
    enum class number_state { absent, before, signed_, digits, done };

    void look_for_method(std::string_view text);
    void look_for_blank_line(std::string_view text);
    void look_for_length(std::string_view text);
    void read_number(std::string_view text);
    void take_digit(char c);
    number_state next_state(char c) const;

    std::uint64_t m_bytes_examined = 0;
    std::size_t m_searched_for_blank_line = 0;
    std::size_t m_body_offset = 0;
    std::size_t m_searched_for_length = 0;  // and then, how far the number was read
    std::int64_t m_number = 0;              // without its sign
    std::uint32_t m_method = 0;
    number_state m_number_state = number_state::absent;
    bool m_is_negative = false;
    bool m_is_hopeless = false;
};

}  // namespace pennywort::httpserver
