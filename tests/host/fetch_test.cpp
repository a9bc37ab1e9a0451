// fetch_test.cpp - the command "fetch" inside a test, on every system: its arguments, its progress,
// and what it says of how a request ended. fetch_test_linux.cpp runs the program from a shell.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "host/app/command_line.h"
#include "host/fetch/fetch.h"
#include "host/fetch/fetch_command.h"
#include "host/fetch/fetch_progress.h"
#include "httpclient.h"
#include "tests/host/said_by.h"
#include "tests/host/temporary_folder.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/loam/wine.h"

namespace pennywort::host {
namespace {

TEST(ByteCounts, HaveAUnitAndADigitBehindThePoint) {
    EXPECT_EQ(byte_count(0), "0 B");
    EXPECT_EQ(byte_count(999), "999 B");
    EXPECT_EQ(byte_count(1000), "1.0 kB");
    EXPECT_EQ(byte_count(999'949), "999.9 kB");
    EXPECT_EQ(byte_count(999'950), "1.0 MB");
    EXPECT_EQ(byte_count(12'345'678), "12.3 MB");
    EXPECT_EQ(byte_count(2'000'000'000'000), "2.0 TB");
    EXPECT_EQ(byte_count(2'000'000'000'000'000), "2000.0 TB");
}

TEST(FetchLine, TellsPartRateAndTimeLeft) {
    EXPECT_EQ(fetch_line(500, 2000, 2, 80),
              "[#######.......................]  500 B of 2.0 kB  250 B/s  0:00:06 left");
    EXPECT_EQ(fetch_line(2000, 2000, 2, 80),
              "[##############################]  2.0 kB of 2.0 kB  1.0 kB/s");
    EXPECT_EQ(fetch_line(1000, 1'000'000'000, 1, 80),
              "[..............................]  1.0 kB of 1.0 GB  1.0 kB/s  99:59:59 left");
}

TEST(FetchLine, WithoutALengthTellsBytesAndRate) {
    EXPECT_EQ(fetch_line(500, 0, 2, 80), "500 B  250 B/s");
    EXPECT_EQ(fetch_line(0, 0, 0, 80), "0 B  0 B/s");
}

// More came than was announced, and a clock that stands still.
TEST(FetchLine, StandsWhateverTheNumbers) {
    EXPECT_EQ(fetch_line(3000, 2000, 0, 80),
              "[##############################]  3.0 kB of 2.0 kB  0 B/s");
}

TEST(FetchLine, IsNoLongerThanTheTerminal) {
    for (int columns = 0; columns <= 100; ++columns) {
        const std::string line = fetch_line(500, 2000, 2, columns);
        EXPECT_LE(static_cast<int>(line.size()), columns == 0 ? 0 : columns - 1);
    }
    EXPECT_EQ(fetch_line(500, 2000, 2, 12), "500 B of 2.");
}

TEST(FetchArguments, OfTheConnectionAreThoseOfEveryCommand) {
    const auto line = parse_command_line({"fetch", "http://h/", "--timeout", "5", "--log", "x"});
    ASSERT_EQ(line.what, command_line::verdict::run) << line.text;
    const auto& chosen = dynamic_cast<const fetch_command&>(*line.chosen);
    EXPECT_EQ(chosen.options().http.url, "http://h/");
    EXPECT_EQ(chosen.options().http.timeout, 5.0);
    EXPECT_EQ(chosen.options().http.log, "x");
    const auto refused = [](const std::vector<std::string>& more) {
        std::vector<std::string> all = {"fetch"};
        all.insert(all.end(), more.begin(), more.end());
        return parse_command_line(all).text;
    };
    EXPECT_EQ(refused({"ftp://h/x"}),
              "ftp://h/x is no URL of HTTP: http:// or https://, and a host");
    EXPECT_EQ(refused({"http://me:secret@h/"}), "a user or password in the URL would not be sent");
    EXPECT_EQ(refused({"http://h/", "--cacert", "."}), "--cacert .: the file cannot be read");
    EXPECT_EQ(refused({"http://h/", "--timeout", "0"}),
              "--timeout 0 is not a time from 0.001 to 3600 seconds");
    EXPECT_EQ(refused({"http://h/", "--log", "-"}), "--log - : a transcript goes into a file");
    EXPECT_EQ(refused({"http://h/", "--log", ""}), "--log '' names no file");
    EXPECT_EQ(refused({"http://h/", "--cacert", ""}), "--cacert '' names no file");
    EXPECT_EQ(refused({"http://h/", "-o", ""}), "-o '' names no file");
    EXPECT_EQ(refused({"http://h/", "-X", ""}), "-X '' is not GET, POST, PUT, PATCH or DELETE");
}

// Of a system whose HTTP service knows its own certificates only.
TEST(FetchWords, NameTheOptionThatCannotBeHad) {
    EXPECT_EQ(words_for_request(cHttpSession::k_session_failed, cHttpSession::k_error_not_supported,
                                false),
              "--cacert: this system's HTTP service trusts the system's certificates alone");
    EXPECT_EQ(words_for_request(cHttpSession::k_session_failed, 1, false),
              "the HTTP service of this system could not be opened");
}

class Fetch : public testing::Test {
protected:
    said fetched(const std::string& url) {
        m_options.http.url = url;
        m_options.verb = cHttpSession::k_get;
        m_options.verb_name = "GET";
        said all = said_by([this](const console& out) { return fetch(m_options, out); });
        const std::string front = "pennywort: " + url + ": ";
        if (all.errors.starts_with(front)) all.errors.erase(0, front.size());
        return all;
    }
    said answered(const std::string& bytes) {
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send(bytes);
        });
        return fetched(peer.url());
    }

    fetch_options m_options;
    temporary_folder m_folder;
};

TEST_F(Fetch, WritesTheBody) {
    const said all = answered(answer_with("hello"));
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.output, "hello");
    EXPECT_EQ(all.errors, "");
}

TEST_F(Fetch, TellsEveryStatusAsItCame) {
    for (const char* status : {"404", "599", "999"}) {
        const said all =
            answered("HTTP/1.1 " + std::string(status) + " Words\r\nContent-Length: 3\r\n\r\nwhy");
        EXPECT_EQ(all.status, 6);
        EXPECT_EQ(all.output, "why");
        EXPECT_EQ(all.errors, "the server answered " + std::string(status) + "\n");
    }
}

TEST_F(Fetch, TellsWhyThereIsNoConnection) {
    said all = fetched("http://127.0.0.1:1/");
    EXPECT_EQ(all.status, 3);
    EXPECT_EQ(all.errors, "no connection: nobody listens there, or the host is out of reach\n");
    // No label of a name is as long: nobody need be asked for it.
    all = fetched("http://" + std::string(64, 'x') + ".example/");
    EXPECT_EQ(all.status, 3);
    EXPECT_EQ(all.errors, "the name of the host is not known\n");
}

TEST_F(Fetch, RefusesAUrlThatLeadsNowhere) {
    for (const char* url : {"http://host:0/", "http://127.0.0.1:99999/", "http://[::1",
                            "http://a host/", "http://host:x/"}) {
        SCOPED_TRACE(url);
        const said all = fetched(url);
        EXPECT_EQ(all.status, 2);
        EXPECT_EQ(all.errors, "the URL has no host or no port that can be asked\n");
    }
}

// Neither by what the user's script has put into the URL.
TEST_F(Fetch, TellsWhateverFailsInOneLine) {
    const said all = fetched("http://host:0/a\nb\x1B[31m");
    EXPECT_EQ(all.errors,
              "pennywort: http://host:0/a b [31m: the URL has no host or no port that can be "
              "asked\n");
}

TEST_F(Fetch, TellsThatNoTlsIsSpokenThere) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits a minute for a greeting of TLS";
    const scripted_peer peer([](peer_connection& connection) {
        connection.send(answer_with("hello"));
        connection.wait_for_end();
    });
    const said all = fetched("https" + peer.url().substr(4));
    EXPECT_EQ(all.status, 3);
    EXPECT_TRUE(all.errors ==
                    "the server speaks no TLS on that port, or none that is spoken here\n" ||
                all.errors == "the server's certificate is not trusted\n")
        << all.errors;
}

TEST_F(Fetch, TellsThatARedirectLeadsNowhere) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine follows redirects by other rules";
    const said all = answered("HTTP/1.1 302 Found\r\nLocation: http://" + std::string(64, 'x') +
                              ".example/\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(all.status, 3);
    EXPECT_EQ(all.errors, "after a redirect: the name of the host is not known\n");
}

TEST_F(Fetch, TellsWhatIsNoResponse) {
    said all = answered("hello\r\n\r\n");
    EXPECT_EQ(all.status, 5);
    EXPECT_EQ(all.errors, "what came is no HTTP response\n");
    all = answered("");
    EXPECT_EQ(all.status, 5);
    // Wine has one error for both.
    if (!runs_under_wine()) {
        EXPECT_EQ(all.errors, "the connection broke before a response had come\n");
    }
}

TEST_F(Fetch, TellsThatABodyIsCut) {
    said all = answered("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    EXPECT_EQ(all.status, 5);
    EXPECT_EQ(all.output, "hello");
    EXPECT_EQ(all.errors, "less came than the response had announced\n");
}

TEST_F(Fetch, WritesATranscript) {
    m_options.http.log = m_folder.path("log");
    EXPECT_EQ(answered(answer_with("hello")).status, 0);
    const std::string log = m_folder.read("log");
    for (const char* part : {" SENT ", "GET http://", " RECEIVED ", "status 200", "hello"}) {
        EXPECT_NE(log.find(part), std::string::npos) << part << " in " << log;
    }
}

}  // namespace
}  // namespace pennywort::host
