// loam/url_string.cpp - see the header for the contract.
#include "loam/url_string.h"

#include <charconv>
#include <string_view>
#include <system_error>

#include "loam/out_of_memory.h"
#include "loam/url_parts.h"

namespace {

constexpr zStatus k_failed = -1;
constexpr std::int32_t k_no_port = 0;
constexpr std::int32_t k_last_port = 65535;

bool is_there(const char* text) { return text != nullptr && *text != '\0'; }

void set(zString* place, std::string_view text) {
    if (place != nullptr) {
        place->SetString(text.empty() ? "" : text.data(), static_cast<std::uint32_t>(text.size()));
    }
}

// k_failed for a port that is none. "http://host:/" has no port, as RFC 3986 allows.
std::int32_t port_of(const loam::url_parts& parts) {
    if (parts.port.empty()) return k_no_port;
    std::int32_t port = 0;
    const char* const end = parts.port.data() + parts.port.size();
    const auto [stop, error] = std::from_chars(parts.port.data(), end, port);
    const bool is_number = error == std::errc() && stop == end;
    return is_number && port >= 1 && port <= k_last_port ? port : k_failed;
}

// Path and query lie side by side.
std::string_view path_with_query(const loam::url_parts& parts) {
    std::string_view path = parts.path;
    if (parts.has_query) path = {path.data(), path.size() + 1 + parts.query.size()};
    if (!path.empty() && path.front() == '/') path.remove_prefix(1);
    return path;
}

}  // namespace

zURLString::zURLString(const char* scheme, const char* userInfo, const char* host,
                       const char* path) {
    const auto add = [this](const char* text) { m_text.AddToEnd(text, 0xFFFFFFFF); };
    if (is_there(scheme)) {
        add(scheme);
        add("://");
    }
    if (is_there(userInfo)) {
        add(userInfo);
        add("@");
    }
    if (is_there(host)) add(host);
    if (!is_there(path)) return;
    if (*path != '/') add("/");
    add(path);
}

zURLString::~zURLString() = default;

const char* zURLString::CString() const { return m_text.CString(); }

zStatus zURLString::Get(const char* url, zString* scheme, zString* userInfo, zString* host,
                        std::int32_t* port, zString* path, zString* fragment) {
    const std::string_view text = url == nullptr ? std::string_view("") : std::string_view(url);
    loam::url_parts parts = loam::split_url(text);
    std::int32_t number = port_of(parts);
    const bool is_whole = parts.has_scheme && !parts.scheme.empty() && !parts.host.empty() &&
                          !parts.is_unbalanced && number != k_failed;
    if (!is_whole) {
        parts = loam::url_parts();
        number = k_no_port;
    }
    return loam::unless_out_of_memory([&] {
        set(scheme, parts.scheme);
        set(userInfo, parts.user_info);
        set(host, parts.host);
        if (port != nullptr) *port = number;
        set(path, is_whole ? path_with_query(parts) : std::string_view());
        set(fragment, parts.fragment);
        return is_whole ? 0 : k_failed;
    });
}
