// strict_test.cpp - a server that follows RFC 9110 and 9112, byte by byte over a connection.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "loam/id_generator.h"
#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* k_host = "Host: h\r\n\r\n";

std::string status_line(const std::string& answer) { return answer.substr(0, answer.find("\r\n")); }
bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Answers by a structured answer what the request says.
class echo_handler final : public cHttpHandler {
public:
    bool CanHandleRequest(const cHttpRequest& request) override {
        return request.Path() == zString("/echo") && request.Method() != k_put;
    }
    zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override {
        std::string text(request.MethodName());
        text.append(" ").append(request.Query().View()).append(" ");
        text.append(request.Header("X-Word")).append(" ").append(request.Body());
        answer.SetText("text/plain", text);
        bad_header = answer.SetHeader("X-Bad", "a\r\nb");
        answer.SetHeader("X-Kind", "echo");
        answer.SetHeader("Content-Length", "1");
        return 0;
    }
    zStatus bad_header = 0;

protected:
    ~echo_handler() override = default;
};

// Does with its socket what the test says.
class raw_handler final : public cHttpHandler {
public:
    using step = std::function<zStatus(zSocket*)>;
    raw_handler(std::string path, step inside)
        : m_path(std::move(path)), m_inside(std::move(inside)) {}
    bool CanHandle(std::int32_t method, const zString& path, const zString&, const zString&,
                   const char*) override {
        return method == k_get && path.View() == m_path;
    }
    zStatus Handle(zSocket* socket, std::int32_t, const zString&, const zString&, const zString&,
                   const char*) override {
        return m_inside(socket);
    }

private:
    const std::string m_path;
    const step m_inside;
};

class StrictTest : public testing::Test {
protected:
    StrictTest() { m_server.InstallHandler(*m_echo); }

    static cHttpServerSettings settings() {
        cHttpServerSettings wanted;
        wanted.isStrict = true;
        wanted.maxRequestBytes = 100'000;
        return wanted;
    }
    std::string ask(const std::string& request) {
        test_client client(m_server.ListenPort());
        client.send(request);
        return client.receive_answer();
    }
    void install(const char* path, raw_handler::step inside) {
        const auto handler = make<raw_handler>(path, std::move(inside));
        m_server.InstallHandler(*handler);
    }

    held<echo_handler> m_echo = make<echo_handler>();
    cHttpServer m_server{0, k_buffer, settings()};
};

TEST_F(StrictTest, GivesTheRequestAndSendsTheAnswerOfAHandler) {
    const std::string answer =
        ask(std::string("POST /echo?q HTTP/1.1\r\nX-WORD: w\r\nContent-Length: 3\r\n") + k_host +
            "abc");
    EXPECT_EQ(status_line(answer), "HTTP/1.1 200 OK");
    EXPECT_EQ(body_of(answer), "POST q w abc");
    for (const char* part : {"\r\nDate: ", "\r\nX-Kind: echo\r\n", "\r\nContent-Length: 12\r\n",
                             "\r\nConnection: Keep-Alive\r\n", "\r\nServer: "}) {
        EXPECT_TRUE(has(answer, part)) << part;
    }
    EXPECT_EQ(m_echo->bad_header, -1);
    EXPECT_FALSE(has(answer, "X-Bad"));
}

TEST_F(StrictTest, ReadsAChunkedRequest) {
    EXPECT_EQ(body_of(ask(std::string("POST /echo HTTP/1.1\r\nTransfer-Encoding: chunked\r\n") +
                          k_host + "2\r\nab\r\n1\r\nc\r\n0\r\n\r\n")),
              "POST   abc");
}

TEST_F(StrictTest, AnswersHeadWithoutABody) {
    test_client client(m_server.ListenPort());
    client.send(std::string("HEAD /echo HTTP/1.1\r\n") + k_host +
                "GET /echo?2 HTTP/1.1\r\nConnection: close\r\n" + k_host);
    const std::string both = client.receive(100'000);
    EXPECT_TRUE(has(both, "\r\nContent-Length: 7\r\n"));
    const std::size_t end = both.find("\r\n\r\n") + 4;
    EXPECT_EQ(both.substr(end, 15), "HTTP/1.1 200 OK");
    EXPECT_EQ(body_of(both.substr(end)), "GET 2  ");
}

TEST_F(StrictTest, CutsTheBodyOfAHandlerThatKnowsNothingOfHead) {
    install("/raw", [](zSocket* socket) {
        cHttpHandler::SendHeaders(socket, 4, "text/plain");
        return cHttpHandler::SendString(socket, "body");
    });
    test_client client(m_server.ListenPort());
    client.send(std::string("HEAD /raw HTTP/1.1\r\nConnection: close\r\n") + k_host);
    const std::string answer = client.receive(100'000);
    EXPECT_EQ(status_line(answer), "HTTP/1.1 200 OK");
    EXPECT_TRUE(has(answer, "\r\nContent-Length: 4\r\n"));
    EXPECT_TRUE(has(answer, "\r\nDate: "));
    EXPECT_TRUE(has(answer, "\r\nConnection: close\r\n"));
    EXPECT_FALSE(has(answer, "Keep-Alive"));
    EXPECT_EQ(body_of(answer), "");
}

TEST_F(StrictTest, AnswersSeveralRequestsInOnePieceInTheirOrder) {
    std::string all;
    for (int i = 0; i < 20; ++i) {
        all += "GET /echo?" + std::to_string(i) + " HTTP/1.1\r\n" + k_host;
    }
    test_client client(m_server.ListenPort());
    client.send(all);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(body_of(client.receive_answer()), "GET " + std::to_string(i) + "  ");
    }
}

TEST_F(StrictTest, TellsAWaitingPeerToContinue) {
    test_client client(m_server.ListenPort());
    client.send(
        std::string("POST /echo HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 2\r\n") +
        k_host);
    EXPECT_EQ(client.receive(25), "HTTP/1.1 100 Continue\r\n\r\n");
    client.send("ab");
    EXPECT_EQ(body_of(client.receive_answer()), "POST   ab");
}

TEST_F(StrictTest, RefusesATooLongBodyBeforeItComes) {
    const std::string answer = ask(
        std::string("POST /echo HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 200000\r\n") +
        k_host);
    EXPECT_EQ(status_line(answer), "HTTP/1.1 413 Content Too Large");
}

TEST_F(StrictTest, EndsTheConnectionWhereTheRequestAsksForIt) {
    for (const std::string& request :
         {std::string("GET /echo HTTP/1.1\r\nConnection: close\r\n") + k_host,
          std::string("GET /echo HTTP/1.0\r\n\r\n")}) {
        test_client client(m_server.ListenPort());
        client.send(request);
        const std::string answer = client.receive_answer();
        EXPECT_TRUE(has(answer, "\r\nConnection: close\r\n")) << request;
        EXPECT_TRUE(client.is_ended()) << request;
    }
    test_client kept(m_server.ListenPort());
    for (int i = 0; i < 2; ++i) {
        kept.send("GET /echo HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
        EXPECT_EQ(status_line(kept.receive_answer()), "HTTP/1.1 200 OK");
    }
}

TEST_F(StrictTest, TellsWhichMethodsAreAllowed) {
    const std::string answer = ask(std::string("PUT /echo HTTP/1.1\r\n") + k_host);
    EXPECT_EQ(status_line(answer), "HTTP/1.1 405 Method Not Allowed");
    EXPECT_TRUE(has(answer, "\r\nAllow: GET, HEAD, POST\r\n"));
    EXPECT_EQ(status_line(ask(std::string("GET /none HTTP/1.1\r\n") + k_host)),
              "HTTP/1.1 404 Not Found");
    EXPECT_EQ(status_line(ask(std::string("TRACE /echo HTTP/1.1\r\n") + k_host)),
              "HTTP/1.1 501 Not Implemented");
}

TEST_F(StrictTest, AlwaysAnswersOrEnds) {
    install("/silent", [](zSocket*) { return 0; });
    install("/throws", [](zSocket*) -> zStatus { throw std::runtime_error("no luck"); });
    install("/half", [](zSocket* socket) {
        cHttpHandler::SendHeaders(socket, 5, "text/plain");
        return cHttpHandler::SendString(socket, "ab");
    });
    for (const char* path : {"/silent", "/throws"}) {
        EXPECT_EQ(status_line(ask(std::string("GET ") + path + " HTTP/1.1\r\n" + k_host)),
                  "HTTP/1.1 500 Internal Server Error");
    }
    test_client client(m_server.ListenPort());
    client.send(std::string("GET /half HTTP/1.1\r\n") + k_host + "GET /echo HTTP/1.1\r\n" + k_host);
    EXPECT_EQ(body_of(client.receive(100'000)), "ab");
    EXPECT_TRUE(client.is_ended());
}

// The peer would read what is too much as the next response.
TEST_F(StrictTest, SendsNoMoreThanAHandlersHeadHasTold) {
    install("/more", [](zSocket* socket) {
        cHttpHandler::SendHeaders(socket, 2, "text/plain");
        return cHttpHandler::SendString(socket, "abHTTP/1.1 200 Smuggled\r\n\r\n");
    });
    test_client client(m_server.ListenPort());
    client.send(std::string("GET /more HTTP/1.1\r\n") + k_host + "GET /echo?2 HTTP/1.1\r\n" +
                k_host);
    EXPECT_EQ(body_of(client.receive_answer()), "ab");
    EXPECT_EQ(body_of(client.receive_answer()), "GET 2  ");
}

// The chunks tell where the body ends; behind them the same holds.
TEST_F(StrictTest, SendsNoMoreThanTheChunksOfAHandler) {
    install("/more", [](zSocket* socket) {
        return cHttpHandler::SendString(socket,
                                        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                        "2\r\nab\r\n0\r\n\r\nHTTP/1.1 200 Smuggled\r\n\r\n");
    });
    test_client client(m_server.ListenPort());
    client.send(std::string("GET /more HTTP/1.1\r\n") + k_host +
                "GET /echo HTTP/1.1\r\nConnection: close\r\n" + k_host);
    const std::string answers = client.receive(100'000);
    EXPECT_FALSE(has(answers, "Smuggled"));
    EXPECT_TRUE(has(answers, "0\r\n\r\nHTTP/1.1 200 OK\r\n"));
}

TEST_F(StrictTest, EndsAnAnswerWithoutABodyAtItsHead) {
    install("/nothing", [](zSocket* socket) {
        return cHttpHandler::SendString(socket,
                                        "HTTP/1.1 204 No Content\r\nContent-Length: 2\r\n\r\nab");
    });
    const std::string answer = ask(std::string("GET /nothing HTTP/1.1\r\n") + k_host);
    EXPECT_EQ(status_line(answer), "HTTP/1.1 204 No Content");
    EXPECT_FALSE(has(answer, "Content-Length"));
    EXPECT_EQ(body_of(answer), "");
}

// Without the end the peer would wait for the answer that a head of 1xx announces.
TEST_F(StrictTest, SendsWhatComesBehindAHandlersHeadOf1xxAndEnds) {
    install("/early", [](zSocket* socket) {
        cHttpHandler::SendString(socket, "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n");
        return cHttpHandler::SendAnswer(socket, 200, "text/plain", "late", 4);
    });
    test_client client(m_server.ListenPort());
    client.send(std::string("GET /early HTTP/1.1\r\n") + k_host);
    EXPECT_TRUE(has(client.receive(100'000), "\r\n\r\nlate"));
    EXPECT_TRUE(client.is_ended());
}

// A text in pieces, with its head in front or without.
class pieces_handler final : public cHttpHandler {
public:
    pieces_handler(std::string path, std::string head, std::string text)
        : m_path(std::move(path)), m_head(std::move(head)), m_text(std::move(text)) {}
    bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                   const char*) override {
        return path.View() == m_path;
    }
    std::unique_ptr<cHttpBody> HandleInPieces(zSocket* socket, std::int32_t, const zString&,
                                              const zString&, const zString&, const char*,
                                              zStatus& status) override {
        class text_body final : public cHttpBody {
        public:
            explicit text_body(const std::string& text) : m_text(text) {}
            std::int64_t Size() override { return static_cast<std::int64_t>(m_text.size()); }
            std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
                return static_cast<std::int32_t>(m_text.copy(into, static_cast<std::size_t>(size),
                                                             static_cast<std::size_t>(offset)));
            }

        private:
            const std::string m_text;
        };
        status = SendString(socket, m_head.c_str());
        return std::make_unique<text_body>(m_text);
    }

protected:
    ~pieces_handler() override = default;

private:
    const std::string m_path;
    const std::string m_head;
    const std::string m_text;
};

// The peer would read what is too much as the next response, and the next response as what is
// missing.
TEST_F(StrictTest, SendsOfAPiecewiseAnswerWhatItsHeadHasTold) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 600000\r\n\r\n";
    const std::string more = std::string(600'000, 'w') + "HTTP/1.1 200 Smuggled\r\n\r\n";
    const std::string less(10, 'w');
    for (const auto& handler : {make<pieces_handler>("/more/1", "", head + more),
                                make<pieces_handler>("/more/2", head, more),
                                make<pieces_handler>("/less/1", "", head + less),
                                make<pieces_handler>("/less/2", head, less)}) {
        m_server.InstallHandler(*handler);
    }
    const std::string next = std::string("GET /echo?2 HTTP/1.1\r\n") + k_host;
    for (const char* path : {"/more/1", "/more/2", "/less/1", "/less/2"}) {
        SCOPED_TRACE(path);
        test_client client(m_server.ListenPort());
        client.send(std::string("GET ") + path + " HTTP/1.1\r\n" + k_host + next);
        if (path[1] == 'm') {
            EXPECT_EQ(body_of(client.receive_answer()).size(), 600'000u);
            EXPECT_EQ(body_of(client.receive_answer()), "GET 2  ");
        } else {
            EXPECT_EQ(body_of(client.receive(100'000)), less);
            EXPECT_TRUE(client.is_ended());
        }
    }
}

TEST_F(StrictTest, SendsAPiecewiseAnswerThatBringsItsOwnHead) {
    class whole_body final : public cHttpBody {
    public:
        std::int64_t Size() override { return static_cast<std::int64_t>(m_text.size()); }
        std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
            return static_cast<std::int32_t>(m_text.copy(into, static_cast<std::size_t>(size),
                                                         static_cast<std::size_t>(offset)));
        }

    private:
        const std::string m_text =
            "HTTP/1.1 200 OK\r\nContent-Length: 600000\r\n\r\n" + std::string(600'000, 'w');
    };
    class whole_handler final : public cHttpHandler {
    public:
        bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                       const char*) override {
            return path == zString("/whole");
        }
        std::unique_ptr<cHttpBody> HandleInPieces(zSocket*, std::int32_t, const zString&,
                                                  const zString&, const zString&, const char*,
                                                  zStatus& status) override {
            status = 0;
            return std::make_unique<whole_body>();
        }
    };
    const auto handler = make<whole_handler>();
    m_server.InstallHandler(*handler);
    test_client client(m_server.ListenPort());
    client.send(std::string("HEAD /whole HTTP/1.1\r\n") + k_host);
    EXPECT_TRUE(has(client.receive(100), "Date: "));
    test_client second(m_server.ListenPort());
    for (int i = 0; i < 2; ++i) {
        second.send(std::string("GET /whole HTTP/1.1\r\n") + k_host);
        const std::string answer = second.receive_answer();
        EXPECT_TRUE(has(answer, "\r\nDate: "));
        EXPECT_EQ(body_of(answer).size(), 600'000u);
    }
}

TEST_F(StrictTest, AFullServerDropsTheOldestThatNobodyTrusts) {
    cHttpServerSettings wanted = settings();
    wanted.maxConnections = 2;
    wanted.dropUntrustedWhenFull = true;
    cHttpServer server(0, k_buffer, wanted);
    class trusting_handler final : public cHttpHandler {
    public:
        bool CanHandleRequest(const cHttpRequest&) override { return true; }
        zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override {
            if (request.HasHeader("X-Token")) answer.SetTrusted();
            answer.SetText("text/plain", "fine");
            return 0;
        }
    };
    const auto handler = make<trusting_handler>();
    server.InstallHandler(*handler);
    test_client trusted(server.ListenPort());
    trusted.send(std::string("GET / HTTP/1.1\r\nX-Token: 1\r\n") + k_host);
    EXPECT_EQ(body_of(trusted.receive_answer()), "fine");
    test_client idle(server.ListenPort());
    test_client next(server.ListenPort());
    next.send(std::string("GET / HTTP/1.1\r\n") + k_host);
    EXPECT_EQ(body_of(next.receive_answer()), "fine");
    EXPECT_TRUE(idle.is_ended());
    trusted.send(std::string("GET / HTTP/1.1\r\n") + k_host);
    EXPECT_EQ(body_of(trusted.receive_answer()), "fine");
}

// Who takes an answer byte by byte must not keep others out either.
TEST_F(StrictTest, AFullServerDropsWhoTakesNothingOfAnAnswer) {
    cHttpServerSettings wanted = settings();
    wanted.maxConnections = 2;
    wanted.dropUntrustedWhenFull = true;
    cHttpServer server(0, k_buffer, wanted);
    const auto text = std::make_shared<const std::string>(32'000'000, 't');
    class long_handler final : public cHttpHandler {
    public:
        explicit long_handler(std::shared_ptr<const std::string> text) : m_text(std::move(text)) {}
        bool CanHandleRequest(const cHttpRequest&) override { return true; }
        zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override {
            if (request.Path() == zString("/long")) {
                answer.SetShared("text/plain", m_text);
            } else {
                answer.SetText("text/plain", "fine");
            }
            return 0;
        }

    private:
        const std::shared_ptr<const std::string> m_text;
    };
    const auto handler = make<long_handler>(text);
    server.InstallHandler(*handler);
    test_client first(server.ListenPort());
    test_client second(server.ListenPort());
    for (test_client* one : {&first, &second}) {
        one->send(std::string("GET /long HTTP/1.1\r\n") + k_host);
        EXPECT_EQ(status_line(one->receive(17)), "HTTP/1.1 200 OK");
    }
    test_client third(server.ListenPort());
    third.send(std::string("GET / HTTP/1.1\r\n") + k_host);
    EXPECT_EQ(body_of(third.receive_answer()), "fine");
}

TEST_F(StrictTest, RefusesAStatusThatIsNone) {
    class status_handler final : public cHttpHandler {
    public:
        bool CanHandleRequest(const cHttpRequest& request) override {
            return request.Path() == zString("/status");
        }
        zStatus HandleRequest(const cHttpRequest&, cHttpAnswer& answer) override {
            answer.SetStatus(status);
            return 0;
        }
        std::int32_t status = 0;
    };
    const auto handler = make<status_handler>();
    m_server.InstallHandler(*handler);
    for (const std::int32_t status : {0, -1, 100, 199, 1000}) {
        handler->status = status;
        EXPECT_EQ(status_line(ask(std::string("GET /status HTTP/1.1\r\n") + k_host)),
                  "HTTP/1.1 500 Internal Server Error");
    }
}

TEST_F(StrictTest, SendsFilesWithRangesAndConditions) {
    zString name;
    zIDGenerator::GenerateUUID(name);
    const fs::path root = fs::temp_directory_path() / name.CString();
    fs::create_directories(root / "sub");
    std::ofstream(root / "a.mp4", std::ios::binary) << "0123456789";
    std::ofstream(root / "sub/index.html", std::ios::binary) << "sub";
    const auto files = make<cHttpFolderHandler>(zString(root.string()), zString("/"));
    m_server.InstallHandler(*files);
    const auto get_with = [&](const std::string& path, const std::string& header) {
        return ask("GET " + path + " HTTP/1.1\r\n" + header + k_host);
    };
    const std::string whole = get_with("/a.mp4", "");
    EXPECT_EQ(body_of(whole), "0123456789");
    EXPECT_TRUE(has(whole, "\r\nAccept-Ranges: bytes\r\n"));
    EXPECT_TRUE(has(whole, "\r\nLast-Modified: "));
    const std::size_t at = whole.find("\r\nETag: ") + 8;
    const std::string tag = whole.substr(at, whole.find("\r\n", at) - at);
    const std::string part = get_with("/a.mp4", "Range: bytes=2-4\r\nIf-Range: " + tag + "\r\n");
    EXPECT_EQ(status_line(part), "HTTP/1.1 206 Partial Content");
    EXPECT_TRUE(has(part, "\r\nContent-Range: bytes 2-4/10\r\n"));
    EXPECT_EQ(body_of(part), "234");
    // The end tells that there is no body; the length alone would have it waited for.
    EXPECT_EQ(status_line(ask(std::string("HEAD /a.mp4 HTTP/1.1\r\nConnection: close\r\n"
                                          "Range: bytes=2-4\r\n") +
                              k_host)),
              "HTTP/1.1 200 OK");
    EXPECT_TRUE(has(get_with("/a.mp4", "Range: bytes=10-\r\n"), "Content-Range: bytes */10\r\n"));
    const std::string same = get_with("/a.mp4", "If-None-Match: " + tag + "\r\n");
    EXPECT_EQ(status_line(same), "HTTP/1.1 304 Not Modified");
    EXPECT_FALSE(has(same, "Content-Length"));
    const std::string moved = get_with("/sub?x", "");
    EXPECT_EQ(status_line(moved), "HTTP/1.1 301 Moved Permanently");
    EXPECT_TRUE(has(moved, "\r\nLocation: /sub/?x\r\n"));
    EXPECT_TRUE(has(get_with("//sub", ""), "\r\nLocation: /sub/\r\n"));
    EXPECT_EQ(body_of(get_with("/sub/", "")), "sub");
    EXPECT_EQ(status_line(get_with("/nothing", "")), "HTTP/1.1 404 Not Found");
    std::error_code ignored;
    fs::remove_all(root, ignored);
}

TEST_F(StrictTest, ServesByteByByte) {
    test_client client(m_server.ListenPort());
    const std::string request =
        std::string("POST /echo?q HTTP/1.1\r\nContent-Length: 2\r\n") + k_host + "ab";
    for (const char byte : request + request) client.send(std::string(1, byte));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(body_of(client.receive_answer()), "POST q  ab");
}

}  // namespace
