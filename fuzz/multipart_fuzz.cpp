// multipart_fuzz.cpp - cMultipartReader with any message, beside a plain reading of the same rules,
// and what it finds written and read again.
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz.h"
#include "multipart.h"
#include "utils.h"

namespace {

constexpr std::string_view k_boundary = "B";

struct part {
    std::size_t offset;
    std::size_t size;
};

struct plain_reading {
    zStatus status = -1;
    std::vector<part> parts;
};

// The headers of a part are taken for granted: header_parse_fuzz is about them.
std::size_t header_bytes(std::string_view text) {
    zRecord headers;
    return static_cast<std::size_t>(
        cUtils::HeaderParse(text.data(), static_cast<std::int32_t>(text.size()), headers));
}

// Reads one part behind a delimiter that ends at `at`, which moves behind the next one; false at
// the end, with the status set.
bool read_part(std::string_view body, std::size_t& at, plain_reading& found) {
    const std::string_view rest = body.substr(at);
    found.status = 0;
    if (rest.size() < 2 || rest[0] == '-' || rest[1] == '-') return false;
    found.status = -1;
    if (rest.size() < 3) return false;
    found.parts.push_back({0, 0});
    const std::size_t data = 4 + header_bytes(rest.substr(2));
    if (rest.size() <= data) return false;
    const std::string delimiter = "\r\n--" + std::string(k_boundary);
    const std::size_t end = rest.find(delimiter, data);
    if (end == std::string_view::npos) return false;
    found.parts.back() = {at + data, end - data};
    at += end + delimiter.size();
    return at < body.size();
}

plain_reading plainly_read(std::string_view body) {
    plain_reading found;
    std::size_t at = 2 + k_boundary.size();
    if (body.size() <= at) return found;
    while (read_part(body, at, found)) {
    }
    return found;
}

void require_same(const plain_reading& wanted, const zRecord& record) {
    require(record.ChildCount() == wanted.parts.size(), "as many parts are found");
    for (std::uint32_t i = 0; i < record.ChildCount(); ++i) {
        const part& each = wanted.parts[i];
        const zRecord& section = *record.Child(i);
        require(section.AsInt32("__data_offset", -1) == static_cast<std::int32_t>(each.offset),
                "a part begins where it does");
        require(section.AsInt32("__data_size", -1) == static_cast<std::int32_t>(each.size),
                "a part has its size");
    }
}

void read_whole_message(std::string_view text) {
    zRecord record;
    cMultipartReader reader(record);
    const auto length = static_cast<std::int32_t>(text.size());
    reader.Parse_WithHeaders(text.data(), length);
    for (std::uint32_t i = 0; i < record.ChildCount(); ++i) {
        cMultipartRecord::Section section;
        cMultipartRecord(record, nullptr).GetSection(section, static_cast<std::int32_t>(i));
        const char* data = nullptr;
        std::int32_t size = 0;
        if (reader.GetSectionData(section, text.data(), length, &data, &size) != 0) continue;
        require(data >= text.data() && data + size <= text.data() + length,
                "a part lies in the message");
    }
}

void look(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    zRecord record;
    cMultipartReader reader(record);
    const zStatus status =
        reader.Parse_BodyOnly(text.data(), static_cast<std::int32_t>(size), k_boundary.data(),
                              static_cast<std::int32_t>(k_boundary.size()), 0);
    const plain_reading wanted = plainly_read(text);
    require(status == wanted.status, "the status is the same");
    require_same(wanted, record);
    read_whole_message(text);
}

const fuzz_target k_target("multipart", look);

}  // namespace
