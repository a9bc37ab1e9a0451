// host/advertise/advertiser.cpp - see the header for the contract.
#include "host/advertise/advertiser.h"

#include <chrono>
#include <utility>

#include "host/discover/service_words.h"

namespace pennywort::host {

namespace {

// A daemon that is started anew takes a second or two.
constexpr std::chrono::seconds k_between_tries{2};

}  // namespace

advertiser::advertiser(advertised_service service,
                       std::function<void(const std::string& line)> tell,
                       const run::monotonic_clock& clock)
    : m_service(std::move(service)),
      m_tell(std::move(tell)),
      m_clock(clock),
      m_next_try(k_between_tries, clock) {
    begin();
    if (m_is_advertised) return;
    m_is_missed = true;
    m_tell(m_service.what + " is not advertised: " + dnssd_failure(m_bonjour));
}

void advertiser::look_after() {
    if (m_is_advertised && m_bonjour.HasLostDaemon()) lose();
    if (m_is_advertised || !m_next_try.has_passed() || !cBonjour::SystemHasBonjour()) return;
    begin();
    if (!m_is_advertised || !std::exchange(m_is_missed, false)) return;
    m_tell(m_service.what + " is advertised now");
}

void advertiser::begin() {
    m_next_try = run::deadline(k_between_tries, m_clock);
    m_is_advertised =
        m_bonjour.Service_Advertise("", m_service.type.c_str(), m_service.port,
                                    m_service.text.CString(), m_service.text.Length()) == 0;
}

// What it knew is dead, and has to be withdrawn before it is asked for anew.
void advertiser::lose() {
    m_bonjour.Service_Unregister(nullptr, 0);
    m_is_advertised = false;
    m_is_missed = true;
    m_next_try = run::deadline(k_between_tries, m_clock);
    m_tell("the DNS-SD daemon has ended: " + m_service.what +
           " is not advertised until it is back");
}

}  // namespace pennywort::host
