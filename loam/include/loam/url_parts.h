// url_parts.h - where the parts of a URL begin and end, by RFC 3986 and nothing beyond it. What a
// part may hold is for whoever uses it.
//
// Threads: everything may be called from any thread at once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace loam {

// The parts lie in the text that was split, without what marks them: no ":" behind the scheme, no
// "//", "@", "?" or "#". A part that is there and empty differs from one that is not there.
struct url_parts {
    std::string_view scheme;
    std::string_view user_info;
    std::string_view host;  // of a literal address without its brackets
    std::string_view port;
    std::string_view path;  // with its first slash
    std::string_view query;
    std::string_view fragment;
    bool has_scheme = false;
    bool has_authority = false;
    bool has_user_info = false;
    bool has_port = false;
    bool has_query = false;
    bool has_fragment = false;
    bool is_literal = false;     // the host stood in brackets
    bool is_unbalanced = false;  // a bracket was not closed, or something stood behind it
};

// Cuts `text` at the first of `marks` and returns what stands before it; `rest` begins at the mark.
inline std::string_view url_front(std::string_view text, std::string_view marks,
                                  std::string_view& rest) {
    const std::size_t end = std::min(text.find_first_of(marks), text.size());
    rest = text.substr(end);
    return text.substr(0, end);
}

// What stands between "//" and the path.
inline void split_authority(std::string_view text, url_parts& parts) {
    const std::size_t at = text.rfind('@');
    parts.has_user_info = at != std::string_view::npos;
    if (parts.has_user_info) {
        parts.user_info = text.substr(0, at);
        text.remove_prefix(at + 1);
    }
    std::size_t colon = text.rfind(':');
    if (!text.empty() && text.front() == '[') {
        const std::size_t close = text.find(']');
        parts.is_literal = true;
        parts.is_unbalanced =
            close == std::string_view::npos || (close + 1 < text.size() && text[close + 1] != ':');
        if (parts.is_unbalanced) return;
        parts.host = text.substr(1, close - 1);
        colon = close + 1 < text.size() ? close + 1 : std::string_view::npos;
    } else {
        parts.host = text.substr(0, std::min(colon, text.size()));
    }
    parts.has_port = colon != std::string_view::npos;
    if (parts.has_port) parts.port = text.substr(colon + 1);
}

inline url_parts split_url(std::string_view text) {
    url_parts parts;
    std::string_view rest;
    const std::string_view front = url_front(text, ":/?#", rest);
    if (!rest.empty() && rest.front() == ':') {
        parts.has_scheme = true;
        parts.scheme = front;
        text = rest.substr(1);
    }
    parts.has_authority = text.substr(0, 2) == "//";
    if (parts.has_authority) {
        split_authority(url_front(text.substr(2), "/?#", rest), parts);
        text = rest;
    }
    parts.path = url_front(text, "?#", rest);
    text = rest;
    parts.has_query = !text.empty() && text.front() == '?';
    if (parts.has_query) {
        parts.query = url_front(text.substr(1), "#", rest);
        text = rest;
    }
    parts.has_fragment = !text.empty();
    if (parts.has_fragment) parts.fragment = text.substr(1);
    return parts;
}

}  // namespace loam
