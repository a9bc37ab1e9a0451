// netlink_bytes.cpp - see the header for the contract.
#include "firewall/netlink_bytes.h"

#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>

#include <algorithm>
#include <cstring>

namespace pennywort::firewall {

namespace {

// A struct of the kernel's at the front of bytes that are aligned to nothing.
template <typename kind>
std::optional<kind> front_of(bytes_view bytes) {
    kind value{};
    if (bytes.size() < sizeof value) return std::nullopt;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

// The next one begins at a multiple of four, unless this one was the last.
bytes_view behind(bytes_view bytes, std::size_t length) {
    return bytes.substr(std::min(bytes.size(), NLMSG_ALIGN(length)));
}

std::optional<std::uint64_t> big_endian(bytes_view value, std::size_t size) {
    if (value.size() != size) return std::nullopt;
    std::uint64_t number = 0;
    for (const char c : value) number = number << 8 | static_cast<unsigned char>(c);
    return number;
}

template <typename kind>
void append(std::string& bytes, const kind& value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

bool attribute_reader::next(attribute& found) {
    const auto head = front_of<nlattr>(m_rest);
    if (!head || head->nla_len < sizeof *head || head->nla_len > m_rest.size()) return false;
    found.type = head->nla_type & NLA_TYPE_MASK;
    found.value = m_rest.substr(sizeof *head, head->nla_len - sizeof *head);
    m_rest = behind(m_rest, head->nla_len);
    return true;
}

bytes_view attribute_of(bytes_view list, std::uint16_t type) {
    attribute_reader all(list);
    for (attribute one; all.next(one);) {
        if (one.type == type) return one.value;
    }
    return {};
}

bytes_view name_of(bytes_view list, std::uint16_t type) {
    const bytes_view text = attribute_of(list, type);
    return text.substr(0, text.find('\0'));
}

std::optional<std::uint32_t> number_of(bytes_view list, std::uint16_t type) {
    const auto number = big_endian(attribute_of(list, type), sizeof(std::uint32_t));
    return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

std::optional<std::uint64_t> long_number_of(bytes_view list, std::uint16_t type) {
    return big_endian(attribute_of(list, type), sizeof(std::uint64_t));
}

bool message_reader::next(netlink_message& found) {
    const auto head = front_of<nlmsghdr>(m_rest);
    if (!head || head->nlmsg_len < sizeof *head || head->nlmsg_len > m_rest.size()) return false;
    found.type = head->nlmsg_type;
    found.flags = head->nlmsg_flags;
    found.sequence = head->nlmsg_seq;
    found.content = m_rest.substr(sizeof *head, head->nlmsg_len - sizeof *head);
    m_rest = behind(m_rest, head->nlmsg_len);
    return true;
}

std::optional<nftables_content> nftables_content_of(const netlink_message& message) {
    const auto head = front_of<nfgenmsg>(message.content);
    if (!head) return std::nullopt;
    return nftables_content{head->nfgen_family, behind(message.content, sizeof *head)};
}

std::string nftables_request(std::uint16_t kind, std::uint16_t flags, std::uint8_t family) {
    nlmsghdr head{};
    head.nlmsg_len = sizeof(nlmsghdr) + sizeof(nfgenmsg);
    head.nlmsg_type = static_cast<std::uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | kind);
    head.nlmsg_flags = flags;
    nfgenmsg about{};
    about.nfgen_family = family;
    about.version = NFNETLINK_V0;
    std::string request;
    append(request, head);
    append(request, about);
    return request;
}

void add_name(std::string& request, std::uint16_t type, bytes_view name) {
    nlattr head{};
    head.nla_len = static_cast<std::uint16_t>(sizeof head + name.size() + 1);
    head.nla_type = type;
    append(request, head);
    request.append(name);
    request.append(NLMSG_ALIGN(name.size() + 1) - name.size(), '\0');
    const auto length = static_cast<std::uint32_t>(request.size());
    std::memcpy(request.data() + offsetof(nlmsghdr, nlmsg_len), &length, sizeof length);
}

void set_sequence(std::string& request, std::uint32_t sequence) {
    std::memcpy(request.data() + offsetof(nlmsghdr, nlmsg_seq), &sequence, sizeof sequence);
}

}  // namespace pennywort::firewall
