// nf_link.h - a conversation with the kernel's packet filter. Its one half is nf_link_linux.cpp: on
// Windows the firewall manager is asked instead. Tests stand in for the kernel.
#pragma once

#include <memory>
#include <string>

#include "core/outcome.h"

namespace pennywort::firewall {

class nf_link {
public:
    static outcome<std::unique_ptr<nf_link>> open();
    // Over a socket that is open already, and closed with the link; also where this throws.
    static std::unique_ptr<nf_link> over(int socket);
    virtual ~nf_link() = default;

    // All messages that come as the answer to a request, one behind the other.
    virtual outcome<std::string> ask(std::string request) = 0;
};

// The rules have changed while they were read: to be asked again.
inline constexpr zStatus k_rules_changed = -2;

}  // namespace pennywort::firewall
