// proxy_rules_fuzz.cpp - lists of proxies and of hosts that are asked directly: each list as its
// entries one by one.
#include <cstdint>
#include <string>
#include <string_view>

#include "core/http/proxy_rules.h"
#include "core/text/ascii.h"
#include "fuzz/fuzz.h"

using namespace pennywort::http;

namespace {

// Up to a line feed.
std::string_view next_line(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() + (line.size() < text.size() ? 1 : 0));
    return line;
}

bool is_between(char c) { return std::string_view(",; \t\r\n").find(c) != std::string_view::npos; }

bool is_bypassed_by_any(std::string_view host, std::int32_t port, std::string_view list) {
    std::string entry;
    for (const char c : list) {
        if (!is_between(c)) {
            entry += c;
            continue;
        }
        if (is_bypassed(host, port, entry)) return true;
        entry.clear();
    }
    return is_bypassed(host, port, entry);
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

void check_bypass(std::string_view host, std::int32_t port, const std::string& list) {
    const bool is_direct = is_bypassed(host, port, list);
    require(is_direct == is_bypassed_by_any(host, port, list), "a list is its entries");
    require(is_bypassed(host, port, list + ",*"), "the star is every host");
    require(!is_direct || is_bypassed(host, port, "example.invalid " + list),
            "an entry more takes nothing away");
    require(is_direct == is_bypassed(upper(host), port, upper(list)), "case plays no part");
}

void check_servers(const std::string& servers) {
    for (const bool is_secure : {false, true}) {
        const std::string_view found = proxy_server(servers, is_secure);
        require(found.empty() || std::string_view(servers).find(found) != servers.npos,
                "a server is a part of the list");
        require(found.find(';') == std::string_view::npos, "it is one of them");
        const std::string other = is_secure ? "http=other;" : "https=other;";
        require(proxy_server(other + servers, is_secure) == found,
                "one for another scheme changes nothing");
    }
}

// A host, a byte of its port, a list of hosts, a list of servers: a line each.
void look(const std::uint8_t* data, std::size_t size) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    std::string_view rest = all;
    const std::string host(next_line(rest));
    const std::string_view port = next_line(rest);
    const std::string bypass(next_line(rest));
    check_bypass(host, port.empty() ? 80 : static_cast<unsigned char>(port.front()), bypass);
    check_servers(std::string(rest));
}

const fuzz_target k_target("proxy_rules", look);

}  // namespace
