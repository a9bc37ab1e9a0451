// host/advertise/advertiser.h - keeps a service advertised, also past the end of the system's
// DNS-SD daemon.
//
// Threads: as cBonjour's (include/bonjour.h).
#pragma once

#include <functional>
#include <string>

#include "bonjour.h"
#include "core/run/deadline.h"
#include "loam/string.h"

namespace pennywort::host {

struct advertised_service {
    std::string what;  // for the user: "the control page"
    std::string type;
    std::int32_t port = 0;
    zString text;  // the TXT record
};

// The service is withdrawn with it. Where it cannot be advertised it is tried again.
class advertiser {
public:
    // `tell` hears a line when the service cannot be advertised, within the constructor too, when
    // the daemon ends, and when the service is advertised after either.
    advertiser(advertised_service service, std::function<void(const std::string& line)> tell,
               const run::monotonic_clock& clock = run::monotonic_clock::system());

    // For each turn of the loop.
    void look_after();

private:
    void begin();
    void lose();

    const advertised_service m_service;
    const std::function<void(const std::string&)> m_tell;
    const run::monotonic_clock& m_clock;
    cBonjour m_bonjour;
    bool m_is_advertised = false;
    bool m_is_missed = false;  // the user was told of its end
    run::deadline m_next_try;
};

}  // namespace pennywort::host
