// websocket/link/proxy_choice.cpp - see the header for the contract.
#include "websocket/link/proxy_choice.h"

#include <stdexcept>

#include "core/http/proxy_rules.h"
#include "core/http/url.h"
#include "core/text/percent.h"

namespace pennywort::websocket {

std::optional<link_proxy> choose_proxy(const http::user_proxy& settings, const std::string& host,
                                       std::uint16_t port, bool is_secure) {
    const std::string_view server = http::proxy_server(settings.servers, is_secure);
    if (server.empty() || http::is_bypassed(host, port, settings.bypass)) {
        return std::nullopt;
    }
    const bool has_scheme = server.find("://") != server.npos;
    const auto parsed = http::parse_url((has_scheme ? "" : "http://") + std::string(server),
                                        http::user_info::allowed);
    if (!parsed.is_ok() || parsed.value.scheme != "http") {
        throw std::invalid_argument("the proxy " + std::string(server) + " is of no known kind");
    }
    return link_proxy{parsed.value.host, parsed.value.port,
                      text::percent_decoded(parsed.value.user_info).value_or("")};
}

}  // namespace pennywort::websocket
