// netlink_bytes.h - the messages and attributes of the kernel's netlink, read from bytes that may
// be cut anywhere, and written. Numbers of this protocol are big-endian but for those of its frame.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::firewall {

// Bytes that somebody else keeps. Without a pointer: there is no such thing.
using bytes_view = std::string_view;

struct attribute {
    std::uint16_t type = 0;
    bytes_view value;
};

// The attributes of a list, one after the other. Reading ends at the first that does not fit.
class attribute_reader {
public:
    explicit attribute_reader(bytes_view list) : m_rest(list) {}
    bool next(attribute& found);

private:
    bytes_view m_rest;
};

// The first attribute of a type; no pointer where there is none.
bytes_view attribute_of(bytes_view list, std::uint16_t type);
// A name, without the NUL that ends it there; "" where there is none.
bytes_view name_of(bytes_view list, std::uint16_t type);
std::optional<std::uint32_t> number_of(bytes_view list, std::uint16_t type);
std::optional<std::uint64_t> long_number_of(bytes_view list, std::uint16_t type);

struct netlink_message {
    std::uint16_t type = 0;
    std::uint16_t flags = 0;
    std::uint32_t sequence = 0;
    bytes_view content;  // behind the header
};

// The family that an nftables message is about, and its attributes.
struct nftables_content {
    std::uint8_t family = 0;
    bytes_view attributes;
};
std::optional<nftables_content> nftables_content_of(const netlink_message& message);

class message_reader {
public:
    explicit message_reader(bytes_view bytes) : m_rest(bytes) {}
    bool next(netlink_message& found);
    // Whether what is left is no whole message.
    bool is_cut() const { return !m_rest.empty(); }

private:
    bytes_view m_rest;
};

// A request about nftables: a kind of theirs, flags of netlink's, a family.
std::string nftables_request(std::uint16_t kind, std::uint16_t flags, std::uint8_t family);
// Adds a name, and brings the length in the request's front up to date.
void add_name(std::string& request, std::uint16_t type, bytes_view name);
// Gives the request a number that its answers will have.
void set_sequence(std::string& request, std::uint32_t sequence);

}  // namespace pennywort::firewall
