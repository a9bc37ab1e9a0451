// answer.h - the heads of answers, byte for byte. No clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::httpserver {

enum class after_answer { keep_alive, close };

// Of every answer.
inline constexpr std::string_view k_server_line = "Server: nimb_httpd/0.1.0\r\n";

// Bytes that a head takes at most, besides its content type.
inline constexpr std::size_t k_head_room = 256;

// Writes the status line, Connection and Server, which every answer begins with, and returns where
// they end. `at` has room for k_head_room bytes.
char* write_front(char* at, std::int32_t status, after_answer after);
// Writes the head with its blank line and returns where it ends. `at` has room for k_head_room
// bytes and the type. In the type a blank stands in place of each byte that would end the header.
// An answer that has no body whatever it tells (204, 304) gets no type and no length.
char* write_head(char* at, std::int32_t status, after_answer after, std::string_view content_type,
                 std::int64_t content_length);

// The same, appended.
void append_front(std::string& out, std::int32_t status, after_answer after);
void append_head(std::string& out, std::int32_t status, after_answer after,
                 std::string_view content_type, std::int64_t content_length);

// The body of an answer that says no more than its status.
std::string status_page(std::int32_t status);

// The page of a real 404.
std::string_view not_found_page();

}  // namespace pennywort::httpserver
