// tests/host/render_exact_test.cpp - the program on the real browser runtime: films by the page's
// own clock, frame by frame.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

class ExactFilm : public MovingPage {};

// Two runs of a page that moves by every clock it has, one of them beside a busy process: equal to
// the byte, no frame repeated or missed, and each picture at its own moment.
TEST_F(ExactFilm, IsTheSameAgainWhateverTheMachineDoes) {
    folder.write("clocks.html",
                 "<!doctype html><style>body{margin:0;background:#000}"
                 "@keyframes run{to{transform:translateX(1000px)}}"
                 "div{position:absolute;width:1px;height:8px;background:#fff}"
                 "#css{top:0;animation:run 20s linear both}"
                 "#date{top:8px}#frame{top:16px}#dice{top:24px}</style>"
                 "<div id=css></div><div id=date></div><div id=frame></div><div id=dice></div>"
                 "<script>const put = (id, x) => document.getElementById(id).style.left = x + 'px';"
                 "let day, at; (function next(stamp) {"
                 "  if (at === undefined) { day = Date.now(); at = stamp; }"
                 "  put('date', (Date.now() - day) / 20);"
                 "  put('frame', Math.round((stamp - at) / 20));"
                 "  put('dice', Math.floor(Math.random() * 60));"
                 "  requestAnimationFrame(next); })(performance.now())</script>");
    const auto run = folder.run(
        "film='pennywort render clocks.html --exact --size 64x32 --frames 60 --json'\n"
        "$film -o a.bgra\n"
        "(while :; do :; done) & busy=$!\n"
        "$film -o b.bgra\n"
        "kill $busy");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(value_of(run.output, "repeated"), "0") << run.output;
    EXPECT_EQ(value_of(run.output, "missed"), "0");
    const std::string film = folder.read("a.bgra");
    constexpr std::size_t k_frame = 64 * 32 * 4;
    ASSERT_EQ(film.size(), 60 * k_frame);
    EXPECT_EQ(film, folder.read("b.bgra"));
    const auto is_white = [&](std::size_t frame, std::size_t x, std::size_t y) {
        return static_cast<unsigned char>(film[frame * k_frame + (y * 64 + x) * 4]) > 200;
    };
    for (std::size_t n = 0; n < 60; ++n) {
        EXPECT_TRUE(is_white(n, n, 4)) << "the animation at frame " << n;
        EXPECT_TRUE(is_white(n, n, 12)) << "the day at frame " << n;
        EXPECT_TRUE(is_white(n, n, 20)) << "the stamp at frame " << n;
    }
}

// What is turned has soft edges, and a film's pictures come sooner or later before each frame.
TEST_F(ExactFilm, IsTheSameAgainWhereAPageTurnsSomethingBesideAFilm) {
    folder.write("turns.html",
                 "<!doctype html><style>body{margin:0;background:#888}"
                 "@keyframes turn{to{transform:translateX(391.7px) rotate(77deg)}}"
                 "div{position:absolute;top:100px;width:20px;height:20px;background:purple;"
                 "animation:turn 4s linear infinite}"
                 "svg{position:absolute;left:0;top:40px}"
                 "video{position:absolute;left:100px;top:120px}</style>"
                 "<svg width=420 height=40><rect width=20 height=20 fill=teal>"
                 "<animate attributeName=x to=391.7 dur=4s></rect></svg><div></div>"
                 "<video src=film.webm autoplay muted></video>");
    const auto run = folder.run(
        "ffmpeg -v error -f lavfi -i testsrc2=s=160x90:r=25:d=2 -c:v libvpx-vp9 film.webm\n"
        "for name in a b c; do pennywort render turns.html --size 440x220 --frames 50 "
        "-o $name.bgra || exit; done");
    EXPECT_EQ(run.status, 0) << run.errors;
    const std::string film = folder.read("a.bgra");
    ASSERT_EQ(film.size(), std::size_t{440} * 220 * 4 * 50);
    for (const char* again : {"b.bgra", "c.bgra"}) {
        EXPECT_TRUE(film == folder.read(again)) << again;
    }
}

// Where a page has something new in each frame and a film in it, the browser may show it a frame
// late, from the second frame on.
TEST_F(ExactFilm, HasWhatAPageDrawsBesideAFilmInItsOwnFrame) {
    const std::string page =
        "<!doctype html><style>body{margin:0;background:#000}svg,video{position:absolute;top:8px}"
        "canvas{position:absolute;left:0;top:0}</style><canvas id=bar width=64 height=4></canvas>"
        "<svg width=64 height=8><rect width=4 height=4 fill=teal><animate attributeName=x from=0 "
        "to=60 dur=2s repeatCount=indefinite /></rect></svg>"
        "<script>const g = bar.getContext('2d'); (function draw() {"
        "const n = Math.round(performance.now() / 20); g.fillStyle = '#000';"
        "g.fillRect(0, 0, 64, 4); g.fillStyle = '#fff'; g.fillRect(n, 0, 64, 4);"
        "requestAnimationFrame(draw); })()</script>";
    folder.write("stands.html", page + "<video src=film.webm width=16 height=8></video>");
    folder.write("moves.html",
                 page + "<video src=film.webm width=16 height=8 autoplay muted></video>");
    expect_fine(
        "ffmpeg -v error -f lavfi -i testsrc2=s=160x90:r=25:d=2 -c:v libvpx-vp9 film.webm\n"
        "for name in stands moves; do pennywort render $name.html --size 64x16 --frames 40 "
        "-o $name.bgra || exit; done");
    for (const char* name : {"stands.bgra", "moves.bgra"}) {
        const std::string film = folder.read(name);
        ASSERT_EQ(film.size(), std::size_t{40} * 64 * 16 * 4) << name;
        for (std::size_t n = 0; n < 40; ++n) {
            std::size_t x = 0;
            while (x < 64 && static_cast<unsigned char>(film[((n * 16 + 1) * 64 + x) * 4]) <= 128) {
                ++x;
            }
            EXPECT_EQ(x, n) << name << ", frame " << n;
        }
    }
}

TEST_F(ExactFilm, OfSeveralPagesOfAStillOneAndOfOnePicture) {
    folder.write("still.html", "<!doctype html><style>body{background:#20c840}</style>");
    auto run = folder.run(
        "pennywort render still.html moving.html --exact --size 64x48 --frames 10 -o f-%02d.png "
        "--json");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(value_of(run.output, "frames"), "20");
    EXPECT_EQ(value_of(run.output, "repeated"), "9") << run.output;
    EXPECT_EQ(pixel("f-01.png", 5, 5), (colour{0x40, 0xC8, 0x20, 0xFF}));
    EXPECT_EQ(pixel("f-10.png", 5, 5), (colour{0x40, 0xC8, 0x20, 0xFF}));
    run = folder.run("pennywort render still.html --exact --size 64x48 -o one.png");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(pixel("one.png", 5, 5), (colour{0x40, 0xC8, 0x20, 0xFF}));
}

// The bar is as wide as the frames that the page has had: the condition needs time to pass, and a
// film begins with the frame behind the one that made it true.
TEST_F(ExactFilm, WaitsInThePagesOwnTime) {
    folder.write("bar.html",
                 "<!doctype html><style>body{margin:0;background:#000}div{height:9px;"
                 "background:#fff}</style><div id=bar></div><script>setTimeout(() => shown = 1, "
                 "400); let n = 0; var shown = 0; (function next() { bar.style.width = n++ + 'px';"
                 "requestAnimationFrame(next); })()</script>");
    expect_fine(
        "film='pennywort render bar.html --size 64x32 --frames 3 --wait-for shown'\n"
        "$film -o a.bgra && $film -o b.bgra");
    const std::string film = folder.read("a.bgra");
    constexpr std::size_t k_frame = 64 * 32 * 4;
    ASSERT_EQ(film.size(), 3 * k_frame);
    EXPECT_EQ(film, folder.read("b.bgra"));
    const auto width = [&](std::size_t frame) {
        std::size_t x = 0;
        while (x < 64 && static_cast<unsigned char>(film[frame * k_frame + x * 4]) > 200) ++x;
        return x;
    };
    EXPECT_GE(width(0), 20u) << "400 ms at 50 frames a second";
    EXPECT_LE(width(0), 26u);
    EXPECT_EQ(width(1), width(0) + 1);
    EXPECT_EQ(width(2), width(0) + 2);
}

// The bar is as wide as the turns that the page has had. Of the frames before the first one there
// is one in which it has none.
TEST_F(ExactFilm, HasFourTurnsAtItsTimeZeroAndNoneThatWasTakenBack) {
    folder.write("turns.html",
                 "<!doctype html><style>body{margin:0;background:#000}div{height:9px;"
                 "background:#fff}</style><div id=bar></div><script>let n = 0;"
                 "requestAnimationFrame(function next() { bar.style.width = ++n + 'px';"
                 "cancelAnimationFrame(requestAnimationFrame(() => n += 100));"
                 "requestAnimationFrame(next); });"
                 "try { requestAnimationFrame(1); n = 1000 } catch {}"
                 "if (typeof requestAnimationFrame(() => 0) !== 'number') n = 1000</script>");
    expect_fine("pennywort render turns.html --size 64x32 --frames 3 -o a.bgra");
    const std::string film = folder.read("a.bgra");
    constexpr std::size_t k_frame = 64 * 32 * 4;
    ASSERT_EQ(film.size(), 3 * k_frame);
    for (std::size_t n = 0; n < 3; ++n) {
        std::size_t x = 0;
        while (x < 64 && static_cast<unsigned char>(film[n * k_frame + x * 4]) > 200) ++x;
        EXPECT_EQ(x, n + 4) << "at frame " << n;
    }
}

TEST_F(ExactFilm, IsTheSameInTwoPiecesThatAreMadeAtOnce) {
    const auto run = folder.run(
        "film='pennywort render moving.html --size 64x32 --date 2026-12-24'\n"
        "$film --to 2 -o whole.bgra || exit\n"
        "$film --to 1 -o first.bgra & first=$!\n"
        "$film --from 1 --to 2 -o second.bgra & second=$!\n"
        "wait $first && wait $second && cat first.bgra second.bgra | cmp - whole.bgra &&\n"
        "! cmp -s first.bgra second.bgra");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(folder.read("whole.bgra").size(), 100u * 64 * 32 * 4);
}

// Each bar is as wide as the turns that the page has had. One script ends by a timer, and the other
// one never: the browser gives it up after 4 s of the page's time. Four turns come before time 0.
TEST_F(ExactFilm, GoesOnWhileAScriptThatChangesTheViewHasNotEnded) {
    folder.write("change.html",
                 "<!doctype html><style>body{margin:0;background:#000}::view-transition-group(*),"
                 "::view-transition-old(*),::view-transition-new(*){animation-duration:0s}"
                 "div{height:9px;background:#fff}</style><div id=bar></div><script>let n = 0;"
                 "const change = until => document.startViewTransition(() => until)"
                 ".updateCallbackDone.catch(() => 0);"
                 "requestAnimationFrame(function next() { bar.style.width = ++n + 'px';"
                 "if (n === 8) change(new Promise(done => setTimeout(done, 1000)));"
                 "if (n === 18) change(new Promise(() => 0));"
                 "requestAnimationFrame(next); })</script>");
    expect_fine("pennywort render change.html --size 64x32 --fps 10 --seconds 8 -o a.bgra");
    const std::string film = folder.read("a.bgra");
    constexpr std::size_t k_frame = 64 * 32 * 4;
    ASSERT_EQ(film.size(), 80 * k_frame);
    const auto turns = [&](std::size_t frame) {
        std::size_t x = 0;
        while (x < 64 && static_cast<unsigned char>(film[frame * k_frame + x * 4]) > 200) ++x;
        return x;
    };
    std::string all;
    for (std::size_t n = 0; n < 80; ++n) all += std::to_string(turns(n)) + " ";
    EXPECT_EQ(turns(3), 7u) << all;
    EXPECT_EQ(turns(12), 8u) << all;
    EXPECT_GE(turns(20), 12u) << all;
    EXPECT_EQ(turns(50), 18u) << all;
    EXPECT_GE(turns(79), 24u) << all;
}

TEST_F(ExactFilm, ThatCannotGoOnSaysWhy) {
    expect_failure("pennywort render http://does-not-exist.invalid/ --exact --frames 1",
                   "could not be loaded");
    folder.write("throws.html", "<script>for(;;);</script>");
    expect_failure("pennywort render throws.html --exact --timeout 3 --frames 1",
                   "has not loaded within 3 s");
    const auto wrong = folder.run("pennywort render moving.html --exact --endless -o a.y4m");
    EXPECT_EQ(wrong.status, 2);
    EXPECT_NE(wrong.errors.find("--exact needs an end"), std::string::npos) << wrong.errors;
}

}  // namespace
}  // namespace pennywort::host
