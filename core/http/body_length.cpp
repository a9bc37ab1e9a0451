// core/http/body_length.cpp - see the header for the contract.
#include "core/http/body_length.h"

#include <string>

#include "core/http/status.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"

namespace pennywort::http {
namespace {

constexpr std::string_view k_length = "Content-Length";
constexpr std::string_view k_coding = "Transfer-Encoding";

body_plan faulty(body_fault fault) { return {body_kind::none, 0, fault}; }

body_plan chunked_plan(const message_head& head) {
    if (head.minor == 0) return faulty(body_fault::bad_coding);
    const std::string all = head.headers.joined(k_coding);
    std::string_view list = all;
    const std::string_view first = next_element(list);
    if (!text::equal_ignoring_case(first, "chunked")) {
        return faulty(first.empty() ? body_fault::bad_coding : body_fault::unknown_coding);
    }
    if (!next_element(list).empty()) return faulty(body_fault::bad_coding);
    return {body_kind::chunked, 0, body_fault::none};
}

body_plan counted_plan(const message_head& head) {
    const auto told = head.headers.find(k_length);
    const auto length = text::digits<std::uint64_t>(told.value_or(""));
    if (!length || head.headers.count(k_length) > 1) return faulty(body_fault::bad_length);
    return {body_kind::counted, *length, body_fault::none};
}

// `otherwise` is for a message that tells nothing.
body_plan plan_of(const message_head& head, body_kind otherwise) {
    const bool has_length = head.headers.find(k_length).has_value();
    const bool has_coding = head.headers.find(k_coding).has_value();
    if (has_length && has_coding) return faulty(body_fault::length_and_coding);
    if (has_coding) return chunked_plan(head);
    if (has_length) return counted_plan(head);
    return {otherwise, 0, body_fault::none};
}

}  // namespace

body_plan body_of_request(const message_head& head) { return plan_of(head, body_kind::none); }

body_plan body_of_answer(const message_head& head, std::string_view method) {
    if (method == "HEAD" || is_bodiless(head.status)) return {};
    return plan_of(head, body_kind::until_close);
}

bool is_persistent(const message_head& head) {
    if (head.headers.has_token("Connection", "close")) return false;
    return head.minor >= 1 || head.headers.has_token("Connection", "keep-alive");
}

}  // namespace pennywort::http
