// answer.h - the heads of answers, byte for byte. No clock, no I/O.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::httpserver {

enum class after_answer { keep_alive, close };

// "text" with a blank in place of each byte that would end a header.
std::string one_line(std::string_view text);

// Appends the status line, Connection and Server, which every answer begins with.
void append_front(std::string& out, std::int32_t status, after_answer after);
// Appends the head with its blank line. An answer that has no body whatever it tells (204, 304)
// gets no type and no length.
void append_head(std::string& out, std::int32_t status, after_answer after,
                 std::string_view content_type, std::int64_t content_length);

// The body of an answer that says no more than its status.
std::string status_page(std::int32_t status);

// The page of a real 404.
std::string_view not_found_page();

}  // namespace pennywort::httpserver
