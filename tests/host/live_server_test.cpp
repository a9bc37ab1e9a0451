// tests/host/live_server_test.cpp - the control page over real sockets: who is refused, and that a
// client which takes nothing stops nobody.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "host/live/live_handler.h"
#include "host/system/own_addresses.h"
#include "tests/httpserver/test_client.h"
#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

class deaf_port : public live_port {
public:
    void load(const std::string&) override { ++calls; }
    void resize(long, long) override { ++calls; }
    void set_visible(bool) override { ++calls; }
    void repaint() override { ++calls; }
    void run_script(std::uint64_t, const std::string&) override { ++calls; }
    void delete_cookies(const std::string&) override { ++calls; }

    int calls = 0;
};

cHttpServerSettings loopback() {
    cHttpServerSettings settings;
    settings.bindAddress = "127.0.0.1";
    return settings;
}

class LiveServer : public testing::Test {
protected:
    explicit LiveServer(const std::string& token = {}) {
        auto* handler = new live_handler(control, live_guard(server.ListenPort(), token));
        server.InstallHandler(*handler);
        handler->Release();
    }
    std::string own_host() { return "127.0.0.1:" + std::to_string(server.ListenPort()); }
    std::string ask(const std::string& line, const std::string& headers) {
        test_client client(server.ListenPort());
        client.send(line + " HTTP/1.1\r\n" + headers + "\r\n");
        return client.receive_answer();
    }
    std::string status(const std::string& line, const std::string& headers) {
        return ask(line, headers).substr(9, 3);
    }

    deaf_port port;
    live_pictures pictures;
    live_control control{port, pictures, {}};
    cHttpServer server{0, 16 * 1024, loopback()};
};

struct foreign_case {
    const char* name;
    const char* headers;  // @ stands for our own address
};
void PrintTo(const foreign_case& c, std::ostream* out) { *out << c.name; }

constexpr foreign_case k_foreign[] = {
    {"NoHost", ""},
    {"ForeignHost", "Host: evil.example\r\n"},
    {"ForeignHostWithOurPort", "Host: evil.example:80\r\nOrigin: http://evil.example:80\r\n"},
    {"OtherPort", "Host: 127.0.0.1:1\r\n"},
    {"TwoHosts", "Host: @\r\nHost: @\r\n"},
    {"ForeignOrigin", "Host: @\r\nOrigin: http://evil.example\r\n"},
    {"OriginOfAFile", "Host: @\r\nOrigin: null\r\n"},
    {"OtherScheme", "Host: @\r\nOrigin: https://@\r\n"},
    {"OriginThatBeginsLikeOurs", "Host: @\r\nOrigin: http://@.evil.example\r\n"},
    {"ForeignFetch", "Host: @\r\nSec-Fetch-Site: cross-site\r\n"},
    {"TwoFetchSites", "Host: @\r\nSec-Fetch-Site: same-origin\r\nSec-Fetch-Site: cross-site\r\n"},
};

class ForeignRequest : public LiveServer, public testing::WithParamInterface<foreign_case> {};

TEST_P(ForeignRequest, IsRefusedWhateverItAsksFor) {
    std::string headers = GetParam().headers;
    for (auto at = headers.find('@'); at != std::string::npos; at = headers.find('@')) {
        headers.replace(at, 1, own_host());
    }
    for (const char* line : {"GET /", "GET /live.js", "GET /api/state", "GET /api/picture"}) {
        EXPECT_EQ(status(line, headers), "403") << line;
    }
    EXPECT_EQ(status("POST /api/repaint", headers + "Content-Length: 0\r\n"), "403");
    EXPECT_EQ(port.calls, 0);
}

INSTANTIATE_TEST_SUITE_P(All, ForeignRequest, testing::ValuesIn(k_foreign),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(LiveServer, OurOwnPageAndScriptsAreAnswered) {
    const std::string host = "Host: " + own_host() + "\r\n";
    EXPECT_EQ(status("GET /", host), "200");
    EXPECT_EQ(status("GET /api/state", host + "Origin: http://" + own_host() + "\r\n"), "200");
    EXPECT_EQ(status("GET /", host + "Sec-Fetch-Site: none\r\n"), "200");
    EXPECT_EQ(status("GET /api/state", host + "Sec-Fetch-Site: same-origin\r\n"), "200");
    EXPECT_EQ(status("POST /api/repaint", host + "Content-Length: 0\r\n"), "200");
    EXPECT_EQ(status("PUT /api/repaint", host + "Content-Length: 0\r\n"), "405");
    EXPECT_EQ(port.calls, 1);
}

TEST_F(LiveServer, BadJsonIsAnsweredWith400) {
    const std::string headers = "Host: " + own_host() + "\r\nContent-Length: 3\r\n\r\n{]}";
    test_client client(server.ListenPort());
    client.send("POST /api/size HTTP/1.1\r\n" + headers);
    EXPECT_EQ(client.receive_answer().substr(9, 3), "400");
}

// Far more than the system's buffers hold between the two.
TEST_F(LiveServer, AClientThatStallsOnAPictureStopsNeitherOthersNorTheDisplay) {
    constexpr long k_noise_side = 3000;
    std::vector<std::uint32_t> noise(k_noise_side * k_noise_side);
    std::uint32_t seed = 1;
    for (auto& pixel : noise) pixel = seed = seed * 1664525u + 1013904223u;
    pictures.painted(noise.data(), k_noise_side, k_noise_side);
    const std::string host = "Host: " + own_host() + "\r\n";
    std::uint64_t number = 0;
    ASSERT_TRUE(tests::eventually([&] { return pictures.take(0, number) != nullptr; }));
    std::vector<std::unique_ptr<test_client>> stalled;
    for (int i = 0; i < 3; ++i) {
        stalled.push_back(std::make_unique<test_client>(server.ListenPort()));
        stalled.back()->send("GET /api/picture HTTP/1.1\r\n" + host + "\r\n");
    }
    for (int i = 0; i < 20; ++i) {
        pictures.painted(noise.data(), k_noise_side, k_noise_side);
        EXPECT_EQ(status("GET /api/state", host), "200");
    }
    EXPECT_EQ(pictures.counts().painted, 21u);
}

TEST_F(LiveServer, ARefusalIsJsonWithTheHeadersOfEveryAnswer) {
    const auto refusal = ask("GET /api/state", "Host: evil.example\r\n");
    EXPECT_EQ(refusal.substr(0, 22), "HTTP/1.1 403 Forbidden");
    EXPECT_NE(refusal.find("\r\nCache-Control: no-store\r\n"), std::string::npos) << refusal;
    EXPECT_NE(refusal.find("\r\nX-Frame-Options: DENY\r\n"), std::string::npos) << refusal;
    EXPECT_EQ(body_of(refusal), "{\"error\":\"a foreign page or name may not ask here\"}");
}

// Only a proxy asks so. The host that its target names is the one that is meant.
TEST(LiveServerThatIsStrict, TakesTheHostOfAWholeTargetForTheHeaders) {
    deaf_port port;
    live_pictures pictures;
    live_control control(port, pictures, {});
    auto settings = loopback();
    settings.isStrict = true;
    cHttpServer server(0, 16 * 1024, settings);
    auto* handler = new live_handler(control, live_guard(server.ListenPort(), {}));
    server.InstallHandler(*handler);
    handler->Release();
    const std::string own = "127.0.0.1:" + std::to_string(server.ListenPort());
    const auto status = [&](const std::string& target, const std::string& host) {
        test_client client(server.ListenPort());
        client.send("GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
        return client.receive_answer().substr(9, 3);
    };
    EXPECT_EQ(status("http://evil.example/api/state", own), "403");
    EXPECT_EQ(status("http://" + own + "/api/state", "evil.example"), "200");
    EXPECT_EQ(status("http://" + own + "/api/state", own), "200");
}

// They are told to whoever comes from another machine.
TEST(OwnAddresses, AreThoseByWhichOthersReachTheMachine) {
    const std::vector<interface_address> all = {
        {"2001:db8::1"},
        {"127.0.0.1", true, true},
        {"10.0.0.7", true, true},  // what somebody has given to the loopback interface
        {"::1"},
        {"192.0.2.1"},
        {"192.0.2.2", false, false},
        {"fe80::1"},
        {"febf::1"},
        {"fec0::1"},
        {"fd00::1"},
        {"10.0.0.8"},
    };
    const std::vector<std::string> want = {"192.0.2.1", "10.0.0.8", "2001:db8::1", "fec0::1",
                                           "fd00::1"};
    EXPECT_EQ(reachable_of(all), want);
}

// Each machine has the loopback interface, of which Wine tells the address of IPv6 alone.
TEST(OwnAddresses, AreToldByTheSystem) {
    const auto all = interface_addresses();
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), [](const auto& one) { return one.is_up; }));
    for (const interface_address& one : all) {
        const bool is_loopback = one.text == "127.0.0.1" || one.text == "::1";
        EXPECT_TRUE(one.is_loopback || !is_loopback) << one.text;
    }
}

// On a machine with a network.
TEST(OwnAddresses, AreListenedOnAndNoneIsOfThisMachineOnly) {
    for (const std::string& address : own_addresses()) {
        EXPECT_FALSE(is_loopback(address)) << address;
        cHttpServerSettings settings;
        settings.bindAddress = zString(address);
        cHttpServer server(0, 4096, settings);
        EXPECT_EQ(server.ListenStatus(), 0) << address;
    }
}

// As many as there is room for, none of which has shown that it may ask.
TEST(LiveServerThatIsFull, ServesWhoMayAskBesideConnectionsThatAskNothing) {
    deaf_port port;
    live_pictures pictures;
    live_control control(port, pictures, {});
    auto settings = loopback();
    settings.isStrict = true;
    settings.maxConnections = 4;
    settings.dropUntrustedWhenFull = true;
    cHttpServer server(0, 16 * 1024, settings);
    auto* handler = new live_handler(control, live_guard(server.ListenPort(), "0123456789abcdef"));
    server.InstallHandler(*handler);
    handler->Release();
    const std::string host = "Host: studio.example\r\n";
    const std::string bearer = host + "Authorization: Bearer 0123456789abcdef\r\n\r\n";
    test_client trusted(server.ListenPort());
    trusted.send("GET /api/state HTTP/1.1\r\n" + bearer);
    EXPECT_EQ(trusted.receive_answer().substr(9, 3), "200");
    std::vector<std::unique_ptr<test_client>> strangers;
    for (int i = 0; i < 20; ++i) {
        strangers.push_back(std::make_unique<test_client>(server.ListenPort()));
        strangers.back()->send("GET /api/state HTTP/1.1\r\n" + host + "\r\n");
        EXPECT_EQ(strangers.back()->receive_answer().substr(9, 3), "401");
    }
    test_client newcomer(server.ListenPort());
    newcomer.send("GET /api/state HTTP/1.1\r\n" + bearer);
    EXPECT_EQ(newcomer.receive_answer().substr(9, 3), "200");
    trusted.send("GET /api/state HTTP/1.1\r\n" + bearer);
    EXPECT_EQ(trusted.receive_answer().substr(9, 3), "200") << "who may ask keeps the connection";
}

// A page that was left open would wait for an answer that never comes.
TEST(LiveStart, IsToldToWhoeverAsksBeforeItIsOver) {
    cHttpServer server(0, 4096, loopback());
    auto* start = new live_start_handler;
    server.InstallHandler(*start);
    auto* next = new cHttpNotFoundHandler;
    server.InstallHandler(*next);
    next->Release();
    test_client client(server.ListenPort());
    client.send(get_request("/api/state"));
    EXPECT_EQ(client.receive_answer().substr(0, 32), "HTTP/1.1 503 Service Unavailable");
    start->end();
    client.send(get_request("/api/state"));
    EXPECT_EQ(client.receive_answer().substr(9, 3), "404");
    start->Release();
}

class LiveServerWithToken : public LiveServer {
protected:
    LiveServerWithToken() : LiveServer("0123456789abcdef") {}
};

TEST_F(LiveServerWithToken, WithoutTheTokenNothingIsTold) {
    const std::string host = "Host: studio.example\r\n";
    EXPECT_EQ(status("GET /", host), "401");
    EXPECT_EQ(status("GET /?token=", host), "401");
    EXPECT_EQ(status("GET /api/state?token=0123456789abcdee", host), "401");
    EXPECT_EQ(status("GET /api/state", host + "Authorization: Bearer \r\n"), "401");
    EXPECT_EQ(status("POST /api/repaint", host + "Content-Length: 0\r\n"), "401");
    EXPECT_EQ(port.calls, 0);
}

TEST_F(LiveServerWithToken, TheTokenOpensAndDoesNotHelpAForeignPage) {
    const std::string host = "Host: studio.example\r\n";
    EXPECT_EQ(status("GET /?token=0123456789abcdef", host), "200");
    const std::string bearer = "Authorization: Bearer 0123456789abcdef\r\n";
    EXPECT_EQ(status("GET /api/state", host + bearer), "200");
    const std::string small = "authorization: bearer 0123456789abcdef\r\n";
    EXPECT_EQ(status("GET /api/state", host + small), "200") << "the scheme has no case";
    const std::string other = "Authorization: Basic 0123456789abcdef\r\n";
    EXPECT_EQ(status("GET /api/state", host + other), "401");
    const std::string large = "Authorization: Bearer 0123456789ABCDEF\r\n";
    EXPECT_EQ(status("GET /api/state", host + large), "401") << "the token has";
    EXPECT_EQ(status("GET /api/state", host + bearer + "Origin: http://evil.example\r\n"), "403");
}

// The address with the token is not to stay in the browser's address bar and history.
TEST_F(LiveServerWithToken, ThePageGetsACookieForTheTokenInItsAddress) {
    const std::string host = "Host: studio.example\r\n";
    const auto name = "pennywort-" + std::to_string(server.ListenPort());
    const auto page = ask("GET /?token=0123456789abcdef", host);
    EXPECT_NE(page.find("Set-Cookie: " + name +
                        "=0123456789abcdef; Path=/; HttpOnly; SameSite=Strict\r\n"),
              std::string::npos)
        << page;
    EXPECT_EQ(ask("GET /api/state?token=0123456789abcdef", host).find("Set-Cookie"),
              std::string::npos);
    const auto with = [&](const std::string& cookies) {
        return host + "Cookie: " + cookies + "\r\n";
    };
    for (const char* line : {"GET /", "GET /api/state"}) {
        EXPECT_EQ(status(line, with(name + "=0123456789abcdef")), "200") << line;
        EXPECT_EQ(status(line, with("a=b;  " + name + "=0123456789abcdef; c=d")), "200") << line;
        EXPECT_EQ(status(line, with(name + "=0123456789abcdee")), "401") << line;
        EXPECT_EQ(status(line, with(name + "=")), "401") << line;
        EXPECT_EQ(status(line, with("pennywort-1=0123456789abcdef")), "401") << line;
        EXPECT_EQ(status(line, with("x" + name + "=0123456789abcdef")), "401") << line;
        EXPECT_EQ(
            status(line, with(name + "=0123456789abcdef") + "Origin: http://evil.example\r\n"),
            "403")
            << line;
    }
}

TEST_F(LiveServer, WithoutATokenThereIsNoCookie) {
    const std::string host = "Host: " + own_host() + "\r\n";
    EXPECT_EQ(ask("GET /?token=", host).find("Set-Cookie"), std::string::npos);
    EXPECT_EQ(ask("GET /?token=x", host).find("Set-Cookie"), std::string::npos);
}

TEST(LiveGuard, TokensAreLongAndDiffer) {
    const auto token = random_token();
    EXPECT_EQ(token.size(), 32u);
    EXPECT_NE(token, random_token());
}

int refusal_of_host(std::int32_t port, const std::string& host) {
    live_caller caller;
    caller.host = host;
    return live_guard(port, "").refusal(caller);
}

TEST(LiveGuard, TakesThisMachinesNamesOnly) {
    for (const char* name : {"127.0.0.1", "127.0.0.2", "localhost", "[::1]"}) {
        EXPECT_EQ(refusal_of_host(8080, std::string(name) + ":8080"), 0) << name;
        EXPECT_EQ(refusal_of_host(8080, std::string(name) + ":808"), 403) << name;
        EXPECT_EQ(refusal_of_host(8080, name), 403) << name;
        EXPECT_EQ(refusal_of_host(80, name), 0) << name;
        EXPECT_EQ(refusal_of_host(80, std::string(name) + ":80"), 0) << name;
    }
    for (const char* host : {"", ":8080", "127.evil.example:8080", "1270.0.1:8080",
                             "localhost.evil.example:8080", "127.0.0.1:1:8080"}) {
        EXPECT_EQ(refusal_of_host(8080, host), 403) << host;
    }
}

TEST(LiveGuard, KnowsWhichAddressesAreOfThisMachineOnly) {
    EXPECT_TRUE(is_loopback("127.0.0.1"));
    EXPECT_TRUE(is_loopback("::1"));
    EXPECT_FALSE(is_loopback("0.0.0.0"));
    EXPECT_FALSE(is_loopback("::"));
    EXPECT_FALSE(is_loopback("192.0.2.1"));
}

}  // namespace
}  // namespace pennywort::host
