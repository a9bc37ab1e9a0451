// httpserver/file_reply.cpp - see the header for the contract.
#include "httpserver/file_reply.h"

#include <algorithm>

#include "core/http/bytes.h"
#include "core/http/header_list.h"
#include "core/http/http_date.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"

namespace pennywort::httpserver {
namespace {

std::string hex(std::int64_t number) {
    constexpr std::string_view k_digits = "0123456789abcdef";
    auto rest = static_cast<std::uint64_t>(number);
    std::string text;
    do {
        text.insert(text.begin(), k_digits[rest % 16]);
        rest /= 16;
    } while (rest != 0);
    return text;
}

std::int64_t seconds_of(const file_facts& file) { return file.modified.seconds; }

// Whether a list of tags names the file's. A weak tag is the same for the weak comparison only.
enum class comparison { strong, weak };

bool names_tag(std::string_view list, const std::string& tag, comparison how) {
    if (http::trimmed_value(list) == "*") return true;
    for (auto one = http::next_element(list); !one.empty(); one = http::next_element(list)) {
        const bool is_weak = one.substr(0, 2) == "W/";
        if (is_weak && how == comparison::strong) continue;
        if (one.substr(is_weak ? 2 : 0) == tag) return true;
    }
    return false;
}

bool is_newer_than(const file_facts& file, std::string_view date, std::int64_t now) {
    const auto then = http::date_from(date, now);
    return !then || seconds_of(file) > *then;
}

// 0 when nothing speaks against sending the file.
std::int32_t precondition(const file_question& question, const file_facts& file,
                          const std::string& tag, std::int64_t now) {
    if (question.if_match) {
        if (!names_tag(*question.if_match, tag, comparison::strong)) return 412;
    } else if (question.if_unmodified_since &&
               http::date_from(*question.if_unmodified_since, now) &&
               is_newer_than(file, *question.if_unmodified_since, now)) {
        return 412;
    }
    if (question.if_none_match) {
        return names_tag(*question.if_none_match, tag, comparison::weak) ? 304 : 0;
    }
    const bool has_date = question.if_modified_since.has_value();
    return has_date && !is_newer_than(file, *question.if_modified_since, now) ? 304 : 0;
}

// The peer joins the range to what it has. With a file that has changed since, it would get a mix.
bool is_range_wanted(const file_question& question, const file_facts& file, const std::string& tag,
                     std::int64_t now) {
    if (!question.range) return false;
    if (!question.if_range) return true;
    const std::string_view condition = *question.if_range;
    if (condition.find('"') != std::string_view::npos) return condition == tag;
    return http::date_from(condition, now) == seconds_of(file);
}

// What "first-last", "first-" or "-count" asks for; nothing for what is none of them.
std::optional<file_reply> range_of(std::string_view text, std::int64_t size) {
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = text::digits<std::int64_t>(text.substr(0, dash));
    const auto last = text::digits<std::int64_t>(text.substr(dash + 1));
    const bool is_open = dash + 1 == text.size();
    if (dash == 0) {
        if (!last) return std::nullopt;
        const std::int64_t count = std::min(*last, size);
        if (count == 0) return file_reply{416, 0, 0};
        return file_reply{206, size - count, count};
    }
    if (!first || (!last && !is_open) || (last && *last < *first)) return std::nullopt;
    if (*first >= size) return file_reply{416, 0, 0};
    const std::int64_t end = is_open ? size : std::min(*last, size - 1) + 1;
    return file_reply{206, *first, end - *first};
}

}  // namespace

std::string etag_of(const file_facts& file) {
    const file_time& time = file.modified;
    return '"' + hex(file.size) + '-' + hex(time.seconds) + '.' + hex(time.nanoseconds) + '"';
}

std::int64_t last_modified(const file_facts& file, std::int64_t now) {
    return std::min(seconds_of(file), now);
}

file_reply reply_to(const file_question& question, const file_facts& file, std::int64_t now) {
    constexpr std::string_view k_unit = "bytes=";
    const std::string tag = etag_of(file);
    const std::int32_t refusal = precondition(question, file, tag, now);
    if (refusal != 0) return {refusal, 0, 0};
    const file_reply whole{200, 0, file.size};
    if (!is_range_wanted(question, file, tag, now)) return whole;
    const std::string_view range = *question.range;
    if (!text::begins_ignoring_case(range, k_unit)) return whole;
    return range_of(http::trimmed_value(range.substr(k_unit.size())), file.size).value_or(whole);
}

}  // namespace pennywort::httpserver
