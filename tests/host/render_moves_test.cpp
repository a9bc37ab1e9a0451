// tests/host/render_moves_test.cpp - the program on the real browser runtime: a page with films and
// sounds that moves on to another one in the middle of its film.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// Writes in each frame how long ago its film began, in tenths of a millisecond: as 24 white or
// black squares of two pixels, the lowest bit at the left. The page that it moves on to has a white
// end.
constexpr const char* k_page = R"html(<!doctype html>
<style>body{margin:0;background:#000;overflow:hidden}canvas{display:block}</style>
<canvas id=c width=64 height=8></canvas><script>
const pen = c.getContext('2d'), day = () => performance.timeOrigin + performance.now();
const asked = new URLSearchParams(location.search), is_next = asked.has('day');
let first = is_next ? Number(asked.get('day')) : undefined;
requestAnimationFrame(function next() {
  first ??= day();
  const tenths = Math.round((day() - first) * 10);
  for (let i = 0; i < 24; ++i) {
    pen.fillStyle = tenths >> i & 1 ? '#fff' : '#000';
    pen.fillRect(2 * i, 0, 2, 8);
  }
  pen.fillStyle = is_next ? '#fff' : '#000';
  pen.fillRect(60, 0, 4, 8);
  requestAnimationFrame(next);
});
if (asked.has('sounds')) {
  const context = new AudioContext(), tone = context.createOscillator();
  tone.connect(context.destination);
  tone.start();
}
if (asked.has('films')) {
  document.body.insertAdjacentHTML('beforeend', '<video src=film.webm autoplay muted></video>');
}
if (asked.has('stands')) document.body.insertAdjacentHTML('beforeend', '<video src=film.webm></video>');
if (!is_next) setTimeout(() => location = '?day=' + first, 200);
</script>)html";

struct moving_case {
    const char* name;
    const char* query;
};
void PrintTo(const moving_case& c, std::ostream* out) { *out << c.name; }

class RenderedMoveOf : public RenderFixture, public testing::WithParamInterface<moving_case> {
protected:
    struct shown {
        int tenths;
        bool is_next;
    };
    static std::vector<shown> read(const std::string& film) {
        constexpr std::size_t k_frame = 64 * 8 * 4;
        std::vector<shown> all;
        for (std::size_t at = 0; at + k_frame <= film.size(); at += k_frame) {
            const auto is_white = [&](std::size_t x) {
                return static_cast<unsigned char>(film[at + (4 * 64 + x) * 4]) > 128;
            };
            int tenths = 0;
            for (std::size_t bit = 0; bit < 24; ++bit) tenths |= int(is_white(2 * bit + 1)) << bit;
            all.push_back({tenths, is_white(62)});
        }
        return all;
    }
};

// What a page takes the day to be is rounded anew in each page, and so is its own time.
TEST_P(RenderedMoveOf, GoesOnWithTheNextPageAtItsMoment) {
    constexpr int k_step = 200;
    folder.write("page.html", k_page);
    expect_fine(std::string("ffmpeg -v error -f lavfi -i testsrc=s=64x8:r=25:d=2 -c:v libvpx "
                            "film.webm\npennywort render 'page.html?") +
                GetParam().query +
                "' --size 64x8 --frames 30 --codec ffv1 -o a.mkv && ffmpeg -v error -i a.mkv "
                "-pix_fmt bgra -f rawvideo frames");
    const auto all = read(folder.read("frames"));
    ASSERT_EQ(all.size(), 30u);
    std::size_t moved = 0;
    while (moved < all.size() && !all[moved].is_next) ++moved;
    ASSERT_GE(moved, 10u);
    ASSERT_LE(moved, 14u) << "the page's time stands while the next one loads";
    for (std::size_t n = 0; n < 10; ++n) EXPECT_EQ(all[n].tenths, k_step * int(n));
    const int begun = all[moved + 1].tenths - k_step;
    EXPECT_NEAR(begun, k_step * int(moved), 2) << "the day goes on";
    EXPECT_GE(all[moved].tenths, begun);
    EXPECT_LE(all[moved].tenths, begun + 5) << "half a millisecond";
    for (std::size_t n = moved + 1; n < all.size(); ++n) {
        EXPECT_TRUE(all[n].is_next) << n;
        EXPECT_EQ(all[n].tenths, begun + k_step * int(n - moved)) << n;
    }
}

const std::string k_make_film =
    "ffmpeg -v error -f lavfi -i testsrc2=s=320x180:r=25:d=4 -c:v libvpx-vp9 -b:v 400k "
    "film.webm\n";
// Of pictures of 400x300 in bgra.
constexpr std::size_t k_picture = 400 * 300 * 4;
constexpr std::size_t k_film_pixels = 160 * 90;
constexpr unsigned k_next = 0x112233;

unsigned colour_at(const std::string& film, std::size_t frame, std::size_t x, std::size_t y) {
    const std::size_t at = frame * k_picture + (y * 400 + x) * 4;
    return (unsigned(std::uint8_t(film[at + 2])) << 16) |
           (unsigned(std::uint8_t(film[at + 1])) << 8) | std::uint8_t(film[at]);
}

std::size_t drawn_in(const std::string& film, std::size_t frame) {
    std::size_t drawn = 0;
    for (std::size_t i = 0; i < 400 * 300; ++i)
        drawn += colour_at(film, frame, i % 400, i / 400) != k_next;
    return drawn;
}

// The film shows itself by a task of its page's, while the browser has that page's frame wait for
// it; the page before it shows nothing new.
TEST_F(RenderFixture, APageMovesOnToOneWithAFilm) {
    folder.write("page.html",
                 "<!doctype html><body style='background:#0a0'><script>let n = 0;"
                 "requestAnimationFrame(function next() { document.title = ++n;"
                 "if (n === 20) location = 'next.html'; requestAnimationFrame(next); })</script>");
    folder.write("next.html",
                 "<!doctype html><body style='margin:0;background:#123'><h1 id=t></h1>"
                 "<video src=film.webm width=160 autoplay muted>"
                 "</video><script>let n = 0; requestAnimationFrame(function next() {"
                 "t.textContent = ++n; requestAnimationFrame(next); })</script>");
    expect_fine(k_make_film +
                "pennywort render page.html --size 400x300 --frames 40 --codec ffv1 -o a.mkv\n"
                "ffmpeg -v error -i a.mkv -pix_fmt bgra -f rawvideo frames");
    const std::string film = folder.read("frames");
    ASSERT_EQ(film.size(), 40 * k_picture);
    std::size_t moved = 0;
    while (moved < 40 && colour_at(film, moved, 399, 299) == 0x00AA00) ++moved;
    EXPECT_GE(moved, 17u) << "it moves on in its twentieth turn, of which four are its first frame";
    ASSERT_LE(moved, 18u) << "its time stands while the next one loads";
    for (std::size_t n = moved; n < 40; ++n) {
        const std::size_t drawn = drawn_in(film, n);
        EXPECT_EQ(colour_at(film, n, 399, 299), k_next) << "the next page alone, in frame " << n;
        EXPECT_GT(drawn, k_film_pixels) << "its film and what its script writes, in frame " << n;
        EXPECT_LE(drawn, k_film_pixels + 2000) << n;
    }
}

// How long the browser takes to read its file goes by the day's time. Beside another film that runs
// it would have that in most cases; so each one is alone.
TEST_F(RenderFixture, AFilmThatAScriptBeginsIsInTheNextFrame) {
    folder.write("page.html",
                 "<!doctype html><body style='margin:0;background:#123;font-size:0'><script>"
                 "let n = 0, film; requestAnimationFrame(function next() {"
                 "requestAnimationFrame(next); if (++n % 3 || n < 9) return; film?.remove();"
                 "film = document.createElement('video'); film.muted = true; film.width = 40;"
                 "film.height = 24; film.style.objectFit = 'fill'; film.src = 'film.webm?' + n;"
                 "document.body.append(film); film.play(); })</script>");
    expect_fine(k_make_film +
                "pennywort render page.html --size 400x300 --frames 40 --codec ffv1 -o a.mkv\n"
                "ffmpeg -v error -i a.mkv -pix_fmt bgra -f rawvideo frames");
    const std::string film = folder.read("frames");
    ASSERT_EQ(film.size(), 40 * k_picture);
    for (std::size_t i = 0; i < 40; ++i) {
        const std::size_t turn = i + 4;  // the first frame has four
        const bool has_picture = turn > 9 && turn % 3 != 0;
        EXPECT_EQ(drawn_in(film, i), has_picture ? 40 * 24 : 0) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(APage, RenderedMoveOf,
                         testing::Values(moving_case{"WithNeither", "plain"},
                                         moving_case{"ThatSounds", "sounds"},
                                         moving_case{"WithAFilmThatStands", "stands"},
                                         moving_case{"WithAFilm", "films"},
                                         moving_case{"WithBoth", "sounds&films"}),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace pennywort::host
