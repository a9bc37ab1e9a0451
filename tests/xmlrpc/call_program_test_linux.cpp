// call_program_test_linux.cpp - "pennywort call" as its user runs it, from a shell, with servers of
// Python's own library and with ones that are none.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/host/program.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/xmlrpc/python_server.h"

namespace {

using pennywort::host::program_folder;
using pennywort::host::program_run;
using pennywort::tests::peer_process;

class CallProgram : public pennywort::tests::PythonServerTest {
protected:
    program_run call(const std::string& arguments) const {
        return m_folder.run("pennywort call " + arguments);
    }
    // One line about the fault, and nothing else.
    void expect_failure(const std::string& arguments, int status, const std::string& line) const {
        const program_run run = call(arguments);
        EXPECT_EQ(run.status, status) << arguments;
        EXPECT_EQ(run.errors, "pennywort: " + line + "\n");
        EXPECT_EQ(run.output, "");
    }

    program_folder m_folder;
};

TEST_F(CallProgram, EveryTypeGoesThereAndBack) {
    const program_run run =
        call(s_url +
             " echo 7 -2147483648 0.1 true false null '\"<\xC3\xA9> & \\n\"' '\"\"' '[]' '[1, [2]]'"
             " '{}' '{\"a b\": {\"c\": []}}' '{\"$base64\": \"AAH/\"}'"
             " '{\"$date\": \"20260131T14:08:55\"}'");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.output,
              "[7,-2147483648,0.1,true,false,null,\"<\xC3\xA9> & \\n\",\"\",[],[1,[2]],{},"
              "{\"a b\":{\"c\":[]}},{\"$base64\":\"AAH/\"},{\"$date\":\"20260131T14:08:55\"}]\n");
}

TEST_F(CallProgram, TheServerSeesEachTypeAsItsOwn) {
    const auto type_of = [this](const std::string& value) {
        return call(s_url + " type '" + value + "'").output;
    };
    EXPECT_EQ(type_of("1"), "\"int\"\n");
    EXPECT_EQ(type_of("9223372036854775807"), "\"int\"\n");
    EXPECT_EQ(type_of("1.0"), "\"float\"\n");
    EXPECT_EQ(type_of("true"), "\"bool\"\n");
    EXPECT_EQ(type_of("null"), "\"NoneType\"\n");
    EXPECT_EQ(type_of("\"x\""), "\"str\"\n");
    EXPECT_EQ(type_of("[]"), "\"list\"\n");
    EXPECT_EQ(type_of("{}"), "\"dict\"\n");
    EXPECT_EQ(type_of("{\"$base64\": \"\"}"), "\"Binary\"\n");
    EXPECT_EQ(type_of("{\"$date\": \"20260131T14:08:55\"}"), "\"DateTime\"\n");
}

TEST_F(CallProgram, AFaultIsStatus3AndOneLine) {
    expect_failure(s_url + " fail 42 '\"no such\\ndeck\"'", 3, s_url + ": fault 42: no such deck");
    const program_run run = call(s_url + " nothing.of.this.name");
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.errors.find("fault 1: "), std::string::npos) << run.errors;
}

TEST_F(CallProgram, AResultThatNobodyReadsToItsEndIsStatus1) {
    const std::string many = "pennywort call " + s_url + " repeat '\"" + std::string(100, 'x') +
                             "\"' 20000 | head -c1 >/dev/null; exit ${PIPESTATUS[0]}";
    const program_run run = m_folder.run(many);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "pennywort: " + s_url + ": standard output takes nothing\n");
}

TEST_F(CallProgram, AServerThatIsNoneIsStatus1AndOneLine) {
    std::string other = s_url;
    other.replace(other.find("/RPC2"), 5, "/other");
    expect_failure(other + " add 1 2", 1, other + ": the server answered 404");
    std::string several = s_url;
    several.replace(several.find("/RPC2"), 5, "/multipart");
    expect_failure(several + " add 1 2", 1, several + ": the response has several parts");
    expect_failure(
        "http://127.0.0.1:1/ m", 1,
        "http://127.0.0.1:1/: no connection: nobody listens there, or the host is out of reach");
}

TEST_F(CallProgram, APageOfHtmlIsStatus1AndOneLine) {
    for (const char* body : {"<!DOCTYPE html><p>Hello", "<html><body>Hello</body></html>", ""}) {
        const scripted_peer peer(answering(answer_with(body)));
        expect_failure(peer.url() + " m", 1, peer.url() + ": the response is no XML-RPC");
    }
}

TEST_F(CallProgram, AServerThatIsSilentIsStatus1AndOneLine) {
    const scripted_peer peer([](peer_connection& connection) { connection.wait_for_end(); });
    expect_failure(peer.url() + " m --timeout 0.2", 1, peer.url() + ": no response came in time");
}

TEST_F(CallProgram, WrongArgumentsAreStatus2AndOneLine) {
    expect_failure("localhost/RPC2 m", 2,
                   "localhost/RPC2 is no URL of HTTP: http:// or https://, and a host");
    expect_failure(s_url + " echo words", 2,
                   "words is no JSON; a text needs its quotation marks: '\"words\"'");
    expect_failure(s_url + " echo --cacert nowhere", 2,
                   "--cacert nowhere: the file cannot be read");
    expect_failure("'http://[::1' m", 2,
                   "http://[::1: the URL has no host or no port that can be asked");
    const program_run run = call(s_url);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors.find('\n'), run.errors.size() - 1) << run.errors;
}

// Trusted only with its own certificate.
TEST_F(CallProgram, OverTlsTheCertificateDecides) {
    peer_process server({"python3", PYTHON_SERVER, "--tls", "127.0.0.1", "0"});
    const std::string line = server.line();
    const std::size_t space = line.find(' ');
    ASSERT_NE(space, std::string::npos) << line;
    const std::string url = "https://127.0.0.1:" + line.substr(0, space) + "/RPC2";
    const program_run run = call(url + " add 20 22 --cacert '" + line.substr(space + 1) + "'");
    EXPECT_EQ(run.output, "42\n") << run.errors;
    EXPECT_EQ(run.status, 0);
    expect_failure(url + " add 20 22", 1, url + ": the server's certificate is not trusted");
}

TEST_F(CallProgram, HelpHasItsStatuses) {
    const program_run run = call("--help");
    EXPECT_EQ(run.status, 0);
    for (const char* part :
         {"0 a result", "1 failed", "2 wrong arguments", "3 the server's answer"}) {
        EXPECT_NE(run.output.find(part), std::string::npos) << part;
    }
    EXPECT_NE(run.output.find("[ARG]..."), std::string::npos) << run.output;
}

}  // namespace
