// answer.h - the heads of answers, byte for byte. No clock, no I/O.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort {

enum class after_answer { keep_alive, close };

// "OK" for 200, and so on; "Unknown" for a status that the library never sends.
std::string_view reason_of(std::int32_t status);

// Appends the head with its blank line.
void append_head(std::string& out, std::int32_t status, after_answer after,
                 std::string_view content_type, std::int64_t content_length);

// A whole answer that says no more than its status; the connection ends with it.
std::string refusal_page(std::int32_t status);

// The page of a real 404.
std::string_view not_found_page();

}  // namespace pennywort
