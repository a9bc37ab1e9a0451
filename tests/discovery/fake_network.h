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
#include "loam/observer.h"
#include "loam/record.h"
#include "tests/fakes/fake_dnssd.h"
#include "tests/support/collected_traces.h"

namespace pennywort::tests {

constexpr char k_http[] = "_http._tcp.";
constexpr std::uint64_t k_what = 0x77686174;
constexpr std::int32_t k_found = 0x63426A2B;
constexpr std::int32_t k_gone = 0x63426A2D;

// Does whatever is ready on this thread's loop.
inline void run_loop() {
    while (zMessageLoop::RunOnce(0)) {
    }
}

// Hears what is found and what is gone.
class listener {
public:
    listener()
        : m_id(zObserverHandler::NewCode()),
          m_handler(m_id,
                    [this](const zRecord& record, std::uint64_t) { m_heard.push_back(record); }) {}

    std::int32_t id() const { return m_id; }
    const std::vector<zRecord>& heard() const { return m_heard; }
    // "+name" and "-name" for each, with a space between.
    std::string names() const {
        std::string all;
        for (const zRecord& one : m_heard) {
            all += (all.empty() ? "" : " ");
            all += one.AsInt32(k_what, 0) == k_found ? '+' : '-';
            all += one.AsString("name", "");
        }
        return all;
    }
    void forget() { m_heard.clear(); }

private:
    std::int32_t m_id;
    std::vector<zRecord> m_heard;
    zObserverHandler m_handler;
};

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
        discovery::event_calls_in_use().wait = [](int socket, int) {
            return discovery::wait_for_arrival(socket, 0);
        };
    }
    void TearDown() override {
        fake_dnssd::set_hook(nullptr, nullptr);
        EXPECT_EQ(fake_dnssd::live_references(), 0) << "references were not given back";
        EXPECT_EQ(fake_dnssd::waits(), 0) << "the library would have waited";
        discovery::event_calls_in_use() = {};
    }
};

}  // namespace pennywort::tests
