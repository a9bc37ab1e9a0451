// memory_test.cpp - a server whose memory runs out at any moment, and one that gives back what a
// large request took.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/httpserver/serving_test.h"
#include "tests/support/failing_memory.h"

namespace {

// More than one request and one new connection take.
constexpr int k_most_allocations = 60;

// Answers "/arm/N", and then lets its thread, which is the server's, run out of memory after N.
class arming_handler final : public cHttpHandler {
public:
    static constexpr std::string_view k_front = "/arm/";

    bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                   const char*) override {
        return path.View().substr(0, k_front.size()) == k_front;
    }
    zStatus Handle(zSocket* socket, std::int32_t, const zString& path, const zString&,
                   const zString&, const char*) override {
        const zStatus status = SendAnswer(socket, 200, "text/plain", "armed", 5);
        fail_memory_after(zString(path.CString() + k_front.size()).AsInt32());
        return status;
    }
};

// Answers with headers of its own.
class structured_handler final : public cHttpHandler {
public:
    bool CanHandleRequest(const cHttpRequest& request) override {
        return request.Path() == zString("/structured");
    }
    zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override {
        answer.SetText("text/plain", request.Header("X-Word"));
        answer.SetHeader("X-Long", std::string(200, 'l').c_str());
        return 0;
    }
};

cHttpServerSettings strict_room_for_many() {
    cHttpServerSettings wanted = room_for_many();
    wanted.isStrict = true;
    return wanted;
}

class StrictMemoryTest : public ServingTest {
protected:
    StrictMemoryTest() : ServingTest("/after", strict_room_for_many()) {
        install(*m_arming);
        install(*m_structured);
        install(*m_folder);
    }
    bool arm(int count) { return body_of(get(port(), "/arm/" + std::to_string(count))) == "armed"; }

    held<arming_handler> m_arming = make<arming_handler>();
    held<structured_handler> m_structured = make<structured_handler>();
    held<cHttpFolderHandler> m_folder = make<cHttpFolderHandler>(zString("/"), zString("/files/"));
};

// Requests of every kind, with the Nth allocation of the server's thread failing, for each N.
TEST_F(StrictMemoryTest, RunsOutOfMemoryAtAnyPlaceAndServesOn) {
    constexpr int k_most = 140;
    const std::string host = "Host: h\r\nX-Word: " + std::string(100, 'w') + "\r\n\r\n";
    for (int count = 0; count < k_most; ++count) {
        test_client before(port());
        before.send(get_request("/after"));
        ASSERT_EQ(body_of(before.receive_answer()), "fine") << count;
        ASSERT_TRUE(arm(count)) << count;
        test_client first(port());
        test_client second(port());
        test_client third(port());
        first.send("POST /structured HTTP/1.1\r\nTransfer-Encoding: chunked\r\n" + host + "3\r\na");
        second.send("GET /files/etc/passwd HTTP/1.1\r\nRange: bytes=0-3\r\n" + host);
        third.send("PUT /structured HTTP/1.1\r\n" + host + "GET /none HTTP/1.1\r\n" + host);
        first.send("bc\r\n0\r\n\r\n");
        ASSERT_TRUE(arm(-1) || arm(-1)) << count;
        before.send(get_request("/after"));
        ASSERT_EQ(body_of(before.receive_answer()), "fine") << count;
        for (test_client* client : {&first, &second, &third, &before}) client->close();
        wait_until_all_are_closed();
    }
}

class MemoryTest : public ServingTest {
protected:
    MemoryTest() : ServingTest("/after", room_for_many()) {
        install(*m_arming);
        install(*m_folder);
    }

    bool arm(int count) { return body_of(get(port(), "/arm/" + std::to_string(count))) == "armed"; }
    // The failure may still be ahead and meet the first attempt.
    bool disarm() { return arm(-1) || arm(-1); }

    held<arming_handler> m_arming = make<arming_handler>();
    held<cHttpFolderHandler> m_folder = make<cHttpFolderHandler>(zString("/"), zString("/files/"));
};

// Whatever fails may cost the connections it happens to, and no other.
TEST_F(MemoryTest, RunsOutOfMemoryAtAnyPlaceAndServesOn) {
    const std::string long_path(100, 'p');
    for (int count = 0; count < k_most_allocations; ++count) {
        test_client before(port());
        before.send(get_request("/after"));
        ASSERT_EQ(before.receive_answer(), plain_answer("fine")) << count;
        ASSERT_TRUE(arm(count)) << count;
        test_client first(port());
        test_client second(port());
        first.send("POST /after" + long_path + " HTTP/1.1\r\nContent-Length: 3\r\n\r\na");
        second.send(get_request("/files/etc/passwd"));
        first.send("bc");
        ASSERT_TRUE(disarm()) << count;
        before.send(get_request("/after"));
        ASSERT_EQ(before.receive_answer(), plain_answer("fine")) << count;
        expect_serving();
        for (test_client* client : {&first, &second}) client->close();
        before.close();
        wait_until_all_are_closed();
    }
}

// Its peer would wait for ever for an answer that nobody can give.
TEST_F(MemoryTest, AnAnswerForWhichThereIsNoneEndsItsConnection) {
    const std::string body(1000, 'b');
    const auto whole = make<test_handler>("/none/whole", "", [&](zSocket* socket) {
        fail_memory_after(0);
        cHttpHandler::SendAnswer(socket, 200, "text/plain", body.data(), 1000);
        stop_failing_memory();
    });
    const auto head = make<test_handler>("/none/head", "", [&](zSocket* socket) {
        fail_memory_after(0);
        cHttpHandler::SendHeaders(socket, 1000, "text/plain");
        stop_failing_memory();
    });
    install(*whole);
    install(*head);
    for (const char* path : {"/none/whole", "/none/head"}) {
        test_client client(port());
        client.send(get_request(path));
        EXPECT_EQ(client.receive_answer(), plain_answer("")) << path;
        EXPECT_TRUE(client.is_ended()) << path;
    }
}

TEST(Memory, OfALongRequestIsGivenBack) {
    constexpr std::size_t k_long = 8 << 20;
    constexpr std::size_t k_little = 1 << 20;
    const auto handler = make<cHttpNotFoundHandler>();
    cHttpServer server(0, 4096);
    server.InstallHandler(*handler);
    test_client client(server.ListenPort());
    const auto ask = [&client](const std::string& target) {
        client.send("GET /" + target + " HTTP/1.1\r\n\r\n");
        EXPECT_NE(client.receive_answer().find("404 Not Found"), std::string::npos);
    };
    ask("");
    const std::size_t before = memory_in_use();
    const std::string much(k_long, 'x');
    for (const char* front : {"", "?", "."}) {
        ask(front + much);
        // Once it has an answer too, the server has done with the one before.
        ask("");
        EXPECT_LT(memory_in_use() - much.size(), before + k_little) << front;
    }
}

}  // namespace
