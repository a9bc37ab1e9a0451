// fault_test.cpp - what a server may do wrong, late or not at all, and the system transport; what
// waits while a socket is closed; and messages that are compressed.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/fault_cases.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"
#include "websocket/driven_link.h"
#include "websocket/link/link_address.h"
#include "websocket/link/look_up.h"

namespace {

using pennywort::tests::eventually;

// What the peer's thread has told or, after a while, nothing.
std::string text_of(std::promise<std::string>& told) {
    std::future<std::string> text = told.get_future();
    const bool has_come = text.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    return has_come ? text.get() : std::string();
}

// The code that a client answers with when its server says goodbye at once.
int answer_to_goodbye(peer_connection& connection, int code) {
    connection.accept();
    connection.send(frames::close(code));
    return connection.receive_frame().code();
}

// What a system socket told when the server closed with that code, and what it answered.
struct goodbye {
    std::string told;
    int answered = -1;
};

goodbye goodbye_of(int code, std::size_t events_to_come) {
    std::atomic<int> answered{-1};
    const scripted_peer peer([&](peer_connection& connection) {
        answered = answer_to_goodbye(connection, code);
        connection.wait_for_end();
    });
    event_log events;
    system_socket socket;
    events.listen_to(socket);
    socket.Open(peer.url().c_str(), 0);
    const bool is_told =
        events.wait_for(events_to_come) && eventually([&] { return answered != -1; });
    socket.Close();
    std::vector<std::string> lines = events.lines();
    // The receive thread may be faster than the opened handler.
    std::sort(lines.begin(), lines.end());
    std::string told;
    for (const std::string& line : lines) told += line + " ";
    return {is_told ? told : "not in time", answered};
}

TEST(SystemClose, IsAnsweredAndNotTold) {
    for (const int code : k_codes_to_send) {
        const goodbye found = goodbye_of(code, 1);
        EXPECT_EQ(found.told, "opened ") << code;
        EXPECT_EQ(found.answered, code);
    }
}

TEST(SystemLoss, AtEachStage) {
    for (const loss_stage& stage : loss_stages()) {
        const scripted_peer peer(stage.what);
        event_log events;
        system_socket socket;
        events.listen_to(socket);
        socket.Open(peer.url().c_str(), 0);
        EXPECT_TRUE(events.wait_for_line(stage.is_upgraded ? "error 3" : "error 2"))
            << events.text();
    }
}

// What both transports have to do, each with its own events.
struct transport_case {
    const char* name;
    std::shared_ptr<cWebSocket> (*make)();
    const char* closed_by_us;  // behind "opened"
    const char* broken;        // by a peer that breaks the protocol
};
void PrintTo(const transport_case& c, std::ostream* out) { *out << c.name; }

std::shared_ptr<cWebSocket> make_system() { return std::make_shared<system_socket>(); }

constexpr transport_case k_transports[] = {
    {"Asynchronous", &cWebSocket::Factory, " | closed clean", "closed unclean"},
    {"System", &make_system, "", "error 3"}};

class FaultTest : public testing::TestWithParam<std::tuple<transport_case, fault_case>> {
protected:
    const transport_case& transport() const { return std::get<0>(GetParam()); }
    const fault_case& fault() const { return std::get<1>(GetParam()); }
};

TEST_P(FaultTest, EndsTheConnectionAndSaysWhy) {
    std::atomic<int> code{-1};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        connection.send(fault().bytes);
        const peer_frame frame = connection.receive_frame();
        code = frame.opcode == frames::k_close ? frame.code() : 0;
        connection.wait_for_end();
    });
    event_log events;
    const auto socket = transport().make();
    events.listen_to(*socket);
    socket->Open(peer.url().c_str(), 0);
    EXPECT_TRUE(events.wait_for_line(transport().broken)) << events.text();
    EXPECT_TRUE(eventually([&] { return code != -1; }));
    EXPECT_EQ(code, fault().code);
    EXPECT_TRUE(events.wait_for_line("opened"));
    EXPECT_EQ(events.lines().size(), 2u) << events.text();
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest,
                         testing::Combine(testing::ValuesIn(k_transports),
                                          testing::ValuesIn(fault_cases())),
                         [](const auto& one) {
                             return std::string(std::get<0>(one.param).name) +
                                    std::get<1>(one.param).name;
                         });

class BothTransports : public testing::TestWithParam<transport_case> {
protected:
    BothTransports() { m_events.listen_to(*m_socket); }

    event_log m_events;
    std::shared_ptr<cWebSocket> m_socket = GetParam().make();
};

TEST_P(BothTransports, AFragmentThatStopsIsNoMessageAndEndsWithClose) {
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        connection.send(frames::frame(frames::k_text, "begun"));
        connection.receive_frame();
        connection.send(frames::close(1000));
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("opened"));
    m_socket->Close();
    const std::string after = GetParam().closed_by_us;
    EXPECT_TRUE(m_events.wait_for(after.empty() ? 1 : 2));
    EXPECT_EQ(m_events.text(), "opened" + after);
}

// The server reads the begin of a message and no more, so that Send, or what it has left behind,
// waits for good.
TEST_P(BothTransports, CloseEndsASendThatWaits) {
    gate is_sending;
    gate may_end;
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        connection.receive(1);
        is_sending.open();
        may_end.wait();
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("opened"));
    const std::string text(64 << 20, 'x');
    std::thread sender([&] { m_socket->Send(text.c_str()); });
    EXPECT_TRUE(is_sending.wait());
    m_socket->Close();
    sender.join();
    EXPECT_TRUE(m_events.wait_for(2));
    may_end.open();
    EXPECT_NE(m_events.text(), "opened | closed clean");
}

TEST_P(BothTransports, DestructionAtAnyStageEndsTheConnection) {
    std::atomic<int> ended{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("m"));
        for (int opcode = 0; opcode != frames::k_close && opcode != -1;) {
            opcode = connection.receive_frame().opcode;
        }
        connection.send(frames::close(1000));
        ++ended;
    });
    for (int i = 0; i < 20; ++i) {
        event_log events;
        const auto socket = GetParam().make();
        events.listen_to(*socket);
        socket->Open(peer.url().c_str(), 0);
        EXPECT_TRUE(events.wait_for(static_cast<std::size_t>(i % 3)));
    }
    EXPECT_TRUE(eventually([&] { return ended >= 13; })) << ended;
}

// The time that opening may take is over by then.
TEST_P(BothTransports, ATimeoutOfTheOpeningDoesNotBoundTheGoodbye) {
    gate is_late;
    std::atomic<int> answered{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        is_late.wait();
        connection.send(frames::text("late"));
        if (connection.receive_frame().opcode != frames::k_close) return;
        connection.send(frames::close(1000));
        answered = connection.receive_frame().opcode == -1 ? 1 : 2;
    });
    cWebSocketOptions options;
    options.isTimeoutHonoured = true;
    std::optional<event_log> events;
    std::shared_ptr<cWebSocket> socket;
    // A busy machine may need longer to open one.
    for (double seconds = 0.5; !events || events->text() != "opened"; seconds *= 2) {
        socket.reset();
        socket = GetParam().make();
        socket->SetOptions(options);
        events.emplace().listen_to(*socket);
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        socket->Open(peer.url().c_str(), seconds);
        ASSERT_TRUE(events->wait_for(1));
        EXPECT_TRUE(eventually([&] { return std::chrono::steady_clock::now() > end; }));
    }
    is_late.open();
    ASSERT_TRUE(events->wait_for_line("message late"));
    socket->Close();
    EXPECT_TRUE(eventually([&] { return answered != 0; }));
    const std::string after = GetParam().closed_by_us;
    EXPECT_TRUE(events->wait_for(after.empty() ? 2 : 3));
    EXPECT_EQ(events->text(), "opened | message late" + after);
}

TEST_P(BothTransports, BinaryMessagesGoBothWaysWithTheirLength) {
    peer_frame sent;
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        sent = connection.receive_frame();
        const std::string more(3000, '\0');
        connection.send(frames::frame(frames::k_binary, sent.payload + more));
        connection.send(frames::frame(frames::k_final | frames::k_continuation, "b"));
        connection.wait_for_end();
    });
    m_socket->SetBinaryHandler([this](const void* data, std::size_t size) {
        const std::string bytes(static_cast<const char*>(data), size);
        m_events.add(bytes == std::string("a\0b", 3) + std::string(3000, '\0') + "b" ? "whole"
                                                                                     : "wrong");
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("opened"));
    m_socket->SendBinary("a\0b", 3);
    EXPECT_TRUE(m_events.wait_for_line("whole")) << m_events.text();
    EXPECT_EQ(sent.opcode, frames::k_binary);
    EXPECT_EQ(sent.payload, std::string("a\0b", 3));
}

TEST_P(BothTransports, AUrlWritesNoHeaderLines) {
    std::atomic<int> connections{0};
    const scripted_peer peer([&](peer_connection&) { ++connections; });
    const std::string base = "ws://127.0.0.1:" + std::to_string(peer.port());
    for (const char* path : {"/x\r\nEvil: 1", "/x\nEvil: 1", "/\x7F", "/\x01"}) {
        m_socket->Open((base + path).c_str(), 0);
    }
    m_socket->Open("ws://127.0.0.1\r\nEvil: 1/", 0);
    EXPECT_EQ(m_events.text(), "error 2 | error 2 | error 2 | error 2 | error 2");
    EXPECT_EQ(connections, 0);
}

TEST_P(BothTransports, HeadersOfOneNameAllGoOutAndTheHandshakesOwnStay) {
    std::promise<std::string> asked;
    const scripted_peer peer([&](peer_connection& connection) {
        asked.set_value(connection.accept());
        connection.wait_for_end();
    });
    cWebSocketOptions options;
    options.headers = "X-One: 1\nX-One: 2\nSec-WebSocket-Key: mine\nUpgrade: h2c\nUser-Agent: me";
    m_socket->SetOptions(options);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("opened")) << m_events.text();
    const std::string head = text_of(asked);
    EXPECT_NE(head.find("X-One: 1\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("X-One: 2\r\n"), std::string::npos) << head;
    EXPECT_EQ(head.find("mine"), std::string::npos) << head;
    EXPECT_EQ(header_of(head, "Upgrade"), "websocket");
    EXPECT_EQ(header_of(head, "User-Agent"), "me");
}

// "Hello" as the standard for compression has it in its own example.
constexpr char k_compressed_hello[] = "\xF2\x48\xCD\xC9\xC9\x07";

TEST_P(BothTransports, CompressedMessagesGoBothWaysOnRequest) {
    std::string head;
    peer_frame sent;
    const scripted_peer peer([&](peer_connection& connection) {
        head = connection.accept("Sec-WebSocket-Extensions: permessage-deflate\r\n");
        const int first = frames::k_final | 0x40 | frames::k_text;
        connection.send(frames::frame(first, std::string(k_compressed_hello, 6) + '\0'));
        sent = connection.receive_frame();
        connection.send(frames::frame(first, sent.payload));
        connection.wait_for_end();
    });
    cWebSocketOptions options;
    options.isDeflateOffered = true;
    m_socket->SetOptions(options);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("message Hello")) << m_events.text();
    const std::string text(1000, 'x');
    m_socket->Send(text.c_str());
    EXPECT_TRUE(m_events.wait_for_line("message " + text)) << m_events.text();
    EXPECT_NE(header_of(head, "Sec-WebSocket-Extensions").find("permessage-deflate"),
              std::string::npos);
    EXPECT_EQ(sent.reserved, 0x40);
    EXPECT_LT(sent.payload.size(), 100u);
}

// What is small on its way may be large.
TEST_P(BothTransports, ACompressedMessageOverTheCeilingIsRefused) {
    std::atomic<int> code{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept("Sec-WebSocket-Extensions: permessage-deflate\r\n");
        const peer_frame sent = connection.receive_frame();
        connection.send(frames::frame(frames::k_final | 0x40 | frames::k_text, sent.payload));
        code = connection.receive_frame().code();
        connection.wait_for_end();
    });
    cWebSocketOptions options;
    options.isDeflateOffered = true;
    options.maxMessageBytes = 1000;
    m_socket->SetOptions(options);
    m_socket->SetOpenedHandler([](const std::shared_ptr<cWebSocket>& self) {
        self->Send(std::string(1 << 20, 'x').c_str());
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    EXPECT_EQ(m_events.lines()[0].find("message"), std::string::npos);
    EXPECT_TRUE(eventually([&] { return code == 1009; })) << code;
}

TEST_P(BothTransports, AGoodbyeWithACodeThatMayNotBeSentIsAFault) {
    std::vector<int> codes(std::begin(k_codes_not_to_send), std::end(k_codes_not_to_send));
    codes.insert(codes.end(), std::begin(k_codes_beyond_all), std::end(k_codes_beyond_all));
    for (const int code : codes) {
        std::atomic<int> answered{-1};
        const scripted_peer peer([&](peer_connection& connection) {
            answered = answer_to_goodbye(connection, code);
            connection.wait_for_end();
        });
        event_log events;
        const auto socket = GetParam().make();
        events.listen_to(*socket);
        socket->Open(peer.url().c_str(), 0);
        EXPECT_TRUE(events.wait_for_line(GetParam().broken)) << code << ": " << events.text();
        EXPECT_TRUE(events.wait_for_line("opened"));
        EXPECT_EQ(events.lines().size(), 2u) << events.text();
        EXPECT_TRUE(eventually([&] { return answered != -1; }));
        EXPECT_TRUE(answered == 1002 || code >= 5000) << code << ": " << answered;
    }
}

TEST_P(BothTransports, OneGibibyteIsRefused) {
    std::atomic<int> code{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        // The head; the rest is never asked for.
        connection.send(std::string("\x81\x7F\0\0\0\0\x40\0\0\0", 10));
        code = connection.receive_frame().code();
    });
    m_socket->Open(peer.url().c_str(), 0);
    EXPECT_TRUE(m_events.wait_for_line(GetParam().broken)) << m_events.text();
    EXPECT_TRUE(eventually([&] { return code == 1009; })) << code;
}

std::string in_many_frames(const std::string& text) {
    const std::size_t one = text.size() / 50 + 1;
    std::string all = frames::frame(frames::k_text, "");
    for (std::size_t at = 0; at < text.size(); at += one) {
        const int last = at + one >= text.size() ? frames::k_final : 0;
        all += frames::frame(last | frames::k_continuation, text.substr(at, one));
    }
    return all;
}

// Of all lengths at which memory grows or is used again, whole and in many frames. Each text
// differs from the one before everywhere.
TEST_P(BothTransports, LongTextsComeBackAsTheyWere) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        while (true) {
            const peer_frame frame = connection.receive_frame();
            if (frame.opcode != frames::k_text) return;
            connection.send(frames::text(frame.payload));
            connection.send(in_many_frames(frame.payload));
        }
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    std::size_t count = 1;
    char letter = 'a';
    for (const std::size_t size : {600u, 1530u, 2048u, 5000u, 65'536u, 200'000u, 70'000u,
                                   1'048'576u, 1'048'575u, 100u, 6'000'000u, 1'000'000u, 3000u}) {
        std::string text(size, letter++);
        text[size / 2] = '!';
        m_socket->Send(text.c_str());
        count += 2;
        ASSERT_TRUE(m_events.wait_for(count)) << size;
        const std::vector<std::string> lines = m_events.lines();
        EXPECT_TRUE(lines[count - 2] == "message " + text) << size;
        EXPECT_TRUE(lines[count - 1] == "message " + text) << size;
    }
}

// The memory of a longer one is used again, and holds what it held.
TEST_P(BothTransports, ATextEndsWhereItEnds) {
    const std::string longer(200'000, 'a');
    const std::string text(150'000, 'b');
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        for (int i = 0; i < 5; ++i) connection.send(frames::text(longer));
        for (int i = 0; i < 5; ++i) connection.send(frames::text(text));
        connection.wait_for_end();
    });
    std::vector<std::string> heard;
    m_socket->SetMessageHandler([&](const char* one) {
        heard.emplace_back(one);
        m_events.add("heard");
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(11));
    for (std::size_t i = 0; i < 10; ++i) EXPECT_TRUE(heard[i] == (i < 5 ? longer : text)) << i;
}

TEST_P(BothTransports, AGoodbyeIsToldWithItsCodeAndReasonOnRequest) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
        connection.send(
            frames::frame(frames::k_final | frames::k_close, frames::code_bytes(1008) + "policy"));
        connection.receive_frame();
    });
    m_socket->SetGoodbyeHandler([this](std::int32_t code, const char* reason) {
        m_events.add(std::to_string(code) + " " + reason);
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("opened"));
    m_socket->Send("go");
    const std::string after = GetParam().closed_by_us;
    EXPECT_TRUE(m_events.wait_for(after.empty() ? 2 : 3));
    EXPECT_EQ(m_events.text(), "opened | 1008 policy" + after);
}

INSTANTIATE_TEST_SUITE_P(All, BothTransports, testing::ValuesIn(k_transports),
                         [](const auto& one) { return std::string(one.param.name); });

// Its caller frees the text as soon as it returns.
TEST(SystemSend, LooksAtItsTextNoMoreWhenTheConnectionIsDropped) {
    using namespace pennywort::websocket;
    for (int i = 0; i < 20; ++i) {
        gate is_begun;
        const scripted_peer peer([&](peer_connection& connection) {
            connection.accept();
            connection.receive(1);
            is_begun.open();
            while (!connection.receive(1 << 16).empty()) {
            }
        });
        auto link = std::make_shared<driven_link>();
        ASSERT_TRUE(link->open(request_for_url(peer.url(), {})));
        std::thread sender([&] {
            const auto text = std::make_unique<std::string>(32 << 20, 'x');
            link->send(*text, true);
        });
        EXPECT_TRUE(is_begun.wait());
        link->drop();
        sender.join();
        link.reset();
    }
}

// A URL whose name takes longer to look up than there is time.
void open_in_little_time(cWebSocket& socket) {
    cWebSocketOptions options;
    options.isTimeoutHonoured = true;
    socket.SetOptions(options);
    socket.Open("ws://a-name.invalid/", 0.05);
}

// A resolver that hangs does not know of any time.
TEST(SystemTimeout, BoundsTheLookUpOfTheNameToo) {
    using namespace pennywort::websocket;
    const auto may_answer = std::make_shared<gate>();
    const auto has_answered = std::make_shared<std::atomic<bool>>(false);
    const name_resolver usual = current_name_resolver();
    current_name_resolver() = [=](const std::string&, const std::string&) {
        may_answer->wait();
        *has_answered = true;
        return found_addresses{};
    };
    event_log events;
    system_socket socket;
    events.listen_to(socket);
    open_in_little_time(socket);
    EXPECT_EQ(events.text(), "error 2");
    EXPECT_FALSE(*has_answered);
    may_answer->open();
    EXPECT_TRUE(eventually([&] { return has_answered->load(); }));
    current_name_resolver() = usual;
}

// The thread that asks the system cannot be ended, nor waited for.
TEST(SystemTimeoutDeathTest, ALookUpThatHangsDoesNotHoldTheEndOfTheProcess) {
    using namespace pennywort::websocket;
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exit_while_it_hangs = [] {
        const auto never = std::make_shared<gate>();
        current_name_resolver() = [never](const std::string&,
                                          const std::string&) -> found_addresses {
            never->wait();
            std::_Exit(3);
        };
        event_log events;
        {
            system_socket socket;
            events.listen_to(socket);
            open_in_little_time(socket);
        }
        std::exit(events.text() == "error 2" ? 42 : 2);
    };
    EXPECT_EXIT(exit_while_it_hangs(), testing::ExitedWithCode(42), "");
}

// A blank and what is no ASCII are encoded, and a fragment stays here, as WinHTTP has it.
TEST(SystemTarget, IsWhatARequestLineCanHold) {
    std::promise<std::string> asked;
    const scripted_peer peer([&](peer_connection& connection) {
        asked.set_value(connection.accept());
        connection.wait_for_end();
    });
    system_socket socket;
    socket.Open(peer.url("/a b\xC3\xA4?c#d").c_str(), 0);
    socket.Close();
    const std::string head = text_of(asked);
    EXPECT_TRUE(head.starts_with("GET /a%20b%C3%A4?c HTTP/1.1\r\n")) << head;
}

TEST(SystemRefusal, OpensASocketThatReceivesNothing) {
    for (const char* answer : {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
                               "HTTP/1.1 101 Yes\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                               "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n"}) {
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send(answer);
            connection.wait_for_end();
        });
        event_log events;
        system_socket socket;
        events.listen_to(socket);
        socket.Open(peer.url().c_str(), 0);
        socket.Send("nobody hears this");
        EXPECT_EQ(events.text(), "opened | error 4");
    }
}

}  // namespace
