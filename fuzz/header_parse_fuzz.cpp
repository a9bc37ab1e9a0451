// header_parse_fuzz.cpp - cUtils with any header block, beside a plain reading of the same rules,
// and with any header value.
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz.h"
#include "loam/record.h"
#include "utils.h"

namespace {

struct line {
    std::string_view text;  // without its end
    std::size_t used;
};

line first_line(std::string_view rest) {
    const std::size_t end = rest.find("\r\n");
    if (end == std::string_view::npos) return {rest, rest.size()};
    return {rest.substr(0, end), end + 2};
}

bool goes_on(std::string_view rest) {
    return !rest.empty() && (rest.front() == ' ' || rest.front() == '\t');
}

void store(zRecord& headers, std::string_view header, std::size_t colon) {
    if (colon >= 255) return;
    const std::string name(header.substr(0, colon));
    const std::string_view value =
        header.size() > colon + 2 ? header.substr(colon + 2) : std::string_view();
    headers.SetString(name.c_str(), std::string(value));
}

std::size_t plain_parse(std::string_view block, zRecord& headers) {
    std::size_t position = 0;
    std::size_t start = 0;
    std::size_t colon = std::string_view::npos;
    while (true) {
        const line found = first_line(block.substr(position));
        const std::size_t next = position + found.used;
        const std::size_t in_line = found.text.find(':');
        if (colon == std::string_view::npos && in_line != std::string_view::npos) {
            colon = position + in_line - start;
        }
        if (!goes_on(block.substr(next))) {
            const std::size_t end = position + found.text.size();
            if (colon != std::string_view::npos) {
                store(headers, block.substr(start, end - start), colon);
            }
            start = next;
            colon = std::string_view::npos;
        }
        if (found.text.empty()) return position;
        position = next;
    }
}

void require_same(const zRecord& one, const zRecord& other) {
    require(one.VariableCount() == other.VariableCount(), "as many headers are found");
    for (std::uint32_t i = 0; i < one.VariableCount(); ++i) {
        const std::string name = one.VariableName(i);
        require(name == other.VariableName(i), "the names are the same");
        require(one.AsString(name.c_str(), "-") == other.AsString(name.c_str(), "-"),
                "the values are the same");
    }
}

void read_entries(const std::string& value) {
    const char* at = value.c_str();
    const char* const end = at + std::string_view(at).size();
    while (*at != '\0') {
        const char* name = nullptr;
        const char* entry = nullptr;
        std::int32_t name_length = 0;
        std::int32_t entry_length = 0;
        const std::int32_t used =
            cUtils::HeaderEntry_ParseToNextEntry(at, &name, &name_length, &entry, &entry_length);
        require(used > 0 && used <= end - at, "an entry takes bytes, and no more than there are");
        require((name == nullptr) == (name_length == 0), "a name has a length");
        require((entry == nullptr) == (entry_length == 0), "a value has a length");
        require(name == nullptr || (name >= at && name + name_length <= at + used),
                "the name lies in the entry");
        require(entry == nullptr || (entry >= at && entry + entry_length <= at + used),
                "the value lies in the entry");
        at += used;
    }
    const char* found = nullptr;
    std::int32_t length = 0;
    const zStatus status =
        cUtils::HeaderEntry_FindByName(value.c_str(), "boundary", &found, &length);
    require(status == 0 || (found == nullptr && length == 0), "what is not there has no value");
}

void look(const std::uint8_t* data, std::size_t size) {
    const auto* const text = reinterpret_cast<const char*>(data);
    zRecord headers;
    zRecord plain;
    const std::int32_t used = cUtils::HeaderParse(text, static_cast<std::int32_t>(size), headers);
    const std::size_t wanted = plain_parse(std::string_view(text, size), plain);
    require(used >= 0 && static_cast<std::size_t>(used) == wanted, "as many bytes are taken");
    require_same(headers, plain);
    read_entries(std::string(text, size));
}

const fuzz_target k_target("header_parse", look);

}  // namespace
