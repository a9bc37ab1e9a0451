// page_inspector.cpp - see the header for the contract.
#include "webdisplay/page_inspector.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace pennywort::webdisplay {

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
    const json read = json::parse(message, nullptr, false);
    if (!read.is_object()) return;
    if (message_part(read, "/id").is_number_integer()) return answer(read);
    const std::string method = message_text(read, "/method");
    if (!method.empty()) m_heard(method, message_part(read, "/params"));
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
