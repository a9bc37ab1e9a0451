// host/discover/service_words.cpp - see the header for the contract.
#include "host/discover/service_words.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "core/text/utf8.h"
#include "host/app/terminal_text.h"

namespace pennywort::host {

namespace {

constexpr std::uint64_t k_what = 0x77686174;
constexpr std::int32_t k_found = 0x63426A2B;
// Of dns_sd.h.
constexpr long k_unsupported = -65544;
constexpr long k_name_taken = -65548;
constexpr std::size_t k_max_service_word = 15;  // RFC 6335, section 5.1

bool is_service_word(std::string_view text) {
    const auto is_of_word = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-';
    };
    return !text.empty() && text.size() <= k_max_service_word &&
           std::all_of(text.begin(), text.end(), is_of_word);
}

std::string_view text_of(const zRecord& record, const char* name) {
    std::uint32_t length = 0;
    const char* const text = record.AsText(name, &length);
    return text == nullptr ? std::string_view() : std::string_view(text, length);
}

// Without the dot that ends a name of DNS: nobody writes it.
std::string_view host_of(const zRecord& notification) {
    std::string_view host = text_of(notification, "host");
    if (host.ends_with('.')) host.remove_suffix(1);
    return host;
}

bool is_found(const zRecord& notification) { return notification.AsInt32(k_what, 0) == k_found; }

}  // namespace

std::string take_service_type(const std::string& text, std::string& type) {
    type = text;
    if (is_service_word(text)) type = "_" + text + "._tcp.";
    if (text.ends_with("._tcp") || text.ends_with("._udp")) type += '.';
    const bool has_protocol =
        type.find("._tcp.") != std::string::npos || type.find("._udp.") != std::string::npos;
    if (type.starts_with('_') && has_protocol && text::is_utf8(type)) return {};
    return "TYPE " + text + " is not a service type, such as http or _http._tcp";
}

std::string service_line(const zRecord& notification) {
    std::string line = is_found(notification) ? "found " : "gone ";
    line += with_codes(text_of(notification, "name")) + " " + with_codes(host_of(notification)) +
            ":" + std::to_string(notification.AsInt32("port", 0));
    const zRecord* const items = notification.Child(0);
    for (std::uint32_t i = 0; items != nullptr && i < items->VariableCount(); ++i) {
        const char* const key = items->VariableName(i);
        // Avahi's way to write a record without items is one item of nothing.
        if (*key == '\0') continue;
        line += " " + with_codes(key) + "=" + with_codes(text_of(*items, key));
    }
    return line;
}

json service_json(const zRecord& notification) {
    json value;
    value["event"] = is_found(notification) ? "found" : "gone";
    value["name"] = text_of(notification, "name");
    value["type"] = text_of(notification, "service");
    value["host"] = host_of(notification);
    value["port"] = notification.AsInt32("port", 0);
    value["text"] = json::object();
    const zRecord* const items = notification.Child(0);
    for (std::uint32_t i = 0; items != nullptr && i < items->VariableCount(); ++i) {
        const char* const key = items->VariableName(i);
        if (*key == '\0') continue;
        value["text"][key] = text_of(*items, key);
    }
    return value;
}

std::string dnssd_refusal(long error) {
    switch (error) {
        case k_name_taken:
            return "this machine has a service of that type and name already; give another name "
                   "with --name";
        case k_unsupported:
            return "the DNS-SD library of this machine cannot do that; Avahi's has no --local";
        default:
            return "the DNS-SD daemon refuses; is it running (on Linux avahi-daemon)?";
    }
}

std::string dnssd_failure(const cBonjour& bonjour) {
    if (cBonjour::SystemHasBonjour()) return dnssd_refusal(bonjour.LastError());
    return "there is no DNS-SD library here; it comes with Bonjour on Windows, with "
           "libavahi-compat-libdnssd1 on Debian";
}

}  // namespace pennywort::host
