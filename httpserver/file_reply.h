// file_reply.h - what a request asks of a file: all of it, a range of its bytes, or only whether it
// has changed. By RFC 9110 sections 13 and 14. No clock, no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::httpserver {

struct file_facts {
    std::int64_t size = 0;
    std::int64_t modified_ns = 0;  // since 1970
};

// A strong one: it differs for any two states of a file that its clock can tell apart.
std::string etag_of(const file_facts& file);

// The headers that bear on it; a null view for each that is absent.
struct file_question {
    std::optional<std::string_view> if_match{};
    std::optional<std::string_view> if_unmodified_since{};
    std::optional<std::string_view> if_none_match{};
    std::optional<std::string_view> if_modified_since{};
    std::optional<std::string_view> range{};
    std::optional<std::string_view> if_range{};
};

// 200 and 206 with the bytes to be sent; 304, 412 and 416 without any.
struct file_reply {
    std::int32_t status = 200;
    std::int64_t begin = 0;
    std::int64_t length = 0;
};

// `now` is in seconds since 1970. Several ranges, and one that is not understood, are answered with
// the whole, as the standard allows.
file_reply reply_to(const file_question& question, const file_facts& file, std::int64_t now);

}  // namespace pennywort::httpserver
