// ws_program_test_linux.cpp - "pennywort ws" from its user's side.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/host/program.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

namespace pennywort::host {
namespace {

void echo(peer_connection& connection) {
    connection.accept();
    while (true) {
        const peer_frame frame = connection.receive_frame();
        if (frame.opcode == -1) return;
        if (frame.opcode == frames::k_close) {
            connection.send(frames::frame(frames::k_final | frames::k_close, frame.payload));
            return connection.wait_for_end();
        }
        if (frame.opcode == frames::k_text) connection.send(frames::text(frame.payload));
    }
}

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

TEST(WsProgram, EndsWhenTheServerDoes) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("last words"));
        connection.close(1000);
    });
    const program_folder folder;
    const program_run run = folder.run("mkfifo input; pennywort ws " + peer.url() + " <>input");
    EXPECT_EQ(run.output, "last words\n");
    EXPECT_EQ(run.errors, "pennywort: opened\npennywort: closed\n");
}

TEST(WsProgram, SaysWhyThereIsNoConnection) {
    const program_folder folder;
    for (const char* arguments : {"ws://127.0.0.1:1/ --managed", "ws://127.0.0.1:1/ --system"}) {
        const program_run run =
            folder.run("pennywort ws " + std::string(arguments) + " </dev/null");
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_EQ(run.output, "");
        EXPECT_NE(run.errors.find("no connection"), std::string::npos) << run.errors;
    }
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

TEST(WsProgram, RefusesWrongArguments) {
    const program_folder folder;
    for (const char* arguments :
         {"", "ws://a --managed --system", "ws://a --system --ping 1", "http://127.0.0.1:1/",
          "ws:/a", "ws://a --ping 0", "ws://a --timeout x", "ws://a --linger -1"}) {
        const program_run run =
            folder.run("pennywort ws " + std::string(arguments) + " </dev/null");
        EXPECT_EQ(run.status, 2) << arguments;
    }
}

}  // namespace
}  // namespace pennywort::host
