// faults_test.cpp - peers that are not there, stall, break off or talk nonsense.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"
#include "tests/httpserver/descriptors.h"
#include "tests/loam/wine.h"
#include "tests/support/eventually.h"

namespace {

constexpr double k_short = 0.1;

class FaultsTest : public SessionTest {
protected:
    // A busy machine may bring the head too late, for once.
    bool begins_in_short_time(const std::string& url) {
        return pennywort::tests::eventually(
            [&] { return request(cHttpSession::k_get, url, {}, nullptr, k_short) == 0; });
    }
};

// A port on which nobody listens. One that a peer of ours has given up is soon another test's.
constexpr char k_nobodys_url[] = "http://127.0.0.1:1/";

TEST_F(FaultsTest, NoListener) {
    EXPECT_EQ(get(k_nobodys_url), cHttpSession::k_send_failed);
    EXPECT_EQ(status(), -1);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_no_connection);
    const scripted_peer peer(answering(answer_with("x")));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_none);
}

// A label of a name has 63 bytes at most: nobody need be asked for it.
TEST_F(FaultsTest, AnUnknownNameIsTold) {
    EXPECT_EQ(get("http://" + std::string(64, 'x') + ".example/"), cHttpSession::k_send_failed);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_unknown_name);
}

TEST_F(FaultsTest, APeerThatSpeaksPlainTextIsNoneOfTls) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits a minute for a greeting of TLS";
    cHttpSessionSettings settings;
    settings.tlsByScheme = true;
    m_session->SetSettings(settings);
    const scripted_peer peer([](peer_connection& connection) {
        connection.send(answer_with("hello"));
        connection.wait_for_end();
    });
    EXPECT_EQ(get("https" + peer.url().substr(4)), cHttpSession::k_send_failed);
    EXPECT_EQ(status(), -1);
}

TEST_F(FaultsTest, APeerThatNeverAnswersTimesOut) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits 90 s for a head, whatever the time-out";
    const scripted_peer peer([](peer_connection& connection) { connection.wait_for_end(); });
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, nullptr, k_short),
              cHttpSession::k_timed_out);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_timed_out);
}

TEST_F(FaultsTest, APeerThatStopsInTheBodyTimesOut) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
        connection.wait_for_end();
    });
    EXPECT_TRUE(begins_in_short_time(peer.url()));
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(status(), cHttpSession::k_incomplete);
}

TEST_F(FaultsTest, APeerThatClosesAtEachByteOfTheHeadFails) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine takes a head that is cut off";
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nX: y\r\n\r\n";
    for (std::size_t length = 0; length < head.size(); ++length) {
        SCOPED_TRACE(length);
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send(std::string_view(head).substr(0, length));
        });
        EXPECT_EQ(get(peer.url()), cHttpSession::k_receive_failed);
    }
}

TEST_F(FaultsTest, ALengthThatIsLongerThanTheBodyIsTold) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    });
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(status(), cHttpSession::k_incomplete);
}

TEST_F(FaultsTest, ALengthThatIsShorterThanTheBodyEndsIt) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine hands out what stands behind a body";
    const scripted_peer peer(answering("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nhello"));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "hel");
    EXPECT_EQ(status(), 0);
}

TEST_F(FaultsTest, ABadChunkEndsTheBody) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits for ever behind a chunk that is none";
    for (const std::string_view chunk : {"zz\r\nhello", "5\r\nhelloX", "ffffffffffffffffff\r\n"}) {
        SCOPED_TRACE(chunk);
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n");
            connection.send(chunk);
            connection.wait_for_end();
        });
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(body().substr(0, 5), "first");
    }
}

TEST_F(FaultsTest, NonsenseIsNoResponse) {
    for (const std::string_view text :
         {"hello\r\n\r\n", "HTTP/1.1\r\n\r\n", "HTTP/1.1 abc\r\n\r\n", "HTTP/1.1 1000 x\r\n\r\n",
          "HTTP/1.1 2147483648 x\r\n\r\n", "HTTP/1.1 99 x\r\n\r\n", "HTTP/1.1 0 x\r\n\r\n",
          "SSH-2.0-OpenSSH\r\n"}) {
        SCOPED_TRACE(text);
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send(text);
        });
        EXPECT_EQ(get(peer.url()), cHttpSession::k_receive_failed);
        if (!runs_under_wine()) {
            EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_bad_response);
        }
    }
}

TEST_F(FaultsTest, AStatusOfZeroIsNoResponse) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine takes a status of 000";
    const scripted_peer peer(answering("HTTP/1.1 000 x\r\n\r\n"));
    EXPECT_EQ(get(peer.url()), cHttpSession::k_receive_failed);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_bad_response);
}

TEST_F(FaultsTest, AHeaderOfAMebibyteIsRefused) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine has no bound for a head";
    const scripted_peer peer(
        answering("HTTP/1.1 200 OK\r\nX: " + std::string(1 << 20, 'x') + "\r\n\r\n"));
    EXPECT_EQ(get(peer.url()), cHttpSession::k_receive_failed);
}

TEST_F(FaultsTest, WhatCannotBeFetchedIsRefusedBeforeASocketIsOpened) {
    for (const auto& [url, want] :
         {std::pair{"http://", -21503L}, {"ftp://host/", -21501L}, {"http:host:8080x", -21502L}}) {
        SCOPED_TRACE(url);
        EXPECT_EQ(get(url), want);
    }
}

TEST_F(FaultsTest, WhatCannotBeConnectedHasNotTheResponseOfTheRequestBefore) {
    const scripted_peer peer(answering(answer_with("x")));
    for (const auto& [url, want] : {std::pair{"http:///path", -21317L},
                                    {"http://host:0/", -21317L},
                                    {"http://host:65536/", -21317L},
                                    {"http://host:abc/", -21317L},
                                    {"http://[::1/", -21317L},
                                    {"http://a b/", -21317L}}) {
        SCOPED_TRACE(url);
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(status(), 0);
        EXPECT_EQ(get(url), want);
        std::uint32_t code = 7;
        EXPECT_EQ(status(&code), want);
        EXPECT_EQ(code, 0U);
        zRecord headers;
        EXPECT_EQ(m_session->Response_Headers(headers), -1);
    }
}

constexpr std::string_view k_broken_bodies[] = {
    "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n",
    "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nzz\r\n",
    "Transfer-Encoding: chunked\r\n\r\nffffffffffffffffff\r\nhello",
    "Transfer-Encoding: foo\r\n\r\nhello", "Content-Length: 10\r\n\r\n"};

TEST_F(FaultsTest, ABodyThatBreaksOffIsToldWhereThatIsSet) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits for ever behind a chunk that is none";
    for (const std::string_view rest : k_broken_bodies) {
        SCOPED_TRACE(rest);
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send("HTTP/1.1 200 OK\r\n" + std::string(rest));
        });
        m_session->SetSettings({});
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(status(), 0);
        cHttpSessionSettings settings;
        settings.tellBrokenBody = true;
        m_session->SetSettings(settings);
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(status(), cHttpSession::k_receive_failed);
    }
}

TEST_F(FaultsTest, ABodyThatStaysAwayIsToldWhereThatIsSet) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits by time-outs of its own";
    cHttpSessionSettings settings;
    settings.tellBrokenBody = true;
    m_session->SetSettings(settings);
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\n\r\nhello");
        connection.wait_for_end();
    });
    EXPECT_TRUE(begins_in_short_time(peer.url()));
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(status(), cHttpSession::k_timed_out);
}

TEST_F(FaultsTest, ALengthBesideACodingCountsForNothing) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine takes the length";
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send(
            "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"
            "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n");
    });
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(m_session->Response_ContentLength64(nullptr), -1);
    EXPECT_EQ(body(), "hello world");
    EXPECT_EQ(status(), 0);
}

// Its lines come far within the time-out, and all of them together last many times as long.
TEST_F(FaultsTest, AHeadThatComesLineByLineTimesOut) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits 90 s for a head, whatever the time-out";
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\n");
        for (int i = 0; i < 100 && connection.send("X: y\r\n"); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        connection.send("Content-Length: 0\r\n\r\n");
    });
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, nullptr, k_short),
              cHttpSession::k_timed_out);
}

TEST_F(FaultsTest, TimeOutsOfAnySizeAreTaken) {
    const scripted_peer peer(answering(answer_with("x")));
    for (const double timeout : {0.0, 0.0005, 1e9, 1e300, -1.0}) {
        SCOPED_TRACE(timeout);
        EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, nullptr, timeout), 0);
        EXPECT_EQ(body(), "x");
    }
}

TEST_F(FaultsTest, ASinkThatCannotGrowEndsTheReading) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\nhello");
        connection.wait_for_end();
    });
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(m_session->Request_ContentBytesRead64(), 0);
    EXPECT_EQ(status(), cHttpSession::k_incomplete);
}

TEST_F(FaultsTest, ACeilingEndsTheReading) {
    cHttpSessionSettings settings;
    settings.maxResponseBytes = 4;
    m_session->SetSettings(settings);
    const scripted_peer peer(answering(answer_with("hello")));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(status(), cHttpSession::k_too_large);
    const scripted_peer fine(answering(answer_with("four")));
    EXPECT_EQ(get(fine.url()), 0);
    EXPECT_EQ(status(), 0);
    const scripted_peer endless([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\n\r\nhello");
    });
    EXPECT_EQ(get(endless.url()), 0);
    EXPECT_EQ(status(), cHttpSession::k_too_large);
}

TEST_F(FaultsTest, AnotherThreadMayStopARequestWhereThatIsSet) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine ends no wait of a handle that is closed";
    cHttpSessionSettings settings;
    settings.stopFromAnyThread = true;
    m_session->SetSettings(settings);
    std::atomic<bool> has_come{false};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.receive_head();
        has_come = true;
        connection.wait_for_end();
    });
    std::thread stopper([&] {
        EXPECT_TRUE(pennywort::tests::eventually([&] { return has_come.load(); }));
        m_session->Request_Stop();
    });
    EXPECT_EQ(get(peer.url()), cHttpSession::k_stopped);
    stopper.join();
    EXPECT_EQ(status(), cHttpSession::k_stopped);
    EXPECT_EQ(peer.connections(), 1);
}

TEST_F(FaultsTest, APeerThatAnswersBeforeTheWholeBodyIsHeard) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        connection.wait_for_end();
    });
    EXPECT_EQ(request(cHttpSession::k_post, peer.url(), std::string(64 << 20, 'x')), 0);
    EXPECT_EQ(status(), -29413);
}

TEST_F(FaultsTest, ResponsesThatOnlySayThatOneWillComeAreBounded) {
    const auto answer_after = [](int count) {
        std::string many;
        for (int i = 0; i < count; ++i) many += "HTTP/1.1 100 Continue\r\n\r\n";
        return many + answer_with("x");
    };
    const scripted_peer peer(answering(answer_after(100)));
    EXPECT_EQ(get(peer.url()), cHttpSession::k_receive_failed);
    if (runs_under_wine()) return;  // it has a bound of its own
    const scripted_peer most(answering(answer_after(32)));
    EXPECT_EQ(get(most.url()), 0);
    EXPECT_EQ(body(), "x");
    const scripted_peer one_more(answering(answer_after(33)));
    EXPECT_EQ(get(one_more.url()), cHttpSession::k_receive_failed);
}

TEST_F(FaultsTest, AHeaderThatLooksLikeAStatusLineIsNone) {
    const scripted_peer peer(
        answering("HTTP/1.1 404 Not Found\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    get(peer.url());
    EXPECT_NE(status(), 0);
}

TEST_F(FaultsTest, ASessionMayEndOnAnotherThread) {
    const scripted_peer peer(answering(answer_with("x")));
    EXPECT_EQ(get(peer.url()), 0);
    std::thread([session = std::move(m_session)]() mutable { session.reset(); }).join();
}

// As many as a host may well have at once, each with connections and handles of its own.
TEST_F(FaultsTest, AThousandSessionsLeaveNothing) {
    const scripted_peer peer([](peer_connection& connection) {
        while (!connection.receive_head().empty()) connection.send(answer_with("x"));
    });
    EXPECT_EQ(get(peer.url()), 0);
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 1000; ++i) {
        m_session = cHttpSession::Factory();
        ASSERT_EQ(get(peer.url()), 0);
        ASSERT_EQ(body(), "x");
    }
    m_session = cHttpSession::Factory();
    // What one thread has kept for the next request, on both sides.
    EXPECT_TRUE(pennywort::tests::eventually([&] { return open_descriptors() <= before + 4; }))
        << open_descriptors() << " of " << before;
}

TEST_F(FaultsTest, SessionsOnSeveralThreadsDoNotDisturbEachOther) {
    const scripted_peer peer([](peer_connection& connection) {
        for (std::string head = connection.receive_head(); !head.empty();
             head = connection.receive_head()) {
            connection.send(answer_with(head.substr(0, head.find(" HTTP"))));
        }
    });
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&right, i, url = peer.url("/" + std::to_string(i))] {
            const auto session = cHttpSession::Factory();
            const std::string want = "GET /" + std::to_string(i);
            for (int round = 0; round < 20; ++round) {
                zBuffer sink(0, 0);
                session->Configure(cHttpSession::k_get, url.c_str(), 30);
                if (session->Request_Begin(&sink, nullptr, nullptr, 0) != 0) continue;
                session->Request_BlockForResponse();
                right += std::string(sink.Data(), sink.Length()) == want;
            }
        });
    }
    for (std::thread& each : threads) each.join();
    EXPECT_EQ(right, 16 * 20);
    EXPECT_LE(peer.connections(), 16 * 20);
}

TEST_F(FaultsTest, ABoundedWaitReturns) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n");
        for (int i = 0; i < 10; ++i) connection.send("x");
        connection.wait_for_end();
    });
    m_session->Configure(cHttpSession::k_get, peer.url().c_str(), k_patient);
    ASSERT_EQ(m_session->Request_Begin(&m_sink, nullptr, nullptr, 0), 0);
    EXPECT_TRUE(m_session->Request_BlockForResponseWithin(UINT32_MAX));
    EXPECT_EQ(status(), 0);
}

}  // namespace
