// page_inspector.cpp - see the header for the contract.
#include "webdisplay/page_inspector.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace pennywort::webdisplay {

namespace {

// The number behind "\u"; -1 where there is none.
int unit_at(std::string_view text, std::size_t place) {
    constexpr std::size_t k_digits = 4;
    if (text.substr(place, 2) != "\\u" || text.size() < place + 2 + k_digits) return -1;
    int unit = -1;
    const char* const from = text.data() + place + 2;
    const auto [end, error] = std::from_chars(from, from + k_digits, unit, 16);
    return error == std::errc() && end == from + k_digits ? unit : -1;
}

bool is_first_half(int unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_second_half(int unit) { return unit >= 0xDC00 && unit < 0xE000; }

// A script may cut a character in two, and the browser sends on what it has of it. That is no text
// of JSON: the whole message, a dialog's or an answer that somebody waits for, would be lost.
std::string with_whole_characters(std::string_view message) {
    constexpr std::size_t k_unit = 6;
    std::string text(message);
    for (std::size_t at = text.find('\\'); at != text.npos; at = text.find('\\', at)) {
        const int unit = unit_at(text, at);
        const bool is_pair = is_first_half(unit) && is_second_half(unit_at(text, at + k_unit));
        if (is_pair) {
            at += 2 * k_unit;
        } else if (is_first_half(unit) || is_second_half(unit)) {
            text.replace(at, k_unit, "\\ufffd");
            at += k_unit;
        } else {
            at += 2;
        }
    }
    return text;
}

nlohmann::json read_message(std::string_view message) {
    using nlohmann::json;
    json read = json::parse(message, nullptr, false);
    return read.is_discarded() ? json::parse(with_whole_characters(message), nullptr, false) : read;
}

}  // namespace

const nlohmann::json& message_part(const nlohmann::json& message, const char* place) {
    static const nlohmann::json& none = *new nlohmann::json;
    const nlohmann::json::json_pointer where(place);
    return message.contains(where) ? message.at(where) : none;
}

std::string message_text(const nlohmann::json& message, const char* place) {
    const auto& text = message_part(message, place);
    return text.is_string() ? text.get<std::string>() : std::string();
}

std::string value_of_result(const nlohmann::json& result) {
    using nlohmann::json;
    if (!message_part(result, "/exceptionDetails").is_null()) return {};
    const json& value = message_part(result, "/result/value");
    if (value.is_string()) return value.get<std::string>();
    return value.is_null() ? std::string()
                           : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void page_inspector::call(const char* method, const json& params, receiver answered,
                          const std::string& session) {
    const int id = ++m_last_id;
    json message{{"id", id}, {"method", method}, {"params", params}};
    if (!session.empty()) message["sessionId"] = session;
    // A script of the host's may hold any bytes.
    const std::string text = message.dump(-1, ' ', false, json::error_handler_t::replace);
    if (answered) m_waiting.emplace(id, std::move(answered));
    m_send(text);
}

void page_inspector::take(std::string_view message) {
    const json read = read_message(message);
    if (!read.is_object()) return;
    if (message_part(read, "/id").is_number_integer()) return answer(read);
    const std::string method = message_text(read, "/method");
    if (method.empty()) return;
    m_heard(method, message_part(read, "/params"), message_text(read, "/sessionId"));
}

void page_inspector::end() {
    const auto waiting = std::exchange(m_waiting, {});
    for (const auto& [id, answered] : waiting) answered(nullptr);
}

void page_inspector::answer(const json& message) {
    const auto at = m_waiting.find(message.at("id").get<int>());
    if (at == m_waiting.end()) return;
    // Taken out first: what it does may be the next call.
    const receiver answered = std::move(at->second);
    m_waiting.erase(at);
    answered(message_part(message, "/result"));
}

}  // namespace pennywort::webdisplay
