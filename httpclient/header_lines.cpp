// header_lines.cpp - see the header for the contract.
#include "httpclient/header_lines.h"

#include <string>

#include "core/text/ascii.h"

namespace pennywort::httpclient {

namespace {

constexpr std::size_t k_shortest_line = 4;

// The name under which the record has this header already; the given one if it has none.
std::string stored_name(const zRecord& headers, const std::string& name) {
    for (std::uint32_t i = 0; i < headers.VariableCount(); ++i) {
        if (text::equal_ignoring_case(headers.VariableName(i), name))
            return headers.VariableName(i);
    }
    return name;
}

void join(zRecord& headers, const std::string& name, const std::string& value) {
    const std::string stored = stored_name(headers, name);
    if (!headers.Has(stored.c_str())) {
        headers.SetString(stored.c_str(), value);
        return;
    }
    const char* const between = text::equal_ignoring_case(name, "Set-Cookie") ? "\n" : ", ";
    headers.SetString(stored.c_str(), headers.AsString(stored.c_str(), "") + between + value);
}

void store(std::string_view line, bool keep_repeated, zRecord& headers) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || line.size() < k_shortest_line) return;
    const std::string name(line.substr(0, colon));
    const std::size_t start = colon + 2;
    const std::size_t end = line.size() - 1;
    const std::string value(start < end ? line.substr(start, end - start) : std::string_view());
    if (keep_repeated) {
        join(headers, name, value);
    } else {
        headers.SetString(name.c_str(), value);
    }
}

}  // namespace

void store_header_lines(std::string_view lines, bool keep_repeated, zRecord& headers) {
    while (!lines.empty()) {
        const std::size_t feed = lines.find('\n');
        store(lines.substr(0, feed), keep_repeated, headers);
        if (feed == std::string_view::npos) return;
        lines.remove_prefix(feed + 1);
    }
}

}  // namespace pennywort::httpclient
