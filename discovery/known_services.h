// known_services.h - what a browse that reports each service once knows of those that it has seen.
// No network, no clock.
//
// Threads: not locked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "loam/string.h"

namespace pennywort::discovery {

// Where a service is and what its TXT record says, the bytes as they came.
struct service_details {
    std::string host;
    std::int32_t port = 0;
    std::vector<unsigned char> txt;
};

struct service_key {
    std::string name;
    std::string type;
    std::string domain;
    // Where each interface counts for itself; 0 elsewhere.
    std::uint32_t interface_index = 0;
    // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 sees a comparison with 0 in it.
    auto operator<=>(const service_key&) const = default;
};

struct service_to_look_up {
    service_key key;
    std::uint32_t interface_index = 0;
    // Of this stay: what goes and comes back has another one.
    std::uint64_t stay = 0;
};

// Anybody on the network can name services, as many as they like.
inline constexpr std::size_t k_max_known_services = 65536;

class known_services {
public:
    // A service has come on one more interface or protocol. If nobody has heard of it yet it waits
    // to be looked up there, once. False when there are too many, and then nothing is known of it.
    bool add(const service_key& key, std::uint32_t interface_index);
    bool has_waiting() const { return !m_waiting.empty(); }
    // Whether another one waits than this one, whose look-up is under way and may make all others
    // of it needless.
    bool has_waiting_beside(const service_key& key) const {
        return has_waiting() && m_waiting.front() != key;
    }
    // The next one to look up that is still there and that nobody has heard of; nothing when there
    // is none. Whatever else is to be looked up of it comes behind all others.
    std::optional<service_to_look_up> next();
    // Whether it has not gone since, nor come back, and nobody has heard of it.
    bool is_wanted(const service_key& key, std::uint64_t stay) const;
    // It has been looked up. True when it is wanted; from now on they have heard of it.
    bool tell(const service_key& key, std::uint64_t stay, const service_details& details);
    // It has gone from one of them. True, and what is known of it, when it was the last one and
    // somebody has heard of it.
    bool remove(const service_key& key, service_details& details);

private:
    struct known {
        int copies = 0;
        std::uint64_t stay = 0;
        bool is_told = false;
        service_details details;
        std::vector<std::uint32_t> interfaces;   // on which it is to be looked up
        std::list<service_key>::iterator place;  // among those that wait
        bool is_waiting = false;
    };

    void wait(const service_key& key, known& one);
    void stop_waiting(known& one);

    std::map<service_key, known> m_services;
    std::list<service_key> m_waiting;
    std::uint64_t m_last_stay = 0;
};

}  // namespace pennywort::discovery
