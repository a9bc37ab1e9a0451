// loam/id_generator.cpp - see the header for the contract.
#include "loam/id_generator.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <string>

#include "loam/random_bytes.h"

namespace {

using uuid_bytes = std::array<unsigned char, 16>;

// Version 4, variant 1 of RFC 4122; every other bit is random.
void mark_as_random_uuid(uuid_bytes& bytes) {
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
}

std::string uuid_text(const uuid_bytes& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        text += fmt::format("{:02x}", bytes[i]);
    }
    return text;
}

}  // namespace

const char* zIDGenerator::GenerateUUID(zString& out) {
    uuid_bytes bytes{};
    if (!loam::fill_random(bytes)) {
        out = "";
        return out.CString();
    }
    mark_as_random_uuid(bytes);
    out = uuid_text(bytes);
    return out.CString();
}
