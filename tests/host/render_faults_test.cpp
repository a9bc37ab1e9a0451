// tests/host/render_faults_test.cpp - the program on the real browser runtime: what goes wrong in a
// page in the middle of its film.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

constexpr std::size_t k_page_width = 64;
constexpr std::size_t k_page_height = 8;

// A white bar that moves by a pixel each turn of requestAnimationFrame, from the left side on.
std::string page_with(const char* script, const char* background = "#000") {
    return std::string("<!doctype html><style>body{margin:0;background:") + background +
           "}div{position:absolute;left:0;top:0;width:1px;height:8px;background:#fff}</style>"
           "<div id=bar></div><script>let n = 0; (function next() { bar.style.left = n++ + 'px';"
           "requestAnimationFrame(next); " +
           script;
}

constexpr const char* k_faulty_site = R"py(
        if 'late' in self.path:
            time.sleep(0.4)
            return self.reply(200, 'text/plain', b'60')
        self.reply(200, 'text/html', open(self.path.split('/')[-1] + '.html', 'rb').read())
)py";

class RenderFaults : public RenderFixture {
protected:
    RenderFaults() { write_site(k_faulty_site); }

    // Where the bar stands in each frame; -1 for one without it.
    std::vector<int> bars(const std::string& name) const {
        const std::string film = folder.read(name);
        std::vector<int> all;
        for (std::size_t at = 0; at + k_page_width * k_page_height * 4 <= film.size();
             at += k_page_width * k_page_height * 4) {
            int x = 0;
            const auto is_white = [&](int column) {
                const std::size_t pixel = at + (4 * k_page_width + std::size_t(column)) * 4;
                return film.compare(pixel, 3, "\xFF\xFF\xFF") == 0;
            };
            while (x < int(k_page_width) && !is_white(x)) ++x;
            all.push_back(x < int(k_page_width) ? x : -1);
        }
        return all;
    }
    // Blue, green and red of the picture's last pixel.
    colour ground(const std::string& name, std::size_t frame) const {
        const std::string film = folder.read(name);
        const std::size_t at = (frame + 1) * k_page_width * k_page_height * 4 - 4;
        if (at + 4 > film.size()) return {};
        const auto byte = [&](std::size_t i) {
            return int(static_cast<unsigned char>(film[at + i]));
        };
        return {byte(0), byte(1), byte(2)};
    }
    // Twice, and equal.
    program_run film_of(const std::string& page, const std::string& more = {}) const {
        return served("film=\"pennywort render " + page + " --size 64x8 --frames 40 " + more +
                      "\"\n$film -o a.bgra && $film -o b.bgra && cmp a.bgra b.bgra");
    }
};

TEST_F(RenderFaults, APageThatThrowsInEachFrameGoesOnAndIsToldOnce) {
    folder.write("page.html", page_with("throw new Error('no data'); })()</script>"));
    const auto run = film_of("page.html");
    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    const auto told = run.errors.find("Uncaught Error: no data");
    ASSERT_NE(told, std::string::npos) << run.errors;
    const auto all = bars("a.bgra");
    ASSERT_EQ(all.size(), 40u);
    for (int n = 0; n < 40; ++n) EXPECT_EQ(all[n], all[0] + n) << n;
}

TEST_F(RenderFaults, APageThatNeverAsksForAFrameIsShownAsItIs) {
    folder.write("page.html",
                 "<!doctype html><style>body{background:#00f}</style><script>"
                 "setTimeout(() => document.body.style.background = '#f00', 200)</script>");
    const auto run = film_of("page.html");
    ASSERT_EQ(run.status, 0) << run.errors;
    for (std::size_t n = 0; n < 40; ++n) {
        EXPECT_EQ(ground("a.bgra", n), n < 10 ? (colour{255, 0, 0}) : (colour{0, 0, 255})) << n;
    }
}

// The page's time stands meanwhile: what it has fetched is there in the frame that asked for it or
// in the next.
TEST_F(RenderFaults, APageThatWaitsForTheNetworkInTheMiddleLosesNoFrame) {
    folder.write("page.html",
                 page_with("if (n === 20) fetch(place + '/late').then(r => r.text()).then(t => "
                           "document.body.style.background = '#f00'); })()</script>"));
    const auto run = served(
        "sed \"s|fetch(place|fetch('$at'|\" page.html > fetches.html\n"
        "film='pennywort render fetches.html --size 64x8 --frames 40'\n"
        "$film -o a.bgra && $film -o b.bgra && cmp a.bgra b.bgra");
    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    const auto all = bars("a.bgra");
    ASSERT_EQ(all.size(), 40u);
    for (int n = 0; n < 40; ++n) EXPECT_EQ(all[n], all[0] + n) << n;
    const auto asked = static_cast<std::size_t>(19 - all[0]);
    EXPECT_EQ(ground("a.bgra", asked - 1), (colour{0, 0, 0}));
    EXPECT_EQ(ground("a.bgra", asked + 2), (colour{0, 0, 255}));
}

TEST_F(RenderFaults, APageThatOpensAWindowGoesOn) {
    folder.write("page.html", page_with("if (n === 20) open('other.html'); })()</script>"));
    folder.write("other.html", "<!doctype html><style>body{background:#f00}</style>");
    const auto run = film_of("page.html");
    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    const auto all = bars("a.bgra");
    ASSERT_EQ(all.size(), 40u);
    for (int n = 0; n < 40; ++n) EXPECT_EQ(all[n], all[0] + n) << n;
}

// A page that moves on: what it was, and what it becomes, 200 ms of its time later.
struct move_case {
    const char* name;
    const char* url;
    const char* way;  // by which it moves on
    colour ground;    // of what it becomes
};
void PrintTo(const move_case& c, std::ostream* out) { *out << c.name; }

class RenderedMove : public RenderFaults, public testing::WithParamInterface<move_case> {};

TEST_P(RenderedMove, GoesOnWithTheNextPage) {
    folder.write("page.html", page_with(("})(); setTimeout(() => { const port = location.port; " +
                                         std::string(GetParam().way) + " }, 200)</script>")
                                            .c_str()));
    folder.write("page2.html", page_with("})()</script>", "#f00"));
    const auto run = served(std::string("pennywort render ") + GetParam().url +
                            " --size 64x8 --frames 60 -o a.bgra");
    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    const auto all = bars("a.bgra");
    ASSERT_EQ(all.size(), 60u);
    const auto moved =
        std::find_if(all.begin() + 1, all.end(), [&](const int& x) { return x < *(&x - 1); }) -
        all.begin();
    ASSERT_GE(moved, 10);
    ASSERT_LE(moved, 14) << "the page's time stands while the next one loads";
    EXPECT_GE(all[moved], 0) << "what was shown stays until the next one has painted";
    // The next one has its own turns from there on, one a frame.
    for (auto n = moved + 1; n < 60; ++n) EXPECT_EQ(all[n], all[n - 1] + 1) << n;
    for (std::size_t n = 0; n < 60; ++n) {
        const bool is_next = n >= static_cast<std::size_t>(moved);
        EXPECT_EQ(ground("a.bgra", n), is_next ? GetParam().ground : (colour{0, 0, 0})) << n;
    }
}

constexpr const char* k_reload_once =
    "if (performance.getEntriesByType('navigation')[0].type !== 'reload') location.reload();";

INSTANTIATE_TEST_SUITE_P(
    To, RenderedMove,
    testing::Values(move_case{"AFile", "page.html", "location = 'page2.html';", {0, 0, 255}},
                    move_case{"Itself", "page.html", k_reload_once, {0, 0, 0}},
                    move_case{"TheSameSite", "$at/page", "location = 'page2';", {0, 0, 255}},
                    move_case{"ItselfOnAServer", "$at/page", k_reload_once, {0, 0, 0}},
                    move_case{"AnotherSite",
                              "$at/page",
                              "location = `http://localhost:${port}/page2`;",
                              {0, 0, 255}},
                    move_case{"AnotherProcess",
                              "$at/page --switch site-per-process=",
                              "location = `http://localhost:${port}/page2`;",
                              {0, 0, 255}}),
    [](const auto& one) { return std::string(one.param.name); });

// A page without a text: the browser would wait half a second of its time for one.
TEST_F(RenderFaults, APageFromAServerIsThereInItsFirstFrame) {
    folder.write("page.html", "<!doctype html><style>body{background:#f00}</style>");
    const auto run = served("pennywort render $at/page --size 64x8 --frames 3 -o a.bgra");
    ASSERT_EQ(run.status, 0) << run.errors;
    for (std::size_t n = 0; n < 3; ++n) EXPECT_EQ(ground("a.bgra", n), (colour{0, 0, 255})) << n;
}

TEST_F(RenderFaults, APageThatAsksForTheTimeForEverIsToldWithTheFrame) {
    folder.write("page.html", page_with("})(); setTimeout(() => { const end = performance.now() + "
                                        "1000; while (performance.now() < end); }, 200)"
                                        "</script>"));
    expect_failure("pennywort render page.html --size 64x8 --frames 40 -o a.bgra",
                   "frame 10, at 0.200 s: the page hangs: one of its scripts has not come to an "
                   "end within 30 s");
    EXPECT_EQ(bars("a.bgra").size(), 10u) << "what came before is there";
}

// The page's text is there, and no script of it is to blame.
TEST_F(RenderFaults, APageWhoseStyleSheetNeverComesIsToldWithItsAddress) {
    write_site(R"py(
        if 'hangs' in self.path: time.sleep(1000)
        self.reply(200, 'text/html', b'<!doctype html><link rel=stylesheet href=/hangs.css>text')
)py");
    const auto run = served(
        "pennywort render $at/ --start dom --size 64x8 --frames 3 -o a.bgra; status=$?\n"
        "echo $at; exit $status");
    EXPECT_EQ(run.status, 1) << run.errors;
    const std::string at = run.output.substr(0, run.output.find('\n'));
    EXPECT_NE(run.errors.find("frame 0, at 0.000 s: the page draws nothing before its style sheet "
                              "is there, which has not come within 30 s: " +
                              at + "/hangs.css\n"),
              std::string::npos)
        << run.errors;
}

TEST_F(RenderFaults, AFilmThatStallsInItsMiddleEndsTheRunWithAWholeFileUpToThere) {
    folder.write(
        "page.html",
        "<!doctype html><style>body{margin:0}video{display:block;width:64px;height:8px}</style>"
        "<video src=/film.webm autoplay muted></video>");
    write_site(R"py(
        if self.path != '/film.webm':
            return self.reply(200, 'text/html', open('page.html', 'rb').read())
        film = open('film.webm', 'rb').read()
        wanted = self.headers.get('Range', 'bytes=0-')
        first, there = int(wanted[6:].split('-')[0]), len(film) // 2
        self.send_response(206)
        self.send_header('Content-Type', 'video/webm')
        self.send_header('Accept-Ranges', 'bytes')
        self.send_header('Content-Range', f'bytes {first}-{len(film) - 1}/{len(film)}')
        self.send_header('Content-Length', str(len(film) - first))
        self.end_headers()
        self.wfile.write(film[first:there])
        self.wfile.flush()
        time.sleep(1000)
)py");
    const auto run = served(
        "ffmpeg -v error -f lavfi -i testsrc2=s=320x240:r=25:d=8 -c:v libvpx -g 25 -b:v 4M "
        "-cues_to_front 1 film.webm\n"
        "pennywort render $at/ --size 64x8 --fps 25 --seconds 8 -o a.bgra; status=$?\n"
        "echo $at; exit $status");
    EXPECT_EQ(run.status, 1) << run.errors;
    const std::string at = run.output.substr(0, run.output.find('\n'));
    EXPECT_NE(run.errors.find("s: a film of the page does not follow: " + at + "/film.webm\n"),
              std::string::npos)
        << run.errors;
    const std::size_t bytes = folder.read("a.bgra").size();
    EXPECT_EQ(bytes % (k_page_width * k_page_height * 4), 0u) << "whole frames";
    EXPECT_GT(bytes, 25 * k_page_width * k_page_height * 4);
    EXPECT_LT(bytes, 150 * k_page_width * k_page_height * 4);
}

// Nor is the second of two waited for when the first has been given up.
TEST_F(RenderFaults, AFilmAndASoundThatNeverComeInOneFrameAreToldAndTheFilmGoesOn) {
    folder.write(
        "page.html",
        "<!doctype html><body><script>let n = 0; requestAnimationFrame(function next() {"
        "if (++n === 5) for (const [kind, name] of [['video', 'a.webm'], ['audio', 'a.wav']])"
        "{ const one = document.body.appendChild(document.createElement(kind));"
        "one.src = '/never/' + name; one.play().catch(() => {}); }"
        "requestAnimationFrame(next); })</script>");
    write_site(R"py(
        if self.path != '/': time.sleep(1000)
        self.reply(200, 'text/html', open('page.html', 'rb').read())
)py");
    const auto run = served("pennywort render $at/ --size 64x8 --frames 10 -o a.mkv");
    EXPECT_EQ(run.status, 0) << run.errors;
    for (const char* name : {"a.webm", "a.wav"}) {
        EXPECT_NE(run.errors.find(std::string(name) + " comes late, and begins in its middle\n"),
                  std::string::npos)
            << run.errors;
    }
}

TEST_F(RenderFaults, APageThatPaintsNothingIsOne) {
    folder.write("page.html",
                 "<!doctype html><script>self.requestAnimationFrame = () => 0</script>");
    expect_failure("pennywort render page.html --live --timeout 3 --frames 3 -o a.mkv",
                   "page.html: the page has painted nothing within 3 s\n");
    EXPECT_FALSE(std::filesystem::exists(folder.path("a.mkv"))) << "there is no frame in it";
}

// It asks the site, which answers when the page asks, too, and that one when the worker is back.
TEST_F(RenderFaults, AWorkerThatIsBusyIsLeftBehindAndFollowsAgainWhenItIsDone) {
    write_site(R"py(
        self.server.asked = getattr(self.server, 'asked', set()) | {self.path}
        awaited = {'/waits': '/go', '/go': '/back'}.get(self.path, self.path)
        while awaited not in self.server.asked: time.sleep(0.01)
        if self.path != '/': return self.reply(200, 'text/plain', b'')
        self.reply(200, 'text/html', open('page.html', 'rb').read())
)py");
    folder.write("page.html",
                 "<!doctype html><style>body{margin:0;background:#000}div{position:absolute;left:0;"
                 "top:0;width:1px;height:8px;background:#fff}</style><div id=bar></div><script>"
                 "const worker = new Worker(URL.createObjectURL(new Blob([`onmessage = event => {"
                 "const asked = new XMLHttpRequest(); asked.open('GET', event.data, false);"
                 "asked.send(); asked.open('GET', event.data.replace('waits', 'back'), false);"
                 "asked.send(); let n = 0; setInterval(() => postMessage(++n), 20); }`])));"
                 "worker.onmessage = event => bar.style.left = event.data + 'px'; let n = 0;"
                 "requestAnimationFrame(function next() { ++n;"
                 "if (n === 10) worker.postMessage(location.origin + '/waits');"
                 "if (n === 20) fetch('/go'); requestAnimationFrame(next); })</script>");
    const auto run = served("pennywort render $at/ --size 64x8 --frames 60 -o a.bgra");
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::string line =
        "page: clock: a worker has been busy for 20 s of one frame and is left behind: until it is "
        "done, the film goes on without it\n";
    const auto told = run.errors.find(line);
    ASSERT_NE(told, std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find(line, told + 1), std::string::npos) << "once";
    const auto all = bars("a.bgra");
    ASSERT_EQ(all.size(), 60u);
    EXPECT_EQ(all[15], 0);
    EXPECT_GT(all[59], 10);
    EXPECT_NEAR(all[59] - all[45], 14, 3) << "by the page's time";
}

// It answers no more, and is no busy one.
TEST_F(RenderFaults, AWorkerThatClosesItselfIsNotWaitedFor) {
    folder.write("page.html",
                 "<!doctype html><style>body{margin:0;background:#000}div{position:absolute;left:0;"
                 "top:0;width:1px;height:8px;background:#fff}</style><div id=bar></div><script>"
                 "for (const code of ['close()', 'postMessage(1); setTimeout(close, 60)'])"
                 " new Worker(URL.createObjectURL(new Blob([code])));"
                 "let n = -4; requestAnimationFrame(function next() { bar.style.left = ++n + 'px';"
                 "requestAnimationFrame(next); })</script>");
    const auto run = folder.run("pennywort render page.html --size 64x8 --frames 30 -o a.bgra");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("a worker has been busy"), std::string::npos) << run.errors;
    const auto all = bars("a.bgra");
    ASSERT_EQ(all.size(), 30u);
    for (std::size_t n = 0; n < all.size(); ++n) EXPECT_EQ(all[n], static_cast<int>(n));
}

TEST_F(RenderFaults, ThePageOfTheLargestSideIsRendered) {
    folder.write("page.html", "<!doctype html><style>html{background:#20c840}</style>");
    for (const char* size : {"16384x16", "16x16384"}) {
        const auto run = folder.run(std::string("pennywort render page.html --frames 2 -o f-%d.png "
                                                "--size ") +
                                    size);
        ASSERT_EQ(run.status, 0) << size << run.errors;
        EXPECT_EQ(size_of("f-2.png"), size);
        EXPECT_EQ(pixel("f-2.png", 15, 15), (colour{0x40, 0xC8, 0x20, 0xFF}));
    }
}

// A gibibyte a picture.
TEST_F(RenderFaults, ThePageOfTheLargestSidesIsRendered) {
    folder.write("page.html",
                 "<!doctype html><style>html{background:#20c840}div{position:absolute;right:0;"
                 "bottom:0;width:1px;height:1px;background:#000}</style><div></div>");
    const auto run =
        folder.run("pennywort render page.html --size 16384x16384 --timeout 200 -o a.png");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(size_of("a.png"), "16384x16384");
    EXPECT_EQ(pixel("a.png", 16'382, 16'383), (colour{0x40, 0xC8, 0x20, 0xFF}));
    EXPECT_EQ(pixel("a.png", 16'383, 16'383), k_black);
}

}  // namespace
}  // namespace pennywort::host
