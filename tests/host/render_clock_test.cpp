// tests/host/render_clock_test.cpp - the program on the real browser runtime: what of a page
// follows the page's own clock, each thing as its pictures show it.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// Each of these moves a white bar by a pixel each 20 ms, which is a frame.
struct clock_case {
    const char* name;
    const char* body;
    std::size_t late = 0;    // frames
    std::size_t slower = 1;  // frames to a step
    std::size_t ahead = 0;   // where it begins
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
    {"VideoFromItsFragment", "<video src=count.webm#t=0.2 autoplay muted></video>", 0, 1, 10},
    {"VideoFromWhereItWasPutBeforeItCame",
     "<video id=v muted></video><script>v.src = 'count.webm'; v.currentTime = 0.2; v.play()"
     "</script>",
     0, 1, 10},
    {"VideoInAShadow",
     "<div id=host></div><script>host.attachShadow({mode: 'closed'}).innerHTML = "
     "'<video src=count.webm autoplay muted style=display:block></video>'</script>"},
    {"VideoInAShadowThatTheTextDeclares",
     "<div><p><span><template shadowrootmode=open><div><template shadowrootmode=open><video "
     "src=count.webm autoplay muted style='position:fixed;left:0;top:0'></video></template></div>"
     "</template></span></div>"},
    {"VideoThatIsToPlayByItselfAfterItHasCome",
     "<video id=v src=count.webm muted></video><script>setTimeout(() => "
     "v.setAttribute('autoplay', ''), 0)</script>"},
    // Without a film where it is of another site.
    {"VideoInAnIframe",
     "<iframe width=64 height=8 frameborder=0 scrolling=no srcdoc=\"<style>body{margin:0;"
     "background:#000}video{display:block}</style><video id=v src=count.webm muted></video>"
     "<script>parent.document.title; v.play()</script>\"></iframe>"},
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
    // It has frames of its own before those that are seen, in which no page is to have a turn.
    {"IframeOfAnotherSiteBesideAVideo",
     "<iframe width=64 height=8 frameborder=0 scrolling=no src=\"data:text/html,<style>body{"
     "margin:0;background:black}div{position:absolute;width:1px;height:8px;background:white}"
     "</style><div id=bar></div><script>let n = -1; requestAnimationFrame(function next() {"
     "bar.style.left = ++n + 'px'; requestAnimationFrame(next); })</script>\"></iframe>"
     "<video src=count.webm autoplay muted></video>"},
    {"ScriptsBesideAVideo",
     "<div id=bar style='z-index:1'></div><video src=count.webm autoplay muted style="
     "'position:absolute;top:0;clip-path:inset(5px 0 0 0)'></video><script>let n = -4;"
     "requestAnimationFrame(function next() { bar.style.left = ++n + 'px';"
     "requestAnimationFrame(next); })</script>"},
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
    expect_fine(
        "count=\"geq=lum='if(eq(X,N),255,0)':cb=128:cr=128\"\n"
        "ffmpeg -v error -f lavfi -i \"nullsrc=s=64x8:r=25:d=2,$count\" count.gif\n"
        "ffmpeg -v error -f lavfi -i \"nullsrc=s=64x8:r=50:d=2,$count\" -c:v libvpx-vp9 -lossless "
        "1 "
        "count.webm\n"
        "pennywort render page.html --size 64x8 --frames 40 --fps 50 -o a.bgra");
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
        const std::size_t due = one.ahead + n / one.slower;
        EXPECT_LE(bar(n), due) << "at frame " << n;
        EXPECT_GE(bar(n) + one.late, due) << "at frame " << n;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, RenderClock, testing::ValuesIn(k_clocks),
                         [](const auto& one) { return std::string(one.param.name); });

// Each of them counts by a timer, and the page shows how far.
constexpr const char* k_site_of_workers = R"py(
        if self.path == '/shared.js':
            return self.reply(200, 'text/javascript',
                b"onconnect = event => { let n = 0; const port = event.ports[0];"
                b"setInterval(() => port.postMessage(++n), 20) }")
        if self.path == '/service.js':
            return self.reply(200, 'text/javascript', b"onmessage = event => { let n = 0;"
                b"setInterval(() => event.source.postMessage(++n), 20) }")
        if self.path.split('?')[0] != '/': return self.reply(404, 'text/plain', b'')
        self.reply(200, 'text/html', b"<!doctype html><style>body{margin:0;background:#000}"
            b"div{position:absolute;left:0;width:1px;height:4px;background:#fff}#b{top:4px}"
            b"</style><div id=a></div><div id=b></div><script>"
            b"const shared = new SharedWorker('shared.js');"
            b"shared.port.onmessage = event => a.style.left = event.data + 'px';"
            b"const all = navigator.serviceWorker;"
            b"all.onmessage = event => b.style.left = event.data + 'px';"
            b"all.register('service.js'); all.ready.then(one => { one.active.postMessage(0);"
            b"self.is_ready = true; })</script>"))py";

// What several pages may share goes by the time of the one that is filmed, as its own workers do. A
// service worker serves the next page, too.
class RenderedSharedWorkers : public RenderFixture {};

TEST_F(RenderedSharedWorkers, FollowThePagesTime) {
    constexpr std::size_t k_frames = 40;
    constexpr std::size_t k_frame = 64 * 8 * 4;
    write_site(k_site_of_workers);
    const auto run = served(
        "pennywort render $at/ $at/?2 --wait-for self.is_ready --size 64x8 --frames 40 -o a.bgra");
    EXPECT_EQ(run.status, 0) << run.errors;
    const std::string film = folder.read("a.bgra");
    ASSERT_EQ(film.size(), 2 * k_frames * k_frame);
    const auto bar = [&](std::size_t frame, std::size_t y) {
        std::size_t x = 0;
        const auto is_white = [&](std::size_t at) {
            return static_cast<unsigned char>(film[frame * k_frame + (y * 64 + at) * 4]) > 128;
        };
        while (x < 64 && !is_white(x)) ++x;
        return x;
    };
    constexpr std::size_t k_from = 10;
    for (const std::size_t first : {std::size_t{0}, k_frames}) {
        for (const std::size_t y : {2u, 6u}) {
            const auto gone =
                static_cast<double>(bar(first + k_frames - 1, y) - bar(first + k_from, y));
            EXPECT_NEAR(gone, static_cast<double>(k_frames - 1 - k_from), 3)
                << "at line " << y << " of the page that begins with frame " << first;
        }
    }
}

class RenderedStream : public RenderFixture {};

// Its first picture is what the page draws in a frame, and its page has loaded before.
TEST_F(RenderedStream, DoesNotHoldItsPageAndShowsWhatItBrings) {
    constexpr std::size_t k_frames = 60;
    constexpr std::size_t k_frame = 64 * 8 * 4;
    folder.write("page.html",
                 "<!doctype html><style>body{margin:0;background:#000;overflow:hidden}"
                 "canvas,video{display:block}</style><video id=v autoplay muted></video>"
                 "<canvas id=c width=64 height=8></canvas><script>"
                 "const pen = c.getContext('2d'); let n = 0; requestAnimationFrame("
                 "function next() { pen.fillStyle = '#000'; pen.fillRect(0, 0, 64, 8);"
                 "pen.fillStyle = '#fff'; pen.fillRect(0, 0, ++n, 8); requestAnimationFrame(next);"
                 "}); const stream = c.captureStream(); v.srcObject = stream;"
                 "if (v.srcObject !== stream) throw 'another stream'</script>");
    const auto run =
        folder.run("pennywort render page.html --size 64x8 --frames 60 --timeout 20 -o a.bgra");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("Uncaught"), std::string::npos) << run.errors;
    const std::string film = folder.read("a.bgra");
    ASSERT_EQ(film.size(), k_frames * k_frame);
    std::set<std::size_t> widths;
    for (std::size_t n = 0; n < k_frames; ++n) {
        std::size_t x = 0;
        while (x < 64 && static_cast<unsigned char>(film[n * k_frame + (4 * 64 + x) * 4]) > 128) {
            ++x;
        }
        EXPECT_LE(x, n + 4) << "at frame " << n << ", behind the turns before it";
        widths.insert(x);
    }
    EXPECT_GT(widths.size(), 3u);
}

// A page's film begins when what its first frame asks for has come, which is found out by a script
// in the page. The page asks it itself here: what waits for nothing shows that soon.
class RenderedStart : public RenderFixture {
protected:
    void SetUp() override {
        expect_fine(
            "ffmpeg -v error -f lavfi -i color=white:s=64x8:r=50:d=2 -c:v libvpx-vp9 -lossless 1 "
            "white.webm\n"
            "ffmpeg -v error -f lavfi -i color=white:s=64x8 -frames:v 1 white.png");
    }
    void expect_white(const std::string& body) {
        folder.write("page.html",
                     "<!doctype html><style>body{margin:0;background:#000}</style>" + body);
        expect_fine(
            "pennywort render page.html --size 1280x64 --wait-for self.is_over --timeout 20 "
            "-o a.png");
        EXPECT_EQ(pixel("a.png", 60, 60), k_white);
    }
};

TEST_F(RenderedStart, DoesNotWaitForWhatTheBrowserDoesNotLoad) {
    expect_white(
        "<video id=v src=white.webm preload=none muted></video>"
        "<video id=w muted><source src=none.webm></video>"
        "<img loading=lazy src=white.png?hidden style=display:none>"
        "<div style=position:relative;width:9px;height:9px;overflow:hidden>"
        "<img loading=lazy src=white.png?cut style=position:absolute;left:800px></div>"
        "<img id=i loading=lazy src=white.png style=position:absolute;top:20000px>"
        "<script>addEventListener('load', function ask() {"
        "if (!v.currentSrc || !w.currentSrc || w.networkState !== 3) return setTimeout(ask, 20);"
        "self['thinternal settled'](true).then(() => {"
        "const has_none = v.readyState === 0 && w.readyState === 0 && !i.complete;"
        "document.body.style.background = has_none ? '#fff' : '#f00';"
        "requestAnimationFrame(() => { self.is_over = true; }); }); })</script>");
}

// Its film and its image each on their own: while one of them comes, the other may.
TEST_F(RenderedStart, WaitsForAFilmThatTheBrowserLoads) {
    for (const char* way :
         {"v.preload = 'auto'", "v.preload = 'none'; v.play()", "v.preload = 'none'; v.load()"}) {
        SCOPED_TRACE(way);
        expect_white(
            "<video id=v muted></video><script>v.addEventListener('loadstart', () => {"
            "const is_early = v.currentSrc && v.readyState === 0;"
            "self['thinternal settled'](true).then(() => {"
            "const is_there = is_early && v.readyState >= 3;"
            "document.body.style.background = is_there ? '#fff' : '#f00';"
            "requestAnimationFrame(() => { self.is_over = true; }); }); }, {once: true});"
            "addEventListener('load', () => { v.src = 'white.webm'; " +
            std::string(way) + "; })</script>");
    }
}

TEST_F(RenderedStart, WaitsForALazyImageInView) {
    expect_white(
        "<div id=d style=width:9px;height:9px;overflow:hidden></div>"
        "<script>addEventListener('load', () => { const image = new Image();"
        "image.style = 'position:absolute;left:800px;top:0';"
        "image.loading = 'lazy'; image.src = 'white.png'; d.append(image);"
        "const is_early = !image.complete; self['thinternal settled'](true).then(() => {"
        "const is_there = is_early && image.complete && image.naturalWidth === 64;"
        "document.body.style.background = is_there ? '#fff' : '#f00';"
        "requestAnimationFrame(() => { self.is_over = true; }); }); })</script>");
}

// A page that cannot be seen to go by it is told of, once for each kind.
class RenderedClockFaults : public RenderFixture {};

TEST_F(RenderedClockFaults, AreToldOnceEach) {
    folder.write("page.html",
                 "<!doctype html><script>const code = URL.createObjectURL(new Blob(['']));"
                 "class mine extends Worker {}; new mine(code); new Worker(code);"
                 "if (!(new Worker(code) instanceof Worker)) throw 'no worker';"
                 "for (const scheme of ['ws', 'ws']) new WebSocket(scheme + '://127.0.0.1:1/');"
                 "new EventSource('http://127.0.0.1:1/'); new BroadcastChannel('a');"
                 "new SharedWorker(code); new SharedWorker(code);"
                 "navigator.serviceWorker.register('w.js').catch(() => 0);"
                 "addEventListener('load', () => { for (const i of [1, 2]) "
                 "document.createElement('video').srcObject = new MediaStream(); });"
                 "if (new Worker(code).constructor !== Worker || WebSocket.OPEN !== 1 || "
                 "'thinternalClock' in self) throw 'changed'</script>");
    const std::string film = "pennywort render page.html --size 16x16 --frames 3 -o a.bgra ";
    for (const char* way : {"", "--verbose "}) {
        const auto run = folder.run(film + way);
        EXPECT_EQ(run.status, 0) << run.errors;
        for (const char* part : {"page: clock: a worker: its messages come up to three frames late",
                                 "page: clock: a WebSocket: ", "page: clock: an EventSource: ",
                                 "page: clock: a BroadcastChannel: ",
                                 "page: clock: a SharedWorker: ", "page: clock: a service worker: ",
                                 "page: clock: a <video> of a stream (srcObject): "}) {
            const auto at = run.errors.find(part);
            EXPECT_NE(at, std::string::npos) << part << "\n" << run.errors;
            EXPECT_EQ(run.errors.find(part, at + 1), std::string::npos) << part << run.errors;
        }
        EXPECT_EQ(run.errors.find("Uncaught"), std::string::npos) << run.errors;
    }
    const auto live = folder.run(film + "--live");
    EXPECT_EQ(live.errors.find("clock: "), std::string::npos) << live.errors;
}

// Such as the picture on a surface in three dimensions.
TEST_F(RenderedClockFaults, AFilmOutsideOfTheDocumentIsNone) {
    folder.write("page.html",
                 "<!doctype html><style>body{margin:0;background:#000}canvas{display:block}</style>"
                 "<canvas id=c width=64 height=8></canvas><script>"
                 "const film = document.createElement('video'), pen = c.getContext('2d');"
                 "film.muted = true; film.preload = 'auto'; film.src = 'count.webm';"
                 "film.onloadeddata = () => { self.ready = true;"
                 "setTimeout(() => film.play(), 200); };"
                 "requestAnimationFrame(function next() { pen.drawImage(film, 0, 0);"
                 "requestAnimationFrame(next); })</script>");
    expect_fine(
        "count=\"geq=lum='if(eq(X,N),255,0)':cb=128:cr=128\"\n"
        "ffmpeg -v error -f lavfi -i \"nullsrc=s=64x8:r=50:d=2,$count\" -c:v libvpx-vp9 "
        "-lossless 1 count.webm\n"
        "pennywort render page.html --wait-for self.ready --size 64x8 --frames 40 -o a.bgra");
    const std::string film = folder.read("a.bgra");
    ASSERT_EQ(film.size(), 40u * 64 * 8 * 4);
    std::vector<int> bars;
    for (std::size_t n = 0; n < 40; ++n) {
        const auto is_white = [&](int x) {
            return static_cast<unsigned char>(film[((n * 8 + 4) * 64 + std::size_t(x)) * 4]) > 128;
        };
        int x = 0;
        while (x < 64 && !is_white(x)) ++x;
        bars.push_back(x);
    }
    const auto begun = std::find(bars.begin(), bars.end(), 1);
    ASSERT_LT(begun - bars.begin(), 15) << "it plays within 200 ms";
    for (auto at = begun; at != bars.end(); ++at) EXPECT_EQ(*at, 1 + (at - begun));
}

// Such as a list of films does. The browser does not find any more what it was looking for in the
// one before.
TEST_F(RenderedClockFaults, AFilmThatGetsAnotherSourceAtItsEndGoesOn) {
    folder.write("page.html",
                 "<!doctype html><style>body{margin:0;background:#000}video{display:block}</style>"
                 "<video id=v src=black.webm autoplay muted></video><script>v.onended = () => {"
                 "v.onended = null; v.src = 'white.webm'; v.play(); }</script>");
    expect_fine(
        "for colour in black white; do ffmpeg -v error -f lavfi -i color=$colour:s=64x8:r=50:d="
        "$([ $colour = black ] && echo 0.2 || echo 2) -c:v libvpx-vp9 $colour.webm; done\n"
        "pennywort render page.html --size 64x8 --frames 40 -o a.bgra");
    const std::string film = folder.read("a.bgra");
    ASSERT_EQ(film.size(), 40u * 64 * 8 * 4);
    EXPECT_LT(static_cast<unsigned char>(film[0]), 60);
    EXPECT_GT(static_cast<unsigned char>(film[film.size() - 64]), 200);
}

TEST_F(RenderedClockFaults, AFilmThatCannotBePutToAMomentIsToldWhy) {
    folder.write("page.html", "<!doctype html><video src=film.webm autoplay muted></video>");
    write_site(R"py(
        is_film = self.path == '/film.webm'
        name = 'film.webm' if is_film else 'page.html'
        self.reply(200, 'video/webm' if is_film else 'text/html', open(name, 'rb').read())
)py");
    const auto run = served(
        "ffmpeg -v error -f lavfi -i testsrc=s=64x48:r=25:d=2 -c:v libvpx-vp9 film.webm\n"
        "pennywort render page.html --size 64x48 --frames 9 -o a.bgra --strict || exit\n"
        "echo served >&2; pennywort render $at/ --size 64x48 --frames 9 -o b.bgra --strict\n"
        "status=$?; echo $at; exit $status");
    EXPECT_EQ(run.status, 4) << run.errors;
    const auto line = run.errors.find(
        "page: " + run.output.substr(0, run.output.find('\n')) +
        "/film.webm: its server sends no ranges of bytes, so that it cannot be put to a moment, "
        "and stands still\n");
    EXPECT_NE(line, std::string::npos) << run.errors;
    EXPECT_GT(line, run.errors.find("served")) << "the browser moves in a file of its machine's";
}

}  // namespace
}  // namespace pennywort::host
