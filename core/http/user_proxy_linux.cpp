// user_proxy_linux.cpp - Linux half of user_proxy.h. Windows half: user_proxy_win.cpp.
// The variables that curl, wget and most others read. HTTP_PROXY in capitals is not among them: a
// web server hands that name to the programs it starts with whatever a client has put into its
// header "Proxy".
#include <cstdlib>

#include "core/http/user_proxy.h"

namespace pennywort::http {

namespace {

std::string first_set(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') return value;
    }
    return {};
}

void add(std::string& servers, const char* scheme, const std::string& server) {
    if (server.empty()) return;
    if (!servers.empty()) servers += ';';
    servers += scheme;
    servers += '=';
    servers += server;
}

}  // namespace

std::optional<user_proxy> read_user_proxy() {
    const std::string all = first_set({"all_proxy", "ALL_PROXY"});
    const std::string http = first_set({"http_proxy"});
    const std::string https = first_set({"https_proxy", "HTTPS_PROXY"});
    user_proxy found;
    add(found.servers, "http", http.empty() ? all : http);
    add(found.servers, "https", https.empty() ? all : https);
    found.bypass = first_set({"no_proxy", "NO_PROXY"});
    return found;
}

}  // namespace pennywort::http
