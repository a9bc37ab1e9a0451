// core/utils.cpp - header parsing of include/utils.h. No clock, no I/O, no system header.
#include "utils.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "loam/string.h"

namespace {

const char* find(const char* from, char wanted, std::int32_t length) {
    return static_cast<const char*>(std::memchr(from, wanted, static_cast<std::size_t>(length)));
}

// A header that may go over several lines.
struct logical_header {
    const char* start;
    const char* colon = nullptr;
};

void store(zRecord& headers, const logical_header& header, const char* end) {
    if (header.colon == nullptr) return;
    const auto name_length = static_cast<std::size_t>(header.colon - header.start);
    std::array<char, pennywort::k_max_header_name + 1> name;
    if (name_length >= name.size()) return;
    std::memcpy(name.data(), header.start, name_length);
    name[name_length] = '\0';
    // The byte behind the colon is taken for the space that writers put there, without a look.
    const auto value_length = end - header.colon - 2;
    // A peer chooses how much memory its headers take.
    pennywort::run::guarded("cUtils", "a header", [&] {
        if (value_length < 1) {
            headers.SetCString(name.data(), "", 0);
        } else {
            headers.SetText(name.data(), header.colon + 2, static_cast<std::uint32_t>(value_length),
                            0);
        }
    });
}

// Of an entry; other white space is a part of its words.
bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// One word of an entry, from its first byte that is no white space to the next white space or, at
// the latest, the entry's end.
struct word {
    const char* start = nullptr;
    std::int32_t length = 0;  // 0 while the word goes on

    void take(const char* at) {
        if (is_space(*at)) {
            if (start != nullptr && length == 0) end(at);
        } else if (start == nullptr) {
            start = at;
        }
    }
    void end(const char* at) {
        if (start != nullptr && length == 0) length = static_cast<std::int32_t>(at - start);
    }
};

std::int32_t distance(const char* from, const char* to) {
    return static_cast<std::int32_t>(to - from);
}

// Walks to the semicolon or the end, and returns where the next entry begins.
const char* read_value(const char* at, word& value) {
    for (; *at != '\0' && *at != ';'; ++at) value.take(at);
    value.end(at);
    return *at == ';' ? at + 1 : at;
}

// Reads one entry and returns where the next one begins.
const char* read_entry(const char* at, word& name, word& value) {
    for (; *at != '\0' && *at != ';' && *at != '='; ++at) name.take(at);
    name.end(at);
    if (*at == ';') {
        std::swap(name, value);
        return at + 1;
    }
    if (*at == '=') ++at;
    return name.length == 0 ? at : read_value(at, value);
}

}  // namespace

// The walk of a whole buffer stays linear: what is looked through for the colon has been walked
// already, and each line begins where the one before it has ended.
std::int32_t cUtils::HeaderParse_ToNextLine(const char* buffer, std::int32_t length,
                                            std::int32_t* lineLength, const char** colon) {
    std::int32_t used = length;
    *lineLength = length;
    const char* const end = buffer + length;
    for (const char* at = buffer; end - at >= 2; ++at) {
        at = find(at, '\r', distance(at, end) - 1);
        if (at == nullptr) break;
        if (at[1] == '\n') {
            *lineLength = distance(buffer, at);
            used = *lineLength + 2;
            break;
        }
    }
    *colon = find(buffer, ':', *lineLength);
    return used;
}

std::int32_t cUtils::HeaderParse(const char* buffer, std::int32_t length, zRecord& headers) {
    if (buffer == nullptr || length <= 0) return 0;
    const char* position = buffer;
    std::int32_t remaining = length;
    logical_header header{buffer};
    while (true) {
        std::int32_t line_length = 0;
        const char* colon = nullptr;
        const std::int32_t used = HeaderParse_ToNextLine(position, remaining, &line_length, &colon);
        if (header.colon == nullptr) header.colon = colon;
        const char* const next = position + used;
        const bool goes_on = used < remaining && (*next == ' ' || *next == '\t');
        if (!goes_on) {
            store(headers, header, position + line_length);
            header = {next};
        }
        if (used == 0 || line_length == 0) return distance(buffer, position);
        position = next;
        remaining -= used;
    }
}

std::int32_t cUtils::HeaderEntry_ParseToNextEntry(const char* value, const char** name,
                                                  std::int32_t* nameLength, const char** entryValue,
                                                  std::int32_t* entryValueLength) {
    word found_name;
    word found_value;
    const char* const start = value != nullptr ? value : "";
    const char* const next = read_entry(start, found_name, found_value);
    *name = found_name.start;
    *nameLength = found_name.length;
    *entryValue = found_value.start;
    *entryValueLength = found_value.length;
    return distance(start, next);
}

zStatus cUtils::HeaderEntry_FindByName(const char* value, const char* name, const char** entryValue,
                                       std::int32_t* entryValueLength) {
    const char* at = value != nullptr ? value : "";
    while (*at != '\0') {
        const char* entry_name = nullptr;
        std::int32_t name_length = 0;
        at += HeaderEntry_ParseToNextEntry(at, &entry_name, &name_length, entryValue,
                                           entryValueLength);
        if (name_length > 0 && zString::strncasecmp(entry_name, name, name_length) == 0) {
            return pennywort::k_ok;
        }
    }
    *entryValue = nullptr;
    *entryValueLength = 0;
    return pennywort::k_failed;
}

const char* cUtils::XOP_MakeContentIDHeaderString(zString& out, const char* id) {
    return out.sprintf("<%s>", id != nullptr ? id : "");
}

const char* cUtils::XOP_MakeReference(zString& out, const char* id) {
    return out.sprintf("cid:%s", id != nullptr ? id : "");
}
