// host/app/page_address.cpp - see the header for the contract.
#include "host/app/page_address.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "core/text/percent.h"

namespace pennywort::host {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view k_file_scheme = "file://";

// Empty if there is none. A single letter is a drive.
std::string_view scheme_of(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon < 2 || !text::is_letter(text.front())) return {};
    const auto scheme = text.substr(0, colon);
    const bool is_valid = std::all_of(scheme.begin(), scheme.end(), [](char c) {
        return text::is_letter(c) || text::is_digit(c) || c == '+' || c == '-' || c == '.';
    });
    return is_valid ? scheme : std::string_view();
}

// "clip:2.html" may be a file, "https://..." and "data:..." are not.
bool is_url(std::string_view text) {
    const std::string scheme = text::lower(scheme_of(text));
    if (scheme.empty()) return false;
    return text.substr(scheme.size()).substr(0, 3) == "://" || scheme == "data" ||
           scheme == "about";
}

fs::path as_path(std::string_view utf8) { return {std::u8string(utf8.begin(), utf8.end())}; }

// Empty: it can be read.
std::string fault_of_file(const fs::path& path) {
    std::error_code error;
    if (!fs::exists(path, error)) return "there is no such file";
    if (fs::is_directory(path, error)) return "is a folder, not a page";
    // Opening a pipe waits for its other end, perhaps for ever.
    if (!fs::is_regular_file(path, error)) return "is a pipe or a device, not a page";
    if (!std::ifstream(path)) return "cannot be read";
    return {};
}

bool is_port(std::string_view text) {
    return text.empty() || text::digits<std::uint16_t>(text).has_value();
}

// What stands between the slashes and the path. Empty: a browser makes something of it.
std::string fault_of_authority(std::string_view authority) {
    const auto at = authority.rfind('@');
    if (at != std::string_view::npos) authority.remove_prefix(at + 1);
    const bool is_ipv6 = authority.substr(0, 1) == "[";
    const auto bracket = authority.find(']');
    if (is_ipv6 && bracket == std::string_view::npos) return "its address has no ]";
    const auto colon = authority.find(':', is_ipv6 ? bracket : 0);
    const auto host = authority.substr(0, colon);
    if (host.empty()) return "it names no host";
    const bool has_control = std::any_of(host.begin(), host.end(),
                                         [](char c) { return c == ' ' || text::is_control(c); });
    if (has_control) return "its host has a blank or a control character in it";
    if (colon != std::string_view::npos && !is_port(authority.substr(colon + 1))) {
        return "its port is none from 0 to 65535";
    }
    return {};
}

// What a browser drops: blanks at the end, and the ends of lines that a long address was cut into.
std::string as_browser_reads(std::string_view text) {
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ') text.remove_suffix(1);
    std::string read(text);
    std::erase_if(read, [](char c) { return c == '\t' || c == '\r' || c == '\n'; });
    return read;
}

// The browser ignores such an address without a word, and the run would wait until its time-out.
std::string fault_of_web_address(std::string_view text) {
    const std::string read = as_browser_reads(text);
    std::string_view url = read;
    const std::string scheme = text::lower(scheme_of(url));
    if (scheme != "http" && scheme != "https") return {};
    url.remove_prefix(scheme.size() + 1);
    url.remove_prefix(std::min(url.find_first_not_of("/\\"), url.size()));  // any number of them
    return fault_of_authority(url.substr(0, url.find_first_of("/\\?#")));
}

// The browser's own pages: one of them ends the whole program, others change how it works. It takes
// "about:x" for "chrome://x".
std::string fault_of_browser_page(std::string_view text) {
    constexpr std::string_view k_fault = "is a page of the browser's own";
    const std::string read = text::lower(as_browser_reads(text));
    const std::string_view url = read;
    const auto scheme = scheme_of(url);
    if (scheme.starts_with("chrome") || scheme == "devtools") return std::string(k_fault);
    if (scheme != "about") return {};
    const auto name = url.substr(scheme.size() + 1);
    return name.substr(0, name.find_first_of("?#")) == "blank" ? "" : std::string(k_fault);
}

std::string fault_of_url(std::string_view url) {
    std::string fault = fault_of_browser_page(url);
    if (fault.empty()) fault = fault_of_web_address(url);
    const std::string path = path_of_file_url(url);
    if (fault.empty() && !path.empty()) fault = fault_of_file(as_path(path));
    return fault;
}

std::optional<std::string> checked_url(std::string_view url, std::string& reason) {
    const std::string fault = fault_of_url(url);
    if (fault.empty()) return std::string(url);
    reason = std::string(url) + ": " + fault;
    return {};
}

std::string fault_of_name(std::string_view text, const std::string& fault) {
    const bool is_like_a_host = text.find('.') != std::string_view::npos &&
                                text.substr(0, 1) != "." && text.substr(0, 1) != "/";
    std::string reason = std::string(text) + ": " + fault;
    if (is_like_a_host) reason += " (an address of the web begins with https:// or http://)";
    return reason;
}

}  // namespace

std::string path_of_file_url(std::string_view url) {
    if (url.substr(0, k_file_scheme.size()) != k_file_scheme) return {};
    url.remove_prefix(k_file_scheme.size());
    const auto path_begin = url.find('/');  // a host name may stand before it
    if (path_begin == std::string_view::npos) return {};
    const auto path = url.substr(path_begin, url.find_first_of("?#") - path_begin);
    const bool has_drive = path.size() > 2 && path[2] == ':' && text::is_letter(path[1]);
    return text::percent_decoded_as_browsers_do(has_drive ? path.substr(1) : path);
}

std::string file_url(std::string_view path) {
    const std::string root = path.substr(0, 1) != "/" ? "/" : "";  // before a drive
    return std::string(k_file_scheme) + root + text::percent_encoded(path, text::k_path_bytes);
}

std::optional<std::string> page_address(std::string_view text, std::string& reason) {
    if (text.empty()) {
        reason = "the name of a page is empty";
        return {};
    }
    std::error_code error;
    const bool is_whole = fs::exists(as_path(text), error);
    if (!is_whole && is_url(text)) return checked_url(text, reason);
    const auto cut = is_whole ? std::string_view::npos : text.find_first_of("?#");
    const auto name = text.substr(0, cut);
    const fs::path path = as_path(name);
    const std::string fault = fault_of_file(path);
    if (!fault.empty()) {
        reason = fault_of_name(text, fault);
        return {};
    }
    const auto absolute = fs::absolute(path).lexically_normal().generic_u8string();
    const std::string behind(cut == std::string_view::npos ? std::string_view() : text.substr(cut));
    return file_url({reinterpret_cast<const char*>(absolute.data()), absolute.size()}) + behind;
}

}  // namespace pennywort::host
