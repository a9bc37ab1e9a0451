// tests/host/render_other_site_test.cpp - the program on the real browser runtime: a frame that
// comes from another site than its page, on the page's own clock.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// The page is of 127.0.0.1 and its frame of localhost. What is beside the frame is in the address.
constexpr const char* k_sites = R"py(
        if self.path == '/frame':
            return self.reply(200, 'text/html', open('frame.html', 'rb').read())
        if self.path != '/count.webm':
            frame = '<iframe width=64 height=8 frameborder=0 scrolling=no src=http://localhost:%d/frame></iframe>'
            return self.reply(200, 'text/html', ('<!doctype html><style>body{margin:0;background:'
                '#000;overflow:hidden}iframe,video{display:block}</style>' + frame %
                self.server.server_port + urllib.parse.unquote(self.path[1:])).encode())
        film = open('count.webm', 'rb').read()
        first = int(self.headers.get('Range', 'bytes=0-')[6:].split('-')[0])
        self.send_response(206)
        self.send_header('Content-Type', 'video/webm')
        self.send_header('Accept-Ranges', 'bytes')
        self.send_header('Content-Range', f'bytes {first}-{len(film) - 1}/{len(film)}')
        self.send_header('Content-Length', str(len(film) - first))
        self.end_headers()
        self.wfile.write(film[first:])
)py";

// A film from the beginning on, and one that begins 0.1 s later.
constexpr const char* k_frame_of_films = R"html(<!doctype html>
<style>body{margin:0;background:#000;overflow:hidden}video{display:block;position:absolute;
width:64px;height:8px}#late{top:4px}</style><video src=/count.webm autoplay muted></video>
<video id=late src=/count.webm muted></video><script>
setTimeout(() => late.play(), 100);
try { parent.document.title; document.body.textContent = ''; } catch {}
</script>)html";

// Four bars of two lines each, one for each clock, that move by a pixel each 20 ms. A frame that
// may look into its page is of the same site, and shows none.
constexpr const char* k_frame_of_bars = R"html(<!doctype html>
<style>body{margin:0;background:#000;overflow:hidden}
@keyframes run{to{transform:translateX(1000px)}}
div{position:absolute;left:0;width:1px;height:2px;background:#fff}
#css{top:0;animation:run 20s linear}#turns{top:2px}#timer{top:4px}#now{top:6px}</style>
<div id=css></div><div id=turns></div><div id=timer></div><div id=now></div><script>
const put = (name, x) => document.getElementById(name).style.left = x + 'px';
let turns = 0, ticks = 0, from;
requestAnimationFrame(function next() {
  if (from === undefined) from = performance.now();
  put('turns', turns++);
  put('now', Math.round((performance.now() - from) / 20));
  requestAnimationFrame(next);
});
setInterval(() => put('timer', ++ticks), 20);
try { parent.document.title; document.body.textContent = ''; } catch {}
</script>)html";

struct beside_case {
    const char* name;
    const char* body;
    bool has_film;
};
void PrintTo(const beside_case& c, std::ostream* out) { *out << c.name; }

class RenderedOtherSite : public RenderFixture, public testing::WithParamInterface<beside_case> {
protected:
    static constexpr std::size_t k_frames = 40;
    static constexpr std::size_t k_line = 64 * 4;

    // The page's pictures, of 64 x 16.
    std::string film_with(const std::string& body) {
        write_site(k_sites);
        const auto run = served(
            "ffmpeg -v error -f lavfi -i \"nullsrc=s=64x8:r=50:d=2,geq=lum='if(eq(X,N),255,0)':"
            "cb=128:cr=128\" -c:v libvpx-vp9 -lossless 1 count.webm\n"
            "pennywort render \"$at/" +
            body + "\" --size 64x16 --frames 40 -o a.bgra");
        EXPECT_EQ(run.status, 0) << run.errors;
        return folder.read("a.bgra");
    }
    static std::size_t bar_in(const std::string& film, std::size_t frame, std::size_t line) {
        const char* const at = film.data() + (frame * 16 + line) * k_line;
        std::size_t x = 0;
        while (x < 64 && static_cast<unsigned char>(at[x * 4]) <= 128) ++x;
        return x;
    }
};

TEST_P(RenderedOtherSite, FollowsThePagesClockExactly) {
    folder.write("frame.html", k_frame_of_bars);
    const std::string film = film_with(GetParam().body);
    ASSERT_EQ(film.size(), k_frames * 16 * k_line);
    const auto bar = [&](std::size_t frame, std::size_t line) { return bar_in(film, frame, line); };
    for (std::size_t n = 0; n < k_frames; ++n) {
        EXPECT_EQ(bar(n, 1), n) << "the animation at frame " << n;
        EXPECT_EQ(bar(n, 3), n) << "the turns at frame " << n;
        EXPECT_EQ(bar(n, 5), n) << "the timer at frame " << n;
        EXPECT_EQ(bar(n, 7), n) << "the clock at frame " << n;
        EXPECT_EQ(bar(n, 12), GetParam().has_film ? n : 64) << "the film at frame " << n;
    }
}

TEST_P(RenderedOtherSite, HasFilmsThatMoveWithIt) {
    folder.write("frame.html", k_frame_of_films);
    const std::string film = film_with(GetParam().body);
    ASSERT_EQ(film.size(), k_frames * 16 * k_line);
    for (std::size_t n = 0; n < k_frames; ++n) {
        EXPECT_EQ(bar_in(film, n, 1), n) << "the film at frame " << n;
        EXPECT_EQ(bar_in(film, n, 6), n < 5 ? 0 : n - 5) << "the late one at frame " << n;
        EXPECT_EQ(bar_in(film, n, 12), GetParam().has_film ? n : 64) << "the page's at frame " << n;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of, RenderedOtherSite,
    testing::Values(beside_case{"AFrame", "", false},
                    beside_case{"AFrameBesideAFilm",
                                "<video%20src=/count.webm%20autoplay%20muted></video>", true}),
    [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace pennywort::host
