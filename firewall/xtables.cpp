// xtables.cpp - see the header for the contract.
#include "firewall/xtables.h"

#include <linux/netfilter/nf_tables_compat.h>
#include <linux/netfilter/xt_addrtype.h>
#include <linux/netfilter/xt_conntrack.h>
#include <linux/netfilter/xt_multiport.h>
#include <linux/netfilter/xt_state.h>
#include <linux/netfilter/xt_tcpudp.h>

#include <algorithm>
#include <cstring>

namespace pennywort::firewall {

namespace {

// In a struct of iptables, numbers are the machine's own.
constexpr std::uint32_t k_new_state = 1u << 3;
constexpr std::uint8_t k_syn = 0x02;
constexpr std::uint8_t k_known_flags = 0x3f;
constexpr std::uint32_t k_highest_port = 65535;

struct match_info {
    std::uint32_t revision = 0;
    bytes_view bytes;
};

// What a match is set to; false where it is shorter than it should be.
template <typename kind>
bool read(const match_info& info, kind& settings) {
    if (info.bytes.size() < sizeof settings) return false;
    std::memcpy(&settings, info.bytes.data(), sizeof settings);
    return true;
}

truth inverted_if(bool is_inverted, truth so) { return is_inverted ? not_so(so) : so; }

truth any_comment(const match_info&, const packet&) { return truth::yes; }

template <typename kind>
truth conntrack_of(const match_info& info, const packet& what) {
    kind settings;
    if (!read(info, settings) || !what.is_tracked()) return truth::maybe;
    truth so = truth::yes;
    if ((settings.match_flags & XT_CONNTRACK_STATE) != 0) {
        so = inverted_if((settings.invert_flags & XT_CONNTRACK_STATE) != 0,
                         certain((settings.state_mask & k_new_state) != 0));
    }
    const bool has_more = (settings.match_flags & ~XT_CONNTRACK_STATE) != 0;
    return has_more ? both(so, truth::maybe) : so;
}

truth conntrack(const match_info& info, const packet& what) {
    switch (info.revision) {
        case 1:
            return conntrack_of<xt_conntrack_mtinfo1>(info, what);
        case 2:
            return conntrack_of<xt_conntrack_mtinfo2>(info, what);
        case 3:
            return conntrack_of<xt_conntrack_mtinfo3>(info, what);
        default:
            return truth::maybe;
    }
}

truth state(const match_info& info, const packet& what) {
    xt_state_info settings;
    if (!read(info, settings) || !what.is_tracked()) return truth::maybe;
    return certain((settings.statemask & k_new_state) != 0);
}

// Of two ports, the second ends a range where a flag says that the first begins one.
bool has_port(const xt_multiport_v1& settings, std::uint16_t port) {
    const std::size_t count = std::min<std::size_t>(settings.count, XT_MULTI_PORTS);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint16_t low = settings.ports[i];
        const bool is_range = settings.pflags[i] != 0 && i + 1 < count;
        if (is_range) ++i;
        if (port >= low && port <= settings.ports[i]) return true;
    }
    return false;
}

truth multiport(const match_info& info, const packet& what) {
    xt_multiport_v1 settings;
    if (info.revision != 1 || !read(info, settings)) return truth::maybe;
    const bool is_there = has_port(settings, what.port());
    const bool is_told = settings.flags == XT_MULTIPORT_DESTINATION ||
                         (settings.flags == XT_MULTIPORT_EITHER && is_there);
    return is_told ? inverted_if(settings.invert != 0, certain(is_there)) : truth::maybe;
}

// The receiver's address is this machine's own.
truth addrtype(const match_info& info, const packet&) {
    xt_addrtype_info_v1 settings;
    if (info.revision != 1 || !read(info, settings)) return truth::maybe;
    truth so = settings.source != 0 ? truth::maybe : truth::yes;
    if (settings.dest != 0) {
        so = both(so, inverted_if((settings.flags & XT_ADDRTYPE_INVERT_DEST) != 0,
                                  certain((settings.dest & XT_ADDRTYPE_LOCAL) != 0)));
    }
    const bool has_limit =
        (settings.flags & (XT_ADDRTYPE_LIMIT_IFACE_IN | XT_ADDRTYPE_LIMIT_IFACE_OUT)) != 0;
    return has_limit ? both(so, truth::maybe) : so;
}

truth flags_of_first(const xt_tcp& settings) {
    if (((settings.flg_mask | settings.flg_cmp) & ~k_known_flags) != 0) return truth::maybe;
    return certain((k_syn & settings.flg_mask) == settings.flg_cmp);
}

truth tcp(const match_info& info, const packet& what) {
    xt_tcp settings;
    if (!read(info, settings)) return truth::maybe;
    const bool is_any_sender = settings.spts[0] == 0 && settings.spts[1] == k_highest_port;
    const bool is_there = what.port() >= settings.dpts[0] && what.port() <= settings.dpts[1];
    truth so = inverted_if((settings.invflags & XT_TCP_INV_DSTPT) != 0, certain(is_there));
    so = both(so, inverted_if((settings.invflags & XT_TCP_INV_SRCPT) != 0,
                              is_any_sender ? truth::yes : truth::maybe));
    so = both(so,
              inverted_if((settings.invflags & XT_TCP_INV_FLAGS) != 0, flags_of_first(settings)));
    return settings.option != 0 ? both(so, truth::maybe) : so;
}

struct known_match {
    std::string_view name;
    truth (*meets)(const match_info&, const packet&);
};
constexpr known_match k_matches[] = {
    {"conntrack", &conntrack}, {"tcp", &tcp},     {"multiport", &multiport},
    {"addrtype", &addrtype},   {"state", &state}, {"comment", &any_comment},
};

struct known_target {
    std::string_view name;
    target_effect effect;
};
constexpr known_target k_targets[] = {
    {"REJECT", target_effect::drops},
    {"LOG", target_effect::none},
    {"NFLOG", target_effect::none},
    {"AUDIT", target_effect::none},
    {"MARK", target_effect::none},
    {"CONNMARK", target_effect::none},
    {"SET", target_effect::none},
    {"TRACE", target_effect::none},
    {"TCPMSS", target_effect::none},
    {"CT", target_effect::none},
    {"NOTRACK", target_effect::none},
    {"CHECKSUM", target_effect::none},
    {"DNAT", target_effect::leads_elsewhere},
    {"REDIRECT", target_effect::leads_elsewhere},
    {"NETMAP", target_effect::leads_elsewhere},
    {"TPROXY", target_effect::leads_elsewhere},
};

}  // namespace

truth meets_match(bytes_view match, const packet& what) {
    const bytes_view name = name_of(match, NFTA_MATCH_NAME);
    const match_info info{number_of(match, NFTA_MATCH_REV).value_or(0),
                          attribute_of(match, NFTA_MATCH_INFO)};
    for (const known_match& one : k_matches) {
        if (one.name == name) return one.meets(info, what);
    }
    return truth::maybe;
}

target_effect effect_of_target(bytes_view target) {
    const bytes_view name = name_of(target, NFTA_TARGET_NAME);
    for (const known_target& one : k_targets) {
        if (one.name == name) return one.effect;
    }
    return target_effect::anything;
}

}  // namespace pennywort::firewall
