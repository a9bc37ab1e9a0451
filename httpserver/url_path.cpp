// httpserver/url_path.cpp - see the header for the contract.
#include "httpserver/url_path.h"

#include <algorithm>
#include <utility>

#include "core/text/ascii.h"
#include "core/text/percent.h"

namespace pennywort::httpserver {
namespace {

// Refuses the same names on every system, so that a test on one also holds on the other.
bool is_safe_byte(char c) { return !text::is_control(c) && c != '/' && c != '\\' && c != ':'; }

// A device of Windows in whatever folder and whatever follows the dot. To open one does something
// already: a serial port raises its lines, which somebody may have wired to a lamp.
bool is_device(std::string_view name) {
    std::string_view word = name.substr(0, name.find('.'));
    while (!word.empty() && word.back() == ' ') word.remove_suffix(1);
    for (std::string_view device : {"con", "prn", "aux", "nul", "conin$", "conout$"}) {
        if (text::equal_ignoring_case(word, device)) return true;
    }
    const std::string_view port = word.substr(0, 3);
    if (!text::equal_ignoring_case(port, "com") && !text::equal_ignoring_case(port, "lpt")) {
        return false;
    }
    const std::string_view number = word.substr(3);
    const bool is_digit = number.size() == 1 && text::is_digit(number[0]);
    // The raised digits 1, 2 and 3 count too.
    return is_digit || number == "\xc2\xb9" || number == "\xc2\xb2" || number == "\xc2\xb3";
}

bool is_safe(std::string_view name) {
    if (name.front() == '.' || name.back() == '.' || name.back() == ' ') return false;
    if (is_device(name)) return false;
    return std::all_of(name.begin(), name.end(), is_safe_byte);
}

}  // namespace

std::optional<std::vector<std::string>> path_names(std::string_view path) {
    std::vector<std::string> names;
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        auto name = text::percent_decoded(path.substr(0, length));
        path.remove_prefix(std::min(path.size(), length + 1));
        if (!name) return std::nullopt;
        if (name->empty()) continue;
        if (!is_safe(*name)) return std::nullopt;
        names.push_back(*std::move(name));
    }
    return names;
}

}  // namespace pennywort::httpserver
