// file_reply.h - what a request asks of a file: all of it, a range of its bytes, or only whether it
// has changed. By RFC 9110 sections 13 and 14. No clock, no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "httpserver/folder_file.h"

namespace pennywort::httpserver {

struct file_facts {
    std::int64_t size = 0;
    file_time modified;
};

// A strong one: it differs for any two states of a file that its clock can tell apart.
std::string etag_of(const file_facts& file);

// When the file was last written to, in seconds since 1970, but not after `now`: an answer must not
// name a time in the future.
std::int64_t last_modified(const file_facts& file, std::int64_t now);

// The headers that bear on it; nothing for each that is absent. The lists of tags are those of all
// lines together.
struct file_question {
    std::optional<std::string> if_match{};
    std::optional<std::string_view> if_unmodified_since{};
    std::optional<std::string> if_none_match{};
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
