// fake_network.h - what tests of cBonjour on the fake DNS-SD library have in common.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bonjour.h"
#include "discovery/socket_events.h"
#include "loam/message_loop.h"
#include "tests/discovery/listener.h"
#include "tests/fakes/fake_dnssd.h"
#include "tests/support/collected_traces.h"

namespace pennywort::tests {

// Does whatever is ready on this thread's loop.
inline void run_loop() {
    while (zMessageLoop::RunOnce(0)) {
    }
}

inline bool tell(const char* name, bool is_added = true, std::uint32_t interface_index = 2) {
    return fake_dnssd::tell(k_http,
                            {is_added ? 2u : 0u, interface_index, 0, name, k_http, "local."});
}
inline void serve(const char* name, std::uint16_t port = 8080, const std::string& txt = "") {
    fake_dnssd::set_service({name, k_http, "local.", "studio.local.", port, txt.data(),
                             static_cast<std::uint16_t>(txt.size())});
}

// How often something stands in what the library was asked.
inline int count_of(const std::string& part) {
    const std::string all = fake_dnssd::calls();
    int count = 0;
    for (auto at = all.find(part); at != std::string::npos; at = all.find(part, at + 1)) ++count;
    return count;
}

// No wait takes its time: what has not come when it is asked for does not come.
class FakeNetwork : public testing::Test {
protected:
    void SetUp() override {
        fake_dnssd::reset();
        s_waits = 0;
        discovery::event_calls_in_use().wait = [](int socket, int ms) {
            s_waits += ms > 0 ? 1 : 0;
            return discovery::wait_for_arrival(socket, 0);
        };
    }
    void TearDown() override {
        fake_dnssd::set_hook(nullptr, nullptr);
        EXPECT_EQ(fake_dnssd::live_references(), 0) << "references were not given back";
        EXPECT_EQ(fake_dnssd::waits(), 0) << "the library would have waited";
        discovery::event_calls_in_use() = {};
    }
    // How often something was given time to come.
    static int waits() { return s_waits; }

private:
    inline static int s_waits = 0;
};

}  // namespace pennywort::tests
