// folder_handler_test.cpp - files of a folder, and nothing beside it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "loam/id_generator.h"
#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"
#include "tests/support/eventually.h"

namespace {

namespace fs = std::filesystem;

constexpr std::int32_t k_stall_ms = 50;  // meant to pass

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

class FolderTest : public testing::Test {
protected:
    FolderTest() {
        zString name;
        zIDGenerator::GenerateUUID(name);
        m_root = fs::temp_directory_path() / name.CString();
        write(m_root / "secret.txt", "secret");
        write(m_root / "site/index.html", "<p>start</p>");
        write(m_root / "site/a b.css", "p {}");
        write(m_root / "site/.hidden", "hidden");
        write(m_root / "site/sub/index.html", "<p>sub</p>");
        write(m_root / "site/empty.txt", "");
        m_handler = new cHttpFolderHandler(zString((m_root / "site").string()), zString("/"));
        m_server.InstallHandler(*m_handler);
        m_server.InstallHandler(*m_last);
    }
    ~FolderTest() override {
        m_handler->Release();
        std::error_code ignored;
        fs::remove_all(m_root, ignored);
    }

    std::string get_file(const std::string& path) { return get(m_server.ListenPort(), path); }

    fs::path m_root;
    cHttpFolderHandler* m_handler;
    held<cHttpNotFoundHandler> m_last = make<cHttpNotFoundHandler>();
    cHttpServer m_server{0, k_buffer};
};

TEST_F(FolderTest, GivesNothingOfWhatLiesOutside) {
    for (const char* path : {"/../secret.txt", "/%2e%2e/secret.txt", "/..%2fsecret.txt",
                             "/sub/../../secret.txt", "/..\\secret.txt", "/..%5csecret.txt",
                             "/.hidden", "/%2ehidden", "/a%00b", "/index.html%00", "/nothing",
                             "/sub", "/index.html/x", "/index.html/", "/%zz", "secret.txt"}) {
        EXPECT_EQ(first_line(get_file(path)), "HTTP/1.1 404 Not Found") << path;
    }
}

TEST_F(FolderTest, FollowsNoLinkEvenIfItStaysInside) {
    std::error_code error;
    fs::create_symlink(m_root / "secret.txt", m_root / "site/out.txt", error);
    if (error) GTEST_SKIP() << "no links here";
    fs::create_directory_symlink(m_root, m_root / "site/up");
    fs::create_symlink("index.html", m_root / "site/in.html");
    fs::create_directory_symlink("sub", m_root / "site/side");
    for (const char* path :
         {"/out.txt", "/up/secret.txt", "/in.html", "/side/index.html", "/up/site/index.html"}) {
        EXPECT_EQ(first_line(get_file(path)), "HTTP/1.1 404 Not Found") << path;
    }
}

TEST_F(FolderTest, MayItselfBeBehindALink) {
    std::error_code error;
    fs::create_directory_symlink(m_root / "site", m_root / "link", error);
    if (error) GTEST_SKIP() << "no links here";
    const auto handler =
        make<cHttpFolderHandler>(zString((m_root / "link").string()), zString("/"));
    cHttpServer server(0, k_buffer);
    server.InstallHandler(*handler);
    EXPECT_EQ(body_of(get(server.ListenPort(), "/")), "<p>start</p>");
}

TEST_F(FolderTest, GivesAFileWithItsType) {
    EXPECT_EQ(get_file("/a%20b.css?v=1"),
              "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nServer: nimb_httpd/0.1.0\r\n"
              "Content-Type: text/css; charset=utf-8\r\nContent-Length: 4\r\n\r\np {}");
}

TEST_F(FolderTest, GivesTheIndexOfAFolder) {
    EXPECT_EQ(body_of(get_file("/")), "<p>start</p>");
    EXPECT_EQ(body_of(get_file("/sub/")), "<p>sub</p>");
    EXPECT_EQ(body_of(get_file("//sub//index.html")), "<p>sub</p>");
}

TEST_F(FolderTest, GivesAnEmptyFile) {
    const std::string answer = get_file("/empty.txt");
    EXPECT_EQ(first_line(answer), "HTTP/1.1 200 OK");
    EXPECT_NE(answer.find("Content-Length: 0\r\n"), std::string::npos);
}

TEST_F(FolderTest, AnswersNothingButGet) {
    test_client client(m_server.ListenPort());
    client.send("POST /index.html HTTP/1.1\r\n\r\n");
    EXPECT_EQ(first_line(client.receive_answer()), "HTTP/1.1 404 Not Found");
}

TEST_F(FolderTest, TakesPathsBelowItsPrefixOnly) {
    const auto handler =
        make<cHttpFolderHandler>(zString((m_root / "site").string()), zString("/static"));
    cHttpServer server(0, k_buffer);
    server.InstallHandler(*handler);
    server.InstallHandler(*m_last);
    const std::int32_t port = server.ListenPort();
    EXPECT_EQ(body_of(get(port, "/static/index.html")), "<p>start</p>");
    EXPECT_EQ(body_of(get(port, "/static")), "<p>start</p>");
    for (const char* path : {"/index.html", "/statics/index.html", "/staticindex.html", "/stat"}) {
        EXPECT_EQ(first_line(get(port, path)), "HTTP/1.1 404 Not Found") << path;
    }
}

TEST_F(FolderTest, GivesALargeFileWhole) {
    std::string text;
    while (text.size() < (5u << 20)) text += std::to_string(text.size()) + ' ';
    write(m_root / "site/large.txt", text);
    test_client client(m_server.ListenPort());
    for (int i = 0; i < 2; ++i) {
        client.send(get_request("/large.txt"));
        EXPECT_EQ(body_of(client.receive_answer()), text);
    }
}

TEST_F(FolderTest, ServesOthersWhileAPeerDoesNotReadItsFile) {
    write(m_root / "site/large.bin", std::string(20u << 20, 'x'));
    cHttpServerSettings settings;
    settings.stallTimeoutMs = k_stall_ms;
    cHttpServer server(0, k_buffer, settings);
    server.InstallHandler(*m_handler);
    test_client slow(server.ListenPort());
    slow.send(get_request("/large.bin"));
    EXPECT_EQ(body_of(get(server.ListenPort(), "/")), "<p>start</p>");
    // It is given up in the end.
    EXPECT_TRUE(pennywort::tests::eventually([&] {
        cHttpServerCounts counts;
        server.GetCounts(counts);
        return counts.open == 0;
    }));
}

TEST_F(FolderTest, EndsAConnectionWhoseFileBecameShorter) {
    write(m_root / "site/large.bin", std::string(20u << 20, 'x'));
    test_client client(m_server.ListenPort());
    client.send(get_request("/large.bin"));
    EXPECT_EQ(client.receive(5), "HTTP/");
    fs::resize_file(m_root / "site/large.bin", 0);
    EXPECT_TRUE(client.is_ended());
    EXPECT_LT(client.receive(21u << 20).size(), 20u << 20);
}

// A recording, for instance. The peer would take what is too much for the next answer.
TEST_F(FolderTest, GivesAFileThatHasGrownAsFarAsItsHeadHasTold) {
    write(m_root / "site/growing.txt", "first");
    const std::string before = get_file("/growing.txt");
    const std::unique_ptr<zSocket> closed(zSocket::Factory());
    const zString none;
    zStatus status = -1;
    const auto answer = m_handler->HandleInPieces(closed.get(), cHttpHandler::k_get,
                                                  zString("/growing.txt"), none, none, "", status);
    ASSERT_NE(answer, nullptr);
    std::ofstream(m_root / "site/growing.txt", std::ios::binary | std::ios::app) << " second";
    const auto told = static_cast<std::int64_t>(before.size());
    char bytes[1000];
    EXPECT_EQ(answer->Size(), told);
    EXPECT_EQ(answer->ReadAt(0, bytes, sizeof bytes), told);
    EXPECT_EQ(answer->ReadAt(told - 5, bytes, sizeof bytes), 5);
    EXPECT_EQ(answer->ReadAt(told - 2, bytes, sizeof bytes), 2);
    EXPECT_EQ(answer->ReadAt(told, bytes, sizeof bytes), 0);
}

TEST_F(FolderTest, GivesUpAPeerThatResetsInTheMiddle) {
    write(m_root / "site/large.bin", std::string(20u << 20, 'x'));
    test_client client(m_server.ListenPort());
    client.send(get_request("/large.bin"));
    EXPECT_EQ(client.receive(5), "HTTP/");
    client.reset();
    EXPECT_EQ(body_of(get_file("/")), "<p>start</p>");
}

// Whoever takes nothing may have no room for a head either: a socket that cannot send shows that
// nothing is tried.
TEST_F(FolderTest, LeavesTheWholeAnswerToTheServer) {
    const std::unique_ptr<zSocket> closed(zSocket::Factory());
    const zString none;
    zStatus status = -1;
    const auto answer = m_handler->HandleInPieces(closed.get(), cHttpHandler::k_get, zString("/"),
                                                  none, none, "", status);
    EXPECT_EQ(status, 0);
    ASSERT_NE(answer, nullptr);
    const std::string served = get_file("/");
    for (std::int32_t size : {1, 7, 1000}) {
        std::string whole;
        char piece[1000];
        while (static_cast<std::int64_t>(whole.size()) < answer->Size()) {
            const auto count = answer->ReadAt(static_cast<std::int64_t>(whole.size()), piece, size);
            ASSERT_GT(count, 0);
            ASSERT_LE(count, size);
            whole.append(piece, static_cast<std::size_t>(count));
        }
        EXPECT_EQ(whole, served) << size;
    }
}

TEST_F(FolderTest, AnswersACallerThatIsNoServerOnTheSpot) {
    const std::unique_ptr<zSocket> listener(zSocket::Factory());
    ASSERT_EQ(listener->Open(0), 0);
    ASSERT_EQ(listener->BindTo("127.0.0.1", 0), 0);
    ASSERT_EQ(listener->Listen(1), 0);
    test_client far(listener->LocalPort());
    zSocket* accepted = nullptr;
    while (listener->Accept(&accepted, 0) == zSocket::k_not_now) zThread::MicroSleep(100);
    const std::unique_ptr<zSocket> near(accepted);
    const zString none;
    EXPECT_EQ(m_handler->Handle(near.get(), cHttpHandler::k_get, zString("/"), none, none, ""), 0);
    EXPECT_EQ(body_of(far.receive_answer()), "<p>start</p>");
    EXPECT_EQ(m_handler->Handle(near.get(), cHttpHandler::k_get, zString("/no"), none, none, ""),
              0);
    EXPECT_EQ(first_line(far.receive_answer()), "HTTP/1.1 404 Not Found");
}

}  // namespace
