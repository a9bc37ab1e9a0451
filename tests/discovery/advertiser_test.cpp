// advertiser_test.cpp - a service that stays advertised past the end of the daemon.
#include "host/advertise/advertiser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string_view>

#include "loam/message_loop.h"
#include "tests/fakes/fake_dnssd.h"
#include "tests/support/collected_traces.h"
#include "tests/support/fake_clock.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

constexpr char k_ended[] =
    "the DNS-SD daemon has ended: the page is not advertised until it is back\n";

class Advertiser : public testing::Test {
protected:
    void SetUp() override { fake_dnssd::reset(); }
    void TearDown() override {
        m_advertiser.reset();
        EXPECT_EQ(fake_dnssd::live_references(), 0);
        fake_dnssd::reset();
    }

    void advertise() {
        advertised_service page{"the page", "_http._tcp.", 8080, {}};
        cBonjour::TXTAddItem(page.text, "path", "/", 1);
        m_advertiser.emplace(
            std::move(page), [this](const std::string& line) { m_lines += line + "\n"; }, m_clock);
    }
    // What the host does all the time, after so long.
    void turn(std::chrono::seconds later = 0s) {
        m_clock.advance(later);
        while (zMessageLoop::RunOnce(0)) {
        }
        m_advertiser->look_after();
    }

    tests::fake_clock m_clock;
    std::string m_lines;
    std::optional<advertiser> m_advertiser;
};

TEST_F(Advertiser, TellsOfTheServiceWhileItLives) {
    advertise();
    EXPECT_STREQ(fake_dnssd::calls(),
                 "Register flags=0 interface=0 name=(null) type=_http._tcp. domain=(null) "
                 "host=(null) port=8080 txt=7\n");
    turn(10s);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    EXPECT_EQ(m_lines, "");
}

TEST_F(Advertiser, SaysWhenTheDaemonEndsAndTellsItAgainWhenItIsBack) {
    advertise();
    const tests::collected_traces traces;
    fake_dnssd::kill_daemon();
    turn();
    EXPECT_EQ(m_lines, k_ended);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
    turn(2s);
    fake_dnssd::start_daemon();
    fake_dnssd::forget_calls();
    turn(1s);
    EXPECT_STREQ(fake_dnssd::calls(), "") << "a try is not made every turn";
    turn(1s);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    EXPECT_EQ(m_lines, std::string(k_ended) + "the page is advertised now\n");
    fake_dnssd::kill_daemon();
    turn();
    fake_dnssd::start_daemon();
    turn(2s);
    EXPECT_EQ(fake_dnssd::live_references(), 1) << "the second time";
}

TEST_F(Advertiser, TriesAgainWhereNoDaemonWasAtFirst) {
    fake_dnssd::kill_daemon();
    const tests::collected_traces traces;
    advertise();
    const std::string refused =
        "the page is not advertised: the DNS-SD daemon refuses; is it running (on Linux "
        "avahi-daemon)?\n";
    EXPECT_EQ(m_lines, refused);
    turn(2s);
    EXPECT_EQ(m_lines, refused) << "each try is not told";
    fake_dnssd::start_daemon();
    turn(2s);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    EXPECT_EQ(m_lines, refused + "the page is advertised now\n");
}

}  // namespace
}  // namespace pennywort::host
