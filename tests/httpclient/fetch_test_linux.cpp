// fetch_test_linux.cpp - "pennywort fetch" as its user runs it, from a shell.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/host/program.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/support/eventually.h"

namespace {

using pennywort::host::program_folder;
using pennywort::host::program_run;

class FetchTest : public testing::Test {
protected:
    program_run fetch(const std::string& arguments) const {
        return m_folder.run("pennywort fetch " + arguments);
    }

    program_folder m_folder;
};

// Answers with what it was asked.
scripted_peer::script echoing() {
    return [](peer_connection& connection) {
        const std::string head = connection.receive_head();
        const std::size_t at = head.find("Content-Length: ");
        const std::size_t length = at == head.npos ? 0 : std::stoul(head.substr(at + 16));
        connection.send(answer_with(head + connection.receive(length)));
    };
}

TEST_F(FetchTest, WritesTheBodyToStandardOutput) {
    const scripted_peer peer(answering(answer_with("hello")));
    const program_run run = fetch(peer.url());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "hello");
    EXPECT_EQ(run.errors, "");
}

TEST_F(FetchTest, WritesTheBodyToAFile) {
    const scripted_peer peer(answering(answer_with("hello")));
    const program_run run = fetch(peer.url() + " -o page.html");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(m_folder.read("page.html"), "hello");
}

TEST_F(FetchTest, SendsVerbHeadersAndBody) {
    const scripted_peer peer(echoing());
    m_folder.write("body.bin", "from a file");
    program_run run = fetch(peer.url() + " -X PUT -H 'X-One: 1' -H X-Two:2 -d @body.bin");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output.substr(0, 15), "PUT / HTTP/1.1\r");
    for (const char* part : {"\r\nX-One: 1\r\n", "\r\nX-Two: 2\r\n", "\r\n\r\nfrom a file"}) {
        EXPECT_NE(run.output.find(part), std::string::npos) << run.output;
    }
    run = fetch(peer.url() + " -d text");
    EXPECT_EQ(run.output.substr(0, 5), "POST ");
}

TEST_F(FetchTest, SendsWhatStandsInStandardInput) {
    const scripted_peer peer(echoing());
    program_run run = m_folder.run("printf 'one\\r\\ntwo\\0\\032three' | pennywort fetch " +
                                   peer.url() + " -d @-");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find(std::string("\r\n\r\none\r\ntwo\0\x1Athree", 19)), std::string::npos)
        << run.output;
    run = fetch(peer.url() + " -d @- </dev/null");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("Content-Length: 0\r\n"), std::string::npos) << run.output;
    run = fetch(peer.url() + " -d @- <&-");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.errors.find("-d @-: cannot be read"), std::string::npos) << run.errors;
}

TEST_F(FetchTest, SendsAllValuesOfAHeaderThatIsRepeated) {
    const scripted_peer peer(echoing());
    const program_run run =
        fetch(peer.url() + " -H 'X: 1' -H 'x: 2' -H 'Cookie: a=1' -H 'Cookie: b=2'");
    EXPECT_NE(run.output.find("\r\nX: 1, 2\r\n"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("\r\nCookie: a=1; b=2\r\n"), std::string::npos) << run.output;
}

TEST_F(FetchTest, TakesADashForStandardOutput) {
    const scripted_peer peer(answering(answer_with("hello")));
    const program_run run = fetch(peer.url() + " -o -");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "hello");
}

TEST_F(FetchTest, RefusesAFileThatItCannotUse) {
    program_run run = fetch("http://127.0.0.1:1/ -d @/");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.errors.find("-d @/: cannot be read"), std::string::npos) << run.errors;
    run = fetch("http://127.0.0.1:1/ --cacert nowhere.pem");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.errors.find("--cacert nowhere.pem: the file cannot be read"), std::string::npos)
        << run.errors;
    run = fetch("http://127.0.0.1:1/ -o x --log ./x");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.errors.find("the same file"), std::string::npos) << run.errors;
}

TEST_F(FetchTest, WritesATranscriptWhereAsked) {
    const scripted_peer peer(answering(answer_with("hello")));
    EXPECT_EQ(fetch(peer.url() + " --log wire.txt -d sent").status, 0);
    const std::string log = m_folder.read("wire.txt");
    for (const char* part :
         {" SENT ", "POST ", "sent", " RECEIVED ", "status 200", "Content-Length: 5", "hello"}) {
        EXPECT_NE(log.find(part), std::string::npos) << part << " in " << log;
    }
}

TEST_F(FetchTest, HasAnExitStatusAndALineForEachFailure) {
    const std::string gone = "http://127.0.0.1:1/";
    program_run run = fetch(gone);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.errors, "pennywort: " + gone +
                              ": no connection: nobody listens there, or the host is out of "
                              "reach\n");
    const scripted_peer silent([](peer_connection& connection) { connection.wait_for_end(); });
    EXPECT_EQ(fetch(silent.url() + " --timeout 0.1").status, 4);
    const scripted_peer brief([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    });
    run = fetch(brief.url());
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(run.output, "hello");
    const scripted_peer refusing(answering("HTTP/1.1 404 Gone\r\nContent-Length: 3\r\n\r\nwhy"));
    run = fetch(refusing.url());
    EXPECT_EQ(run.status, 6);
    EXPECT_EQ(run.output, "why");
    EXPECT_EQ(run.errors, "pennywort: " + refusing.url() + ": the server answered 404\n");
}

TEST_F(FetchTest, TellsThatABodyBrokeOff) {
    for (const char* rest : {"Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n",
                             "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nzz\r\n"}) {
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send("HTTP/1.1 200 OK\r\n" + std::string(rest));
        });
        const program_run run = fetch(peer.url());
        EXPECT_EQ(run.status, 5);
        EXPECT_EQ(run.output, "hello");
        EXPECT_EQ(run.errors,
                  "pennywort: " + peer.url() + ": the response broke off before its end\n");
    }
    const scripted_peer silent([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\n\r\nhello");
        connection.wait_for_end();
    });
    program_run run;
    // On a busy machine not even the beginning may come in time.
    EXPECT_TRUE(pennywort::tests::eventually([&] {
        run = fetch(silent.url() + " --timeout 3");
        return !run.output.empty();
    }));
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.output, "hello");
    EXPECT_EQ(run.errors,
              "pennywort: " + silent.url() + ": the rest of the response did not come in time\n");
}

TEST_F(FetchTest, ShowsTracesWhereAsked) {
    constexpr char k_trace[] = "WinHttpSendRequest - failed";
    EXPECT_EQ(fetch("http://127.0.0.1:1/").errors.find(k_trace), std::string::npos);
    const program_run run = fetch("http://127.0.0.1:1/ --verbose");
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.errors.find(k_trace), std::string::npos) << run.errors;
}

TEST_F(FetchTest, LeavesAFileAloneUnlessAResponseCame) {
    m_folder.write("page.html", "old");
    const std::string gone = "http://127.0.0.1:1/";
    EXPECT_EQ(fetch(gone + " -o page.html").status, 3);
    EXPECT_EQ(m_folder.read("page.html"), "old");
    EXPECT_EQ(fetch(gone + " -o nowhere/page.html").status, 1);
}

TEST_F(FetchTest, RefusesWhatItCannotMakeSenseOf) {
    for (const char* arguments :
         {"", "nonsense", "ftp://host/", "http://host/ -X BREW", "http://host/ -H nocolon",
          "http://host/ -H 'a b: c'", "http://host/ -d @nowhere", "http://host/ --timeout 0",
          "http://host/ --timeout x"}) {
        SCOPED_TRACE(arguments);
        const program_run run = fetch(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_NE(run.errors, "");
    }
}

// When the request has come; what waits for it is the peer's script.
TEST_F(FetchTest, AnInterruptEndsIt) {
    const scripted_peer silent([this](peer_connection& connection) {
        connection.receive_head();
        m_folder.write("come", "");
        connection.wait_for_end();
    });
    for (const auto& [signal, status] : {std::pair{"INT", 130}, {"TERM", 143}}) {
        const program_run run =
            m_folder.run("rm -f come; '" PENNYWORT_PROGRAM "' fetch " + silent.url() +
                         " & until [ -e come ]; do kill -0 $! || exit 1; sleep 0.01; done; kill -" +
                         signal + " $!; wait $!");
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.errors, "pennywort: " + silent.url() + ": interrupted\n");
    }
}

// Its descriptor is free, then, and the program's own files would stand there.
TEST_F(FetchTest, AClosedStandardOutputIsToldAndNothingIsAskedFor) {
    const scripted_peer peer(answering(answer_with("hello")));
    program_run run = fetch(peer.url() + " >&-");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "pennywort: " + peer.url() + ": standard output is closed\n");
    EXPECT_EQ(peer.connections(), 0);
    run = fetch(peer.url() + " -o page.html >&-");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(m_folder.read("page.html"), "hello");
}

TEST_F(FetchTest, ATranscriptThatCannotBeWrittenIsTold) {
    const scripted_peer peer(answering(answer_with("hello")));
    const program_run run = fetch(peer.url() + " --log /dev/full");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "hello");
    EXPECT_EQ(run.errors, "pennywort: " + peer.url() + ": cannot write all of /dev/full\n");
}

}  // namespace
