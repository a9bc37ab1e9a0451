// user_proxy.h - what the user has configured as proxy. Twins: user_proxy_win.cpp asks the system,
// user_proxy_linux.cpp reads the environment.
#pragma once

#include <optional>
#include <string>

namespace pennywort::http {

struct user_proxy {
    // One server for everything, "host:port", or one per scheme, "http=host:port;https=host:port".
    std::string servers;
    // Hosts that are asked directly, in the form that the system has for such lists.
    std::string bypass;
    bool is_auto_detected = false;
    std::string auto_config_url;
};

// Nothing when the system does not tell.
std::optional<user_proxy> read_user_proxy();

}  // namespace pennywort::http
