// ws_program_test_linux.cpp - "pennywort ws" from its user's side.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "tests/host/program.h"
#include "tests/support/effort.h"
#include "tests/support/eventually.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

namespace pennywort::host {
namespace {

TEST(WsProgram, SendsLinesAndPrintsMessages) {
    const scripted_peer peer(echo);
    const program_folder folder;
    for (const char* transport : {"", "--managed", "--system"}) {
        const program_run run = folder.run("printf 'one\\ntwo\\r\\nthree' | pennywort ws " +
                                           peer.url() + " " + transport);
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.output, "one\ntwo\nthree\n") << transport;
        EXPECT_EQ(run.errors, "pennywort: opened\npennywort: closed\n") << transport;
    }
}

// What it says of the server's goodbye, and whether that is a failure.
TEST(WsProgram, EndsWhenTheServerDoesAndSaysWhy) {
    struct goodbye_case {
        std::string payload;
        const char* words;
        int status;
    };
    const goodbye_case cases[] = {
        {frames::code_bytes(1000), "closed by the server with 1000", 0},
        {"", "closed by the server", 0},
        {frames::code_bytes(1001) + "see you", "closed by the server with 1001: see you", 0},
        {frames::code_bytes(1008) + "no\x1B[m", "closed by the server with 1008: no\\x1B[m", 1}};
    const program_folder folder;
    for (const goodbye_case& one : cases) {
        const scripted_peer peer([&](peer_connection& connection) {
            connection.accept();
            connection.send(frames::text("last words"));
            connection.send(frames::frame(frames::k_final | frames::k_close, one.payload));
            connection.wait_for_end();
        });
        for (const char* transport : {"", "--system"}) {
            const program_run run = folder.run("rm -f input; mkfifo input; pennywort ws " +
                                               peer.url() + " " + transport + " <>input");
            EXPECT_EQ(run.output, "last words\n");
            EXPECT_EQ(run.errors, "pennywort: opened\npennywort: " + std::string(one.words) + "\n")
                << transport;
            EXPECT_EQ(run.status, one.status) << one.words;
        }
    }
}

constexpr char k_for_terminals[] = "\x1B[31mred \xC2\x9B bell\a";

TEST(WsProgram, ATerminalIsShownWhatItWouldObeyAndAPipeGetsIt) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text(k_for_terminals));
        connection.close(1000);
    });
    const program_folder folder;
    for (const char* transport : {"", " --system"}) {
        const std::string command = "'" PENNYWORT_PROGRAM "' ws " + peer.url() + transport;
        EXPECT_EQ(folder.run("rm -f input; mkfifo input; " + command + " <>input").output,
                  std::string(k_for_terminals) + "\n");
        const program_run shown =
            folder.run("script -qec \"" + command + " --linger 60\" /dev/null </dev/null");
        EXPECT_NE(shown.output.find("\\x1B[31mred \\xC2\\x9B bell\\x07"), std::string::npos)
            << shown.output;
        EXPECT_EQ(shown.output.find('\x1B'), std::string::npos) << shown.output;
    }
}

TEST(WsProgram, ALineThatIsNoTextIsToldAndNotSent) {
    const scripted_peer peer(echo);
    const program_folder folder;
    for (const char* transport : {"", "--system"}) {
        const program_run run = folder.run("printf 'a\\0b\\n\\xFF\\ngood\\n' | pennywort ws " +
                                           peer.url() + " " + transport);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, "good\n");
        EXPECT_EQ(run.errors,
                  "pennywort: opened\n"
                  "pennywort: a line of the input is not sent: it holds a NUL\n"
                  "pennywort: a line of the input is not sent: it is no UTF-8\n"
                  "pennywort: closed\n");
    }
}

TEST(WsProgram, SendsPingsOnRequest) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        const bool is_first = connection.receive_frame().opcode == frames::k_ping;
        const bool is_second = connection.receive_frame().opcode == frames::k_ping;
        connection.send(frames::text(is_first && is_second ? "two pings" : "something else"));
        connection.close(1000);
    });
    const program_folder folder;
    const program_run run =
        folder.run("mkfifo input; pennywort ws " + peer.url() + " --ping 0.05 <>input");
    EXPECT_EQ(run.output, "two pings\n");
}

// The server speaks when it sees what the client does behind the end of its input.
TEST(WsProgram, LingersAsLongAsItIsAskedTo) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
        const bool is_over = connection.receive_frame().opcode == frames::k_close;
        connection.send(is_over ? frames::close(1000) : "");
        connection.wait_for_end();
    });
    const program_folder folder;
    for (const char* transport : {"", "--system"}) {
        const program_run run = folder.run("echo a | timeout 60 '" PENNYWORT_PROGRAM "' ws " +
                                           peer.url() + " --linger 0 " + transport);
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.errors, "pennywort: opened\npennywort: closed\n");
    }
    const scripted_peer patient([&](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
        // The end of its input has come when this is there.
        tests::eventually([&] { return folder.has("ended"); });
        connection.send(frames::text("still here"));
        connection.close(1000);
    });
    const program_run run = folder.run("(echo a; exec >&-; touch ended) | pennywort ws " +
                                       patient.url() + " --linger 3600");
    EXPECT_EQ(run.output, "still here\n");
}

TEST(WsProgram, ASilentServerIsLeftInTime) {
    const scripted_peer peer([](peer_connection& connection) { connection.wait_for_end(); });
    const program_folder folder;
    for (const char* transport : {"", "--system"}) {
        const program_run run = folder.run("timeout 60 '" PENNYWORT_PROGRAM "' ws " + peer.url() +
                                           " --timeout 0.1 " + transport + " </dev/null");
        EXPECT_EQ(run.status, 1) << run.errors;
    }
}

// It opens before it minds SIGINT and SIGTERM, so that what hangs in its opening can be ended: a
// signal that comes between the two would end it without a word.
constexpr char k_when_it_listens[] =
    "until [ $((0x$(sed -n 's/^SigCgt:[^0-9a-f]*//p' /proc/$!/status) & 0x4002)) = 16386 ]; "
    "do sleep 0.01; done; ";

TEST(WsProgram, AnInterruptEndsIt) {
    const scripted_peer peer(echo);
    const program_folder folder;
    for (const char* transport : {"", "--system"}) {
        for (const auto& [signal, status] : {std::pair{"INT", 130}, {"TERM", 143}}) {
            const program_run run =
                folder.run("rm -f input said; mkfifo input; '" PENNYWORT_PROGRAM "' ws " +
                           peer.url() + " " + transport +
                           " <>input 2>said & until grep -q opened said 2>/dev/null; do kill -0 "
                           "$! || exit 1; sleep 0.01; done; " +
                           k_when_it_listens + "kill -" + signal + " $!; wait $!");
            EXPECT_EQ(run.status, status) << transport;
            EXPECT_EQ(folder.read("said"), "pennywort: opened\npennywort: closed\n");
        }
    }
}

TEST(WsProgram, AClosedStandardOutputIsToldAndNothingIsAskedFor) {
    const program_folder folder;
    const program_run run = folder.run("pennywort ws ws://127.0.0.1:1/ </dev/null >&-");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "pennywort: standard output is closed\n");
}

TEST(WsProgram, SaysWhyThereIsNoConnection) {
    const program_folder folder;
    for (const char* arguments : {"ws://127.0.0.1:1/ --managed", "ws://127.0.0.1:1/ --system"}) {
        const program_run run =
            folder.run("pennywort ws " + std::string(arguments) + " </dev/null");
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_EQ(run.output, "");
        EXPECT_NE(run.errors.find("pennywort: ws://127.0.0.1:1/: error "), std::string::npos);
        EXPECT_NE(run.errors.find(": nobody listens there (Connection refused)\n"),
                  std::string::npos)
            << run.errors;
        const program_run told =
            folder.run("pennywort ws " + std::string(arguments) + " --verbose </dev/null");
        EXPECT_NE(told.errors.find("refused"), std::string::npos) << told.errors;
    }
}

TEST(WsProgram, SaysWhichHostIsNotFoundAndWhichStatusAServerHas) {
    const scripted_peer refuses([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n");
    });
    const program_folder folder;
    for (const char* transport : {" --managed", " --system"}) {
        const program_run none = folder.run("pennywort ws ws://no.such.invalid/" +
                                            std::string(transport) + " </dev/null");
        EXPECT_EQ(none.status, 1);
        EXPECT_TRUE(none.errors.starts_with("pennywort: ws://no.such.invalid/: error "));
        EXPECT_NE(none.errors.find("the host is not found"), std::string::npos) << none.errors;
        const program_run refused =
            folder.run("pennywort ws " + refuses.url() + transport + " </dev/null");
        EXPECT_EQ(refused.status, 1);
        EXPECT_TRUE(refused.errors.starts_with("pennywort: " + refuses.url() + ": "));
        EXPECT_NE(refused.errors.find(": the server answers 401\n"), std::string::npos)
            << refused.errors;
    }
}

// More than may wait to be sent, to a server that is slower than the input.
TEST(WsProgram, MoreInputThanMayWaitGoesOutWhole) {
    // More than the socket's room; where a sanitizer looks on, more than the program's own.
    constexpr std::size_t k_lines = pennywort::tests::effort<std::size_t>(3000, 300);
    constexpr std::size_t k_all = k_lines * (100'000 + 14);  // with the heads of the frames
    std::atomic<std::size_t> taken{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        for (std::size_t now = 1; taken < k_all && now > 0; taken += now) {
            now = connection.receive(std::min<std::size_t>(1 << 20, k_all - taken)).size();
        }
        connection.receive_frame();
        connection.send(frames::close(1000));
        connection.wait_for_end();
    });
    const program_folder folder;
    const program_run run =
        folder.run("{ yes $(printf %0100000d 0); true; } | head -n " + std::to_string(k_lines) +
                   " | pennywort ws " + peer.url() + " --linger 0");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "pennywort: opened\npennywort: closed\n");
    EXPECT_EQ(taken, k_all);
}

// It opens, and reads nothing as long as it lives.
class server_that_takes_nothing {
public:
    ~server_that_takes_nothing() { m_is_over.set_value(); }
    std::string url() const { return m_peer.url(); }

private:
    std::promise<void> m_is_over;
    std::shared_future<void> m_over = m_is_over.get_future().share();
    scripted_peer m_peer{[this](peer_connection& connection) {
        connection.accept();
        m_over.wait_for(tests::k_patience);
    }};
};

// The end of the input would wait for ever otherwise.
TEST(WsProgram, AServerThatTakesNothingIsToldAndLeft) {
    const server_that_takes_nothing peer;
    const program_folder folder;
    const program_run run = folder.run("head -c 33554432 /dev/zero | tr '\\0' x | pennywort ws " +
                                       peer.url() + " --linger 0 --stall 1");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.errors.starts_with("pennywort: opened\npennywort: the server takes nothing: "))
        << run.errors;
    EXPECT_TRUE(run.errors.ends_with(" bytes are not sent\npennywort: " + peer.url() +
                                     ": closed, not cleanly: the server is silent\n"))
        << run.errors;
}

// The system's transport is inside its call then, and is ended there.
TEST(WsProgram, AServerThatTakesNothingIsLeftByTheSystemsTransportToo) {
    const server_that_takes_nothing peer;
    const program_folder folder;
    const program_run run = folder.run(
        "(head -c 15000000 /dev/zero | tr '\\0' x; echo; echo behind it) | pennywort ws " +
        peer.url() + " --system --linger 0 --stall 1");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors,
              "pennywort: opened\n"
              "pennywort: the server takes nothing: 15000000 bytes are not sent\n"
              "pennywort: closed\n");
}

TEST(WsProgram, ALineThatIsLongerThanAMessageIsToldAndNotSent) {
    const scripted_peer peer(echo);
    const program_folder folder;
    const program_run run = folder.run(
        "(head -c 300000000 /dev/zero | tr '\\0' x; printf '\\ngood\\n') | pennywort ws " +
        peer.url());
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "good\n");
    EXPECT_EQ(run.errors,
              "pennywort: opened\n"
              "pennywort: a line of the input is not sent: it is longer than 256 MiB\n"
              "pennywort: closed\n");
}

TEST(WsProgram, AnOutputThatTakesNothingIsAFailureAndAReaderThatLeavesIsNone) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        while (connection.send(frames::text("hello"))) {
        }
    });
    const program_folder folder;
    for (const char* transport : {"", "--system"}) {
        const std::string command = "mkfifo input; pennywort ws " + peer.url() + " " + transport;
        const program_run full = folder.run(command + " <>input >/dev/full");
        EXPECT_EQ(full.status, 1) << transport;
        EXPECT_NE(full.errors.find("cannot write standard output"), std::string::npos)
            << full.errors;
        const program_run left = folder.run(command + " <>input | true");
        EXPECT_EQ(left.status, 0) << left.errors;
        EXPECT_NE(left.errors.find("the reader of the output has closed it"), std::string::npos)
            << left.errors;
    }
}

TEST(WsProgram, AReaderThatLeavesBehindTheLastMessageEndsIt) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("hello"));
        connection.receive_frame();
        connection.send(frames::close(1000));
        connection.wait_for_end();
    });
    const program_folder folder;
    for (const char* transport : {"", "--system"}) {
        const program_run run = folder.run("rm -f input; mkfifo input; pennywort ws " + peer.url() +
                                           " " + transport + " <>input | head -n 1");
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.output, "hello\n");
        EXPECT_EQ(run.errors,
                  "pennywort: opened\npennywort: the reader of the output has closed it\n");
    }
}

// It may have lines to send. Each ping is a turn in which the program has looked.
TEST(WsProgram, AReaderThatWantsNoMessageEndsNothing) {
    const program_folder folder;
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        while (!folder.has("gone") && connection.receive_frame().opcode == frames::k_ping) {
        }
        bool goes_on = true;
        for (int i = 0; i < 3; ++i) {
            goes_on = goes_on && connection.receive_frame().opcode == frames::k_ping;
        }
        connection.close(goes_on ? 1000 : 1008);
    });
    const program_run run = folder.run("mkfifo input; pennywort ws " + peer.url() +
                                       " --ping 0.05 <>input | { exec <&-; touch gone; }");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "pennywort: opened\npennywort: closed by the server with 1000\n");
}

TEST(WsProgram, RefusesWrongArguments) {
    const program_folder folder;
    for (const char* arguments :
         {"", "ws://a --managed --system", "ws://a --system --ping 1", "http://127.0.0.1:1/",
          "ws:/a", "ws://a --ping 0", "ws://a --stall 0", "ws://a --timeout x",
          "ws://a --linger -1", "ws://", "ws://127.0.0.1:99999/", "ws://127.0.0.1:0/",
          "'ws://a/#b'", "'ws://a b/'"}) {
        const program_run run =
            folder.run("pennywort ws " + std::string(arguments) + " </dev/null");
        EXPECT_EQ(run.status, 2) << arguments;
    }
    EXPECT_NE(folder.run("pennywort ws ws:// </dev/null").errors.find("the URL has no host"),
              std::string::npos);
    EXPECT_NE(folder.run("pennywort ws ws://a:99999/ </dev/null").errors.find("the port is not"),
              std::string::npos);
}

}  // namespace
}  // namespace pennywort::host
