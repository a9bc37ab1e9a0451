// host/render/open_requests.cpp - see the header for the contract.
#include "host/render/open_requests.h"

#include <algorithm>

#include "host/app/json.h"

namespace pennywort::host {

namespace {

constexpr std::size_t k_most_open = 1000;
// What is longer has its data within its URL, and need not be fetched.
constexpr std::size_t k_longest_event = 1 << 16;
constexpr std::size_t k_longest_url = 500;

std::string text_member(const json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

}  // namespace

void open_requests::hear(std::string_view method, std::string_view parameters) {
    const bool is_asked = method == "Network.requestWillBeSent";
    const bool is_over = method == "Network.loadingFinished" || method == "Network.loadingFailed";
    if ((!is_asked && !is_over) || parameters.size() > k_longest_event) return;
    const json event = json::parse(parameters, nullptr, false);
    if (!event.is_object()) return;
    const std::string number = text_member(event, "requestId");
    const auto known = std::find_if(m_open.begin(), m_open.end(),
                                    [&](const auto& one) { return one.first == number; });
    if (is_over && known != m_open.end()) m_open.erase(known);
    if (is_over || known != m_open.end() || m_open.size() == k_most_open) return;
    const json& request = event.value("request", json::object());
    if (!request.is_object()) return;
    m_open.emplace_back(number, text_member(request, "url").substr(0, k_longest_url));
}

}  // namespace pennywort::host
