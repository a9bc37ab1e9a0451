// tests/host/render_clock_test.cpp - the program on the real browser runtime: what of a page
// follows the page's own clock, each thing as its pictures show it.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// Each of these moves a white bar by a pixel each 20 ms, which is a frame.
struct clock_case {
    const char* name;
    const char* body;
    std::size_t late = 0;    // frames
    std::size_t slower = 1;  // frames to a step
};
void PrintTo(const clock_case& c, std::ostream* out) { *out << c.name; }

constexpr clock_case k_clocks[] = {
    {"RequestAnimationFrame",
     "<div id=bar></div><script>let from; requestAnimationFrame(function next(stamp) {"
     "if (from === undefined) from = stamp; bar.style.left = Math.round((stamp - from) / 20) + "
     "'px';"
     "requestAnimationFrame(next); })</script>"},
    {"PerformanceNow",
     "<div id=bar></div><script>const from = performance.now(); requestAnimationFrame("
     "function next() { bar.style.left = Math.round((performance.now() - from) / 20) + 'px';"
     "requestAnimationFrame(next); })</script>"},
    {"Date",
     "<div id=bar></div><script>const from = Date.now(); requestAnimationFrame("
     "function next() { bar.style.left = Math.round((Date.now() - from) / 20) + 'px';"
     "requestAnimationFrame(next); })</script>"},
    {"Timeouts",
     "<div id=bar></div><script>let n = 0; setTimeout(function next() {"
     "bar.style.left = ++n + 'px'; setTimeout(next, 20); }, 20)</script>"},
    {"Intervals",
     "<div id=bar></div><script>let n = 0; setInterval(() => bar.style.left = ++n + 'px', 20)"
     "</script>"},
    {"CssAnimation",
     "<style>@keyframes run{to{transform:translateX(1000px)}}"
     "#bar{animation:run 20s linear}</style><div id=bar></div>"},
    {"CssTransition",
     "<style>#bar{transition:transform 20s linear}</style><div id=bar></div><script>"
     "getComputedStyle(bar).transform; bar.style.transform = 'translateX(1000px)'</script>"},
    {"WebAnimation",
     "<div id=bar></div><script>bar.animate([{transform: 'none'},"
     "{transform: 'translateX(1000px)'}], 20000)</script>"},
    {"Smil",
     "<svg width=64 height=8><rect width=1 height=8 fill=#fff><animate attributeName=x from=0 "
     "to=1000 dur=20s /></rect></svg>"},
    {"Canvas",
     "<canvas id=c width=64 height=8></canvas><script>const pen = c.getContext('2d');"
     "const from = performance.now(); requestAnimationFrame(function next() {"
     "pen.clearRect(0, 0, 64, 8); pen.fillStyle = '#fff';"
     "pen.fillRect(Math.round((performance.now() - from) / 20), 0, 1, 8);"
     "requestAnimationFrame(next); })</script>"},
    {"WebGl",
     "<canvas id=c width=64 height=8></canvas><script>const gl = c.getContext('webgl');"
     "const from = performance.now(); requestAnimationFrame(function next() {"
     "gl.disable(gl.SCISSOR_TEST); gl.clearColor(0, 0, 0, 1); gl.clear(gl.COLOR_BUFFER_BIT);"
     "gl.enable(gl.SCISSOR_TEST); gl.scissor(Math.round((performance.now() - from) / 20), 0, 1, 8);"
     "gl.clearColor(1, 1, 1, 1); gl.clear(gl.COLOR_BUFFER_BIT); requestAnimationFrame(next); })"
     "</script>"},
    {"Gif", "<img src=count.gif>", 0, 2},
    {"Video", "<video src=count.webm autoplay muted></video>"},
    {"Iframe",
     "<iframe width=64 height=8 frameborder=0 scrolling=no srcdoc=\"<style>body{margin:0;"
     "background:#000}div{position:absolute;width:1px;height:8px;background:#fff}@keyframes "
     "run{to{transform:translateX(1000px)}}div{animation:run 20s linear}</style><div></div>\">"
     "</iframe>"},
    {"IframeOfAnotherSite",
     "<iframe width=64 height=8 frameborder=0 scrolling=no src=\"data:text/html,<style>body{"
     "margin:0;background:black}div{position:absolute;width:1px;height:8px;background:white}"
     "</style><div id=bar></div><script>let n = 0; setInterval(() => bar.style.left = ++n + 'px', "
     "20)</script>\"></iframe>"},
    {"WorkersTimers",
     "<div id=bar></div><script>const worker = new Worker(URL.createObjectURL(new Blob(["
     "'let n = 0; setInterval(() => postMessage(++n), 20)'])));"
     "worker.onmessage = event => bar.style.left = event.data + 'px'</script>",
     3},
};

class RenderClock : public RenderFixture, public testing::WithParamInterface<clock_case> {};

TEST_P(RenderClock, MovesByOneFrameAtATime) {
    constexpr std::size_t k_frames = 40;
    constexpr std::size_t k_frame = 64 * 8 * 4;
    const clock_case& one = GetParam();
    folder.write("page.html",
                 std::string("<!doctype html><style>body{margin:0;background:#000;overflow:hidden}"
                             "#bar{position:absolute;left:0;top:0;width:1px;height:8px;"
                             "background:#fff}img,svg,canvas,video,iframe{display:block}</style>") +
                     one.body);
    const auto run = folder.run(
        "count=\"geq=lum='if(eq(X,N),255,0)':cb=128:cr=128\"\n"
        "ffmpeg -v error -f lavfi -i \"nullsrc=s=64x8:r=25:d=2,$count\" count.gif\n"
        "ffmpeg -v error -f lavfi -i \"nullsrc=s=64x8:r=50:d=2,$count\" -c:v libvpx-vp9 -lossless "
        "1 "
        "count.webm\n"
        "pennywort render page.html --size 64x8 --frames 40 --fps 50 -o a.bgra");
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::string film = folder.read("a.bgra");
    ASSERT_EQ(film.size(), k_frames * k_frame);
    const auto bar = [&](std::size_t frame) {
        std::size_t x = 0;
        const auto is_white = [&](std::size_t at) {
            return static_cast<unsigned char>(film[frame * k_frame + (4 * 64 + at) * 4]) > 128;
        };
        while (x < 64 && !is_white(x)) ++x;
        return x;
    };
    for (std::size_t n = 0; n < k_frames; ++n) {
        const std::size_t due = n / one.slower;
        EXPECT_LE(bar(n), due) << "at frame " << n;
        EXPECT_GE(bar(n) + one.late, due) << "at frame " << n;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, RenderClock, testing::ValuesIn(k_clocks),
                         [](const auto& one) { return std::string(one.param.name); });

// A page that cannot be seen to go by it is told of, once for each kind.
class RenderedClockFaults : public RenderFixture {};

TEST_F(RenderedClockFaults, AreToldOnceEach) {
    folder.write("page.html",
                 "<!doctype html><script>const code = URL.createObjectURL(new Blob(['']));"
                 "class mine extends Worker {}; new mine(code); new Worker(code);"
                 "if (!(new Worker(code) instanceof Worker)) throw 'no worker';"
                 "for (const scheme of ['ws', 'ws']) new WebSocket(scheme + '://127.0.0.1:1/');"
                 "new EventSource('http://127.0.0.1:1/');"
                 "if (new Worker(code).constructor !== Worker || WebSocket.OPEN !== 1 || "
                 "'thinternalClock' in self) throw 'changed'</script>");
    const std::string film = "pennywort render page.html --size 16x16 --frames 3 -o a.bgra ";
    for (const char* way : {"", "--verbose "}) {
        const auto run = folder.run(film + way);
        EXPECT_EQ(run.status, 0) << run.errors;
        for (const char* part : {"page: clock: a worker: its messages come up to three frames late",
                                 "page: clock: a WebSocket: ", "page: clock: an EventSource: "}) {
            const auto at = run.errors.find(part);
            EXPECT_NE(at, std::string::npos) << part << "\n" << run.errors;
            EXPECT_EQ(run.errors.find(part, at + 1), std::string::npos) << part << run.errors;
        }
        EXPECT_EQ(run.errors.find("Uncaught"), std::string::npos) << run.errors;
    }
    const auto live = folder.run(film + "--live");
    EXPECT_EQ(live.errors.find("clock: "), std::string::npos) << live.errors;
}

}  // namespace
}  // namespace pennywort::host
