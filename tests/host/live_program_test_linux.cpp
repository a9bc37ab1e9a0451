// tests/host/live_program_test_linux.cpp - "pennywort live" from its user's side, as far as it gets
// without the browser runtime. tests/live has the rest.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "tests/host/program.h"

namespace pennywort::host {
namespace {

// A port of this machine that somebody else listens on.
class taken_port {
public:
    taken_port() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        const bool listens = ::bind(m_socket, any, size) == 0 && ::listen(m_socket, 1) == 0 &&
                             ::getsockname(m_socket, any, &size) == 0;
        m_port = listens ? ntohs(address.sin_port) : 0;
    }
    ~taken_port() { ::close(m_socket); }
    taken_port(const taken_port&) = delete;
    taken_port& operator=(const taken_port&) = delete;

    std::string port() const { return std::to_string(m_port); }

private:
    const int m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_port = 0;
};

class LiveProgram : public testing::Test {
protected:
    void expect_refusal(const std::string& arguments, int status, const std::string& part) {
        const auto run = folder.run("pennywort live " + arguments);
        EXPECT_EQ(run.status, status) << run.errors;
        EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
        EXPECT_EQ(run.errors.find('\n'), run.errors.size() - 1) << run.errors;
        EXPECT_EQ(run.output, "");
    }

    program_folder folder;
};

TEST_F(LiveProgram, WrongArgumentsEndWithStatus2AndOneLine) {
    expect_refusal("", 2, "pages");
    expect_refusal("missing.html", 2, "missing.html");
    expect_refusal("about:blank missing.html", 2, "missing.html");
    expect_refusal("about:blank --size 0x5", 2, "--size 0x5");
    expect_refusal("about:blank --fps 0", 2, "--fps 0");
    expect_refusal("about:blank --port -1", 2, "port");
    expect_refusal("about:blank --port 65536", 2, "--port 65536");
    expect_refusal("about:blank --port http", 2, "--port http");
    expect_refusal("about:blank --listen ''", 2, "--listen");
    expect_refusal("about:blank --listen studio", 2, "--listen studio");
    expect_refusal("about:blank --listen 1.2.3", 2, "--listen 1.2.3");
    expect_refusal("about:blank --seconds 5", 2, "--seconds");
}

TEST_F(LiveProgram, APageOfTheBrowsersOwnIsRefused) {
    expect_refusal("chrome://inducebrowsercrashforrealz", 2, "of the browser's own");
}

TEST_F(LiveProgram, ATakenPortIsToldBeforeTheRuntimeStarts) {
    const taken_port taken;
    ASSERT_NE(taken.port(), "0");
    expect_refusal("about:blank --port " + taken.port(), 1, "port " + taken.port() + " is taken");
}

TEST_F(LiveProgram, AnAddressThatIsNotThisMachinesIsTold) {
    expect_refusal("about:blank --port 0 --listen 192.0.2.1", 1,
                   "cannot listen on 192.0.2.1 port 0: this machine has no such address");
}

TEST_F(LiveProgram, HelpGoesToStandardOutput) {
    const auto help = folder.run("pennywort live --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("--listen"), std::string::npos);
}

}  // namespace
}  // namespace pennywort::host
