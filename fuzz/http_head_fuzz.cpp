// http_head_fuzz.cpp - heads, chunked bodies and URLs: the same result whole and split, under each
// policy, and nothing that a strict reading lets through in two meanings.
#include <string>
#include <string_view>

#include "core/http/body_length.h"
#include "core/http/chunked_body.h"
#include "core/http/head_parser.h"
#include "core/http/http_date.h"
#include "core/http/url.h"
#include "fuzz/fuzz.h"

namespace {

using namespace pennywort::http;

std::string said_by(const message_head& head) {
    std::string text = head.method + '\1' + head.target + '\1' + std::to_string(head.status) +
                       '\1' + head.reason + '\1' + std::to_string(head.minor);
    for (std::size_t i = 0; i < head.headers.size(); ++i) {
        text += '\1';
        text += head.headers[i].name;
        text += '\2';
        text += head.headers[i].value;
    }
    return text;
}

void check_strict(const message_head& head) {
    for (std::size_t i = 0; i < head.headers.size(); ++i) {
        const header one = head.headers[i];
        require(!one.name.empty() && one.name.find_first_of(" \t:\r\n") == one.name.npos,
                "a name is a token");
        require(one.value.find_first_of(std::string_view("\r\n\0", 3)) == one.value.npos,
                "a value ends no line");
    }
}

void read_head(head_kind kind, const head_policy& policy, std::string_view bytes,
               std::size_t split) {
    head_parser whole(kind, policy);
    const std::size_t used = whole.feed(bytes);
    head_parser parts(kind, policy);
    std::size_t used_in_parts = parts.feed(bytes.substr(0, split));
    used_in_parts += parts.feed(bytes.substr(used_in_parts));
    require(whole.status() == parts.status() && whole.fault() == parts.fault(),
            "splitting a head changes nothing");
    require(used == used_in_parts && used <= bytes.size(), "nor how much of it is taken");
    if (whole.status() != head_parser::state::complete) return;
    require(said_by(whole.head()) == said_by(parts.head()), "nor what it says");
    check_strict(whole.head());
    body_of_request(whole.head());
    body_of_answer(whole.head(), "GET");
}

struct unchunked {
    std::string body;
    std::size_t used = 0;
};

void feed(chunked_body& coding, std::string_view bytes, unchunked& out) {
    std::string_view content;
    for (std::size_t used = 1; used > 0 && coding.status() == chunked_body::state::need_more;) {
        used = coding.feed(bytes, content);
        bytes.remove_prefix(used);
        out.body += content;
        out.used += used;
    }
}

void read_chunks(std::string_view bytes, std::size_t split) {
    chunked_body whole;
    chunked_body parts;
    unchunked from_whole;
    unchunked from_parts;
    feed(whole, bytes, from_whole);
    feed(parts, bytes.substr(0, split), from_parts);
    feed(parts, bytes.substr(from_parts.used), from_parts);
    require(whole.status() == parts.status() && from_whole.used == from_parts.used &&
                from_whole.body == from_parts.body,
            "splitting a chunked body changes nothing");
}

void read_url(std::string_view bytes) {
    const parsed_url parsed = parse_url(bytes, user_info::allowed);
    if (!parsed.is_ok()) return;
    const url& u = parsed.value;
    require(!u.path.empty() && u.path.front() == '/', "a path begins with a slash");
    require(is_authority(u.authority()), "a URL's host may stand in a Host header");
    const parsed_url again = parse_url(u.scheme + "://" + u.authority() + u.target());
    require(again.is_ok() && again.value.host == u.host && again.value.port == u.port &&
                again.value.target() == u.target(),
            "a URL that is put together again is the same");
}

void look(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::size_t split = size == 0 ? 0 : data[size / 2] % (size + 1);
    constexpr head_policy k_small{.allows_bare_lf = true, .max_bytes = 40, .max_headers = 3};
    for (const head_kind kind : {head_kind::request, head_kind::answer, head_kind::headers}) {
        for (const head_policy& policy : {k_strictest_heads, k_tolerant_answers, k_small}) {
            read_head(kind, policy, bytes, split);
        }
    }
    read_chunks(bytes, split);
    const std::string_view line = bytes.substr(0, bytes.find('\n'));
    read_url(line);
    const auto seconds = date_from(line, 1700000000);
    if (seconds) date_text(*seconds);
}

const fuzz_target k_target("http_head", look);

}  // namespace
