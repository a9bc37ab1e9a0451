// host/live/live_guard.h - who may ask the control page's server: nobody whose browser shows a
// foreign page, and over the network only who has the token.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "httpserver.h"

namespace pennywort::host {

// What the guard looks at. A header that is missing is empty.
struct live_caller {
    std::string host;
    std::string origin;
    std::string fetch_site;     // Sec-Fetch-Site
    std::string authorization;  // "Bearer " and the token
    std::string query_token;    // the parameter "token" of the address
    std::string cookies;        // "name=value; name=value"

    static live_caller of(const cHttpRequest& request);
};

class live_guard {
public:
    // An empty `token` stands for a server that only this machine reaches.
    live_guard(std::int32_t port, std::string token);

    // 0 if the caller may ask, else the status to refuse with: 403 for a foreign page or name, 401
    // without the token.
    int refusal(const live_caller& caller) const;
    // The cookie to set in the response to a page whose address holds the token, so that neither a
    // reload nor the next page needs it there; empty for any other request.
    std::string cookie_for(const live_caller& caller) const;

private:
    bool is_own_name(std::string_view host) const;
    bool has_token(const live_caller& caller) const;

    const std::string m_port;
    const std::string m_cookie;  // its name; a browser has one set of cookies for all ports
    const std::string m_token;
};

// 128 random bits in hexadecimal digits.
std::string random_token();

// Whether a numeric address is of this machine only.
bool is_loopback(std::string_view address);

}  // namespace pennywort::host
