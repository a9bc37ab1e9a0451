// feed_program_test_linux.cpp - "--feed" and "--on-message" on the real browser runtime: what a
// page makes of a feed's messages, and what is said of a feed that is not there.
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "tests/host/program.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

namespace pennywort::host {
namespace {

class Feed : public testing::Test {
protected:
    Feed() { folder.write("page.html", "<!doctype html><body style='background:#f00'></body>"); }

    program_run render(const std::string& url, const std::string& script,
                       const std::string& more = "--wait-for window.told") const {
        folder.write("on.js", script);
        return folder.run("pennywort render page.html --size 16x16 --frames 1 -o out.raw --feed " +
                          url + " --on-message @on.js " + more);
    }
    // The first pixel: blue, green, red.
    std::vector<int> colour() const {
        const std::string bytes = folder.read("out.raw").substr(0, 3);
        const auto at = [&](std::size_t i) { return int(static_cast<unsigned char>(bytes.at(i))); };
        return bytes.size() < 3 ? std::vector<int>() : std::vector<int>{at(0), at(1), at(2)};
    }

    program_folder folder;
};

const std::vector<int> k_green{0, 128, 0};

TEST_F(Feed, AMessageChangesThePage) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("{\"colour\":\"rgb(0,128,0)\"}"));
        connection.wait_for_end();
    });
    const program_run run = render(
        peer.url(), "document.body.style.background = JSON.parse(message).colour;\ntold = true;");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("feed " + peer.url() + ": opened\n"), std::string::npos)
        << run.errors;
    EXPECT_EQ(colour(), k_green);
}

TEST_F(Feed, MessagesArriveAsTheyAreAndInTheirOrder) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        for (int i = 0; i < 300; ++i) connection.send(frames::text(std::to_string(i)));
        connection.send(
            frames::text("`${1}` '\"\\ </script>\n\r\t\x01 \xE2\x80\xA8 \xF0\x9F\x8E\xAC"));
        connection.wait_for_end();
    });
    const program_run run = render(peer.url(), R"(
        window.all = (window.all || []).concat(message);
        if (all.length < 301) return;
        const last = "`${1}` '\"\\ </scr" + "ipt>\n\r\t\x01 \u2028 \u{1F3AC}";
        const isRight = all.every((text, i) => text === (i < 300 ? String(i) : last));
        document.body.style.background = isRight ? 'rgb(0,128,0)' : 'rgb(0,0,255)';
        window.told = true;)");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(colour(), k_green);
}

TEST_F(Feed, AFilmExactToTheFrameHasThemToo) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("rgb(0,128,0)"));
        connection.wait_for_end();
    });
    const program_run run =
        render(peer.url(), "document.body.style.background = message; window.told = true;",
               "--wait-for window.told --exact");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(colour(), k_green);
}

TEST_F(Feed, ThatCannotBeHadEndsARun) {
    const program_run none = render("ws://127.0.0.1:1/", "0");
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.errors.find("pennywort: feed ws://127.0.0.1:1/: error 5: nobody listens there"),
              std::string::npos)
        << none.errors;
    const scripted_peer refuses([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n");
    });
    const program_run refused = render(refuses.url(), "0");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find(": closed, not cleanly: the server answers 401\n"),
              std::string::npos)
        << refused.errors;
}

TEST_F(Feed, ThatIsSilentEndsARunInTime) {
    const scripted_peer silent([](peer_connection& connection) { connection.wait_for_end(); });
    const program_run run = render(silent.url(), "0", "--timeout 2");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("feed " + silent.url()), std::string::npos) << run.errors;
}

TEST_F(Feed, ThatIsLostEndsARunAndOneThatSaysGoodbyeDoesNot) {
    const scripted_peer lost([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("m"));
    });
    const program_run run = render(lost.url(), "0", "--wait-for window.never");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("without a goodbye"), std::string::npos) << run.errors;
    const scripted_peer polite([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("m"));
        connection.close(1000);
    });
    const program_run fine = render(polite.url(), "window.told = true");
    EXPECT_EQ(fine.status, 0) << fine.errors;
    EXPECT_NE(fine.errors.find("feed " + polite.url() + ": closed\n"), std::string::npos)
        << fine.errors;
}

TEST_F(Feed, WhatTheScriptDoesWrongIsToldWithItsLine) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("m"));
        connection.wait_for_end();
    });
    const program_run thrown =
        render(peer.url(), "window.told = true;\nthrow new Error('no such team');");
    EXPECT_EQ(thrown.status, 0) << thrown.errors;
    EXPECT_NE(thrown.errors.find("on.js:2: Error: no such team"), std::string::npos)
        << thrown.errors;
    const program_run none = render(peer.url(), "let a;\nthis is no script");
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.errors.find("on.js:2: SyntaxError"), std::string::npos) << none.errors;
}

// The page tells what it has heard by asking for pictures.
TEST_F(Feed, LiveOpensALostOneAgain) {
    std::mutex mutex;
    std::vector<std::string> heard;
    gate all_heard;
    const scripted_peer pictures([&](peer_connection& connection) {
        const std::string head = connection.receive_head();
        const std::lock_guard lock(mutex);
        heard.push_back(head.substr(0, head.find(" HTTP")));
        if (heard.back() == "GET /second") all_heard.open();
    });
    int count = 0;
    const scripted_peer feed([&](peer_connection& connection) {
        connection.accept();
        const bool is_first = [&] {
            const std::lock_guard lock(mutex);
            return count++ == 0;
        }();
        connection.send(frames::text(is_first ? "first" : "second"));
        if (!is_first) connection.wait_for_end();
    });
    // Whoever connects waits for the second message.
    const scripted_peer end([&](peer_connection&) { all_heard.wait(); });
    const auto local = [](const scripted_peer& peer) {
        return "127.0.0.1:" + std::to_string(peer.port()) + "/";
    };
    folder.write("on.js", "new Image().src = 'http://" + local(pictures) + "' + message;");
    const program_run run =
        folder.run("'" PENNYWORT_PROGRAM "' live page.html --port 0 --feed ws://" + local(feed) +
                   " --on-message @on.js & program=$!\n"
                   "cat </dev/tcp/127.0.0.1/" +
                   std::to_string(end.port()) + "\nkill -TERM $program\nwait $program");
    const std::lock_guard lock(mutex);
    EXPECT_EQ(heard, (std::vector<std::string>{"GET /first", "GET /second"}));
    const std::string name = "pennywort: feed ws://" + local(feed) + ": ";
    EXPECT_EQ(run.errors.substr(0, run.errors.find("interrupted")),
              name + "opened\n" + name +
                  "error 5: the connection ended without a goodbye; next attempt in 1 s\n" + name +
                  "opened\n");
}

}  // namespace
}  // namespace pennywort::host
