// header_lines_fuzz.cpp - heads of any bytes into a record, against a plain way to do the same.
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "core/text/ascii.h"
#include "fuzz/fuzz.h"
#include "httpclient/header_lines.h"

using namespace pennywort;

namespace {

using plain_headers = std::map<std::string, std::string>;

// Byte by byte: a name up to the first colon, a byte that is passed over, a value without its last.
void add_plain(const std::string& line, plain_headers& into) {
    std::string name;
    std::size_t at = 0;
    while (at < line.size() && line[at] != ':') name += line[at++];
    if (at == line.size() || line.size() < 4) return;
    std::string value;
    for (at += 2; at + 1 < line.size(); ++at) value += line[at];
    into[name] = value;
}

plain_headers plain(std::string_view lines) {
    plain_headers all;
    std::string line;
    for (const char c : lines) {
        if (c != '\n') {
            line += c;
            continue;
        }
        add_plain(line, all);
        line.clear();
    }
    if (!line.empty()) add_plain(line, all);
    return all;
}

void check_last_values(std::string_view lines) {
    zRecord headers;
    httpclient::store_header_lines(lines, false, headers);
    const plain_headers want = plain(lines);
    require(headers.VariableCount() == want.size(), "as many headers");
    for (const auto& [name, value] : want) {
        require(headers.Has(name.c_str()), "each name is there");
        require(headers.AsString(name.c_str(), "") == value, "with its last value");
    }
}

void check_all_values(std::string_view lines) {
    zRecord headers;
    httpclient::store_header_lines(lines, true, headers);
    const plain_headers last = plain(lines);
    require(headers.VariableCount() <= last.size(), "names of another case are joined");
    for (std::uint32_t i = 0; i < headers.VariableCount(); ++i) {
        for (std::uint32_t j = 0; j < i; ++j) {
            require(!text::equal_ignoring_case(headers.VariableName(i), headers.VariableName(j)),
                    "no name stands twice");
        }
    }
}

void look(const std::uint8_t* data, std::size_t size) {
    std::string lines(reinterpret_cast<const char*>(data), size);
    // No head holds one: the parser before refuses it.
    for (char& c : lines) {
        if (c == '\0') c = '0';
    }
    check_last_values(lines);
    check_all_values(lines);
}

const fuzz_target k_target("header_lines", look);

}  // namespace
