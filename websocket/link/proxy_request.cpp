// websocket/link/proxy_request.cpp - see the header for the contract.
#include "websocket/link/proxy_request.h"

#include "loam/base64.h"

namespace pennywort::websocket {

namespace {

std::string authority_of(const link_request& asked) {
    const bool is_literal = asked.host.find(':') != std::string::npos;
    return (is_literal ? "[" + asked.host + "]" : asked.host) + ":" + std::to_string(asked.port);
}

std::string base64(const std::string& text) {
    std::string encoded(static_cast<std::size_t>(Base64encode_len(static_cast<int>(text.size()))),
                        '\0');
    Base64encode(encoded.data(), text.data(), static_cast<int>(text.size()));
    return encoded.c_str();
}

}  // namespace

proxy_exchange::proxy_exchange(const link_request& asked) {
    const std::string authority = authority_of(asked);
    request = "CONNECT " + authority + " HTTP/1.1\r\nHost: " + authority + "\r\n";
    request += "User-Agent: " + asked.user_agent + "\r\n";
    if (!asked.proxy->credentials.empty()) {
        request += "Proxy-Authorization: Basic " + base64(asked.proxy->credentials) + "\r\n";
    }
    request += "\r\n";
}

// A server that speaks first is none that we have asked for: behind the head nothing may come.
proxy_exchange::state proxy_exchange::take(std::size_t size) {
    const std::string_view bytes(received.data(), size);
    const std::size_t used = m_head.feed(bytes);
    if (m_head.status() == http::head_parser::state::need_more) return state::need_more;
    m_has_more = used < size;
    const bool is_ok = m_head.status() == http::head_parser::state::complete && !m_has_more &&
                       m_head.head().status / 100 == 2;
    return is_ok ? state::complete : state::refused;
}

std::string proxy_exchange::why() const {
    if (m_head.status() == http::head_parser::state::refused) {
        return "the proxy's answer is not understood: " +
               std::string(http::words_of(m_head.fault()));
    }
    if (m_head.head().status / 100 != 2) {
        return "the proxy answers " + std::to_string(m_head.head().status);
    }
    return "the proxy speaks before it is asked";
}

bool is_offered(std::string_view offered, std::string_view chosen) {
    while (!offered.empty()) {
        if (http::next_element(offered) == chosen) return true;
    }
    return false;
}

}  // namespace pennywort::websocket
