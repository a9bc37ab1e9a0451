// tests/host/render_page_test.cpp - the program on the real browser runtime: the world that its
// options make for a page, as the pictures show it.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

class RenderPage : public RenderFixture {
protected:
    // What a picture that loses something makes of a colour.
    static void expect_near(const colour& got, const colour& wanted) {
        ASSERT_EQ(got.size(), wanted.size());
        for (std::size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], wanted[i], 4) << i;
    }
};

TEST_F(RenderPage, BeginsOnTheDayThatIsAskedFor) {
    folder.write("day.html",
                 truth_page("Math.abs(Date.now() - Date.UTC(2030, 4, 6, 7, 8, 9)) < 2"));
    expect_fine("pennywort render day.html --size 16x16 --date 2030-05-06T07:08:09Z -o a.png");
    EXPECT_EQ(pixel("a.png", 8, 8), k_white);
}

TEST_F(RenderPage, HasTheDiceOfItsSeed) {
    folder.write("dice.html",
                 "<!doctype html><style>body{margin:0}</style><canvas id=c width=64 height=64>"
                 "</canvas><script>const pen = c.getContext('2d');"
                 "(function next() { for (let i = 0; i < 9; ++i) { pen.fillStyle = '#' + "
                 "(Math.random() * 0xffffff | 0).toString(16).padStart(6, 0);"
                 "pen.fillRect(Math.random() * 64, Math.random() * 64, 9, 9); }"
                 "requestAnimationFrame(next); })()</script>");
    const auto run = folder.run(
        "film='pennywort render dice.html --size 64x64 --frames 20 --date @1800000000'\n"
        "$film -o a.bgra && $film -o b.bgra && $film --seed 2 -o c.bgra && "
        "$film --seed 0 -o d.bgra && $film --seed 0 -o e.bgra && "
        "$film --seed 4294967295 -o f.bgra && $film --seed 4294967295 -o g.bgra && "
        "sha256sum ?.bgra");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(folder.read("a.bgra").size(), 20u * 64 * 64 * 4);
    const std::size_t line = run.output.find('\n') + 1;
    const auto hash = [&](std::size_t n) { return run.output.substr(n * line, 64); };
    EXPECT_EQ(hash(0), hash(1)) << run.output;
    EXPECT_NE(hash(0), hash(2)) << run.output;
    EXPECT_EQ(hash(3), hash(4)) << run.output;
    EXPECT_EQ(hash(5), hash(6)) << run.output;
    EXPECT_NE(hash(3), hash(5)) << run.output;
}

// The browser's own rule, and its own switch.
TEST_F(RenderPage, OfAFileReadsFilesWhereTheUserLetsIt) {
    folder.write("data.json", "{\"colour\":\"#fff\"}");
    folder.write("part.js", "export const read = () => fetch('data.json').then(r => r.json());");
    folder.write("reads.html",
                 "<!doctype html><style>html{background:#000}</style><script type=module>"
                 "import {read} from './part.js';"
                 "document.documentElement.style.background = (await read()).colour</script>");
    const std::string picture = "pennywort render reads.html --size 16x16 --strict";
    EXPECT_EQ(folder.run(picture + " -o refused.png").status, 4);
    EXPECT_EQ(pixel("refused.png", 8, 8), k_black);
    expect_fine(picture + " --switch allow-file-access-from-files -o let.png");
    EXPECT_EQ(pixel("let.png", 8, 8), k_white);
}

// --- its picture

TEST_F(RenderPage, WithoutABackgroundIsWhiteUnlessAnotherIsAskedForOrNone) {
    folder.write("bare.html", "<!doctype html><p>text");
    expect_fine("pennywort render bare.html --size 64x48 -o white.png");
    expect_fine("pennywort render bare.html --size 64x48 --background '#204060' -o blue.png");
    expect_fine("pennywort render bare.html --size 64x48 --transparent -o clear.png");
    expect_fine("pennywort render bare.html --size 64x48 --live --frames 3 -o live.png");
    EXPECT_EQ(pixel("white.png", 60, 4), k_white);
    EXPECT_EQ(pixel("blue.png", 60, 4), (colour{0x60, 0x40, 0x20, 255}));
    EXPECT_EQ(pixel("clear.png", 60, 4), (colour{0, 0, 0, 0}));
    EXPECT_EQ(pixel("live.png", 60, 4), k_white);
}

TEST_F(RenderPage, HasNoScrollbars) {
    folder.write("tall.html",
                 "<!doctype html><style>html{background:#20c840}body{margin:0;height:5000px;"
                 "width:5000px}</style>");
    for (const char* way : {"", "--live --frames 3 "}) {
        expect_fine(std::string("pennywort render tall.html --size 100x60 ") + way + "-o a.png");
        EXPECT_EQ(pixel("a.png", 97, 30), (colour{0x40, 0xC8, 0x20, 255})) << way;
        EXPECT_EQ(pixel("a.png", 50, 57), (colour{0x40, 0xC8, 0x20, 255})) << way;
    }
}

TEST_F(RenderPage, IsDrawnFinerByItsScale) {
    folder.write("line.html",
                 "<!doctype html><style>body{margin:0;background:#000}div{position:absolute;"
                 "left:10px;top:0;width:1px;height:60px;background:#fff}</style><div></div><script>"
                 "if (devicePixelRatio !== 2 || innerWidth !== 100) document.body.innerHTML = ''"
                 "</script>");
    for (const char* way : {"", "--live --frames 3 "}) {
        expect_fine(std::string("pennywort render line.html --size 100x60 --scale 2 ") + way +
                    "-o a.png");
        EXPECT_EQ(size_of("a.png"), "200x120") << way;
        EXPECT_EQ(pixel("a.png", 20, 60), k_white) << way;
        EXPECT_EQ(pixel("a.png", 21, 60), k_white) << way;
        EXPECT_EQ(pixel("a.png", 19, 60), k_black) << way;
        EXPECT_EQ(pixel("a.png", 22, 60), k_black) << way;
    }
    expect_fine("pennywort render line.html --size 100x60 --scale 1.5 --frames 2 -o a.bgra");
    EXPECT_EQ(folder.read("a.bgra").size(), 2u * 150 * 90 * 4);
}

// None of these is a number that the machine can hold, nor what they make of 1280 and 720.
TEST_F(RenderPage, IsDrawnFinerByAScaleOfTenths) {
    folder.write("bare.html", "<!doctype html><p>text");
    const std::pair<const char*, const char*> cases[] = {
        {"1.1", "1408x792"}, {"1.15", "1472x828"}, {"0.7", "896x504"}, {"2.3", "2944x1656"}};
    for (const auto& [scale, size] : cases) {
        expect_fine(std::string("pennywort render bare.html -o a.png --scale ") + scale);
        EXPECT_EQ(size_of("a.png"), size) << scale;
    }
}

TEST_F(RenderPage, IsShownInAllItsLengthOrOneElementOfIt) {
    folder.write("long.html",
                 "<!doctype html><style>body{margin:0;height:900px;background:#000}"
                 "div{position:absolute;left:20px;top:700px;width:30px;height:40px;"
                 "background:#fff}</style><div id=score></div>");
    auto run = folder.run("pennywort render long.html --size 100x60 --full-page -o a.png --json");
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(size_of("a.png"), "100x900");
    EXPECT_EQ(value_of(run.output, "height"), "900");
    EXPECT_EQ(pixel("a.png", 20, 700), k_white);
    EXPECT_EQ(pixel("a.png", 19, 700), k_black);
    EXPECT_EQ(pixel("a.png", 49, 739), k_white);
    EXPECT_EQ(pixel("a.png", 50, 740), k_black);
    expect_fine("pennywort render long.html --size 100x60 --scale 2 --element '#score' -o b.png");
    EXPECT_EQ(size_of("b.png"), "60x80");
    EXPECT_EQ(pixel("b.png", 0, 0), k_white);
    EXPECT_EQ(pixel("b.png", 59, 79), k_white);
    expect_failure("pennywort render long.html --element .no -o c.png",
                   "--element .no: the page has no such element");
    EXPECT_FALSE(folder.has("c.png"));
}

// A lower third slides in: its place is the one of the picture's moment.
TEST_F(RenderPage, IsShownInThePartWhereItsElementIsAtThePicturesMoment) {
    folder.write("slides.html",
                 "<!doctype html><style>body{margin:0;background:#000}"
                 "@keyframes in{from{left:-40px}to{left:60px}}"
                 "div{position:absolute;top:10px;width:40px;height:20px;background:#fff;"
                 "animation:in 1s linear both}</style><div id=third></div>");
    const std::string film = "pennywort render slides.html --size 100x60 --element '#third' ";
    expect_fine(film + "--from 0.98 -o a.png");
    EXPECT_EQ(size_of("a.png"), "40x20") << "a tenth of a millisecond is no pixel";
    EXPECT_EQ(pixel("a.png", 20, 10), k_white);
    expect_fine(film + "--from 2 -o a.png");
    EXPECT_EQ(size_of("a.png"), "40x20");
    EXPECT_EQ(pixel("a.png", 0, 0), k_white);
    EXPECT_EQ(pixel("a.png", 39, 19), k_white);
    expect_fine(film + "--from 1 --to 2 -o a.png");
    EXPECT_EQ(size_of("a.png"), "40x20") << "of its last frame";
    expect_fine("pennywort render slides.html --size 100x60 --full-page --from 2 -o a.png");
    EXPECT_EQ(size_of("a.png"), "100x60");
    EXPECT_EQ(pixel("a.png", 60, 10), k_white);
    EXPECT_EQ(pixel("a.png", 59, 10), k_black);
}

// It has the time up to its moment for what comes only when it is seen.
TEST_F(RenderPage, IsShownWithWhatComesIntoTheLargerWindow) {
    folder.write("grows.html",
                 "<!doctype html><style>body{margin:0;height:400px;background:#000}"
                 "div{position:absolute;left:0;top:300px;width:30px;height:40px}</style>"
                 "<div id=below></div><script>new IntersectionObserver(all => all.forEach(one => {"
                 "if (one.isIntersecting) setTimeout(() => below.style.background = '#fff', 300);"
                 "})).observe(below)</script>");
    const std::string film = "pennywort render grows.html --size 100x60 --from 1 -o a.png ";
    expect_fine(film + "--full-page");
    EXPECT_EQ(size_of("a.png"), "100x400");
    EXPECT_EQ(pixel("a.png", 15, 320), k_white);
    expect_fine(film + "--element '#below'");
    EXPECT_EQ(size_of("a.png"), "30x40");
    EXPECT_EQ(pixel("a.png", 15, 20), k_white);
}

// What ffmpeg makes a picture of has to be told its size.
TEST_F(RenderPage, IsShownInAllItsLengthInEachKindOfPicture) {
    folder.write("long.html",
                 "<!doctype html><style>body{margin:0;height:300px;background:#000}"
                 "div{position:absolute;left:20px;top:200px;width:32px;height:48px;"
                 "background:#fff}</style><div id=score></div>");
    const std::string film = "pennywort render long.html --size 100x60 ";
    for (const std::string ending : {"jpg", "webp"}) {
        const auto read_back = [&] { expect_fine("ffmpeg -v error -y -i a." + ending + " a.png"); };
        expect_fine(film + "--full-page -o a." + ending);
        read_back();
        EXPECT_EQ(size_of("a.png"), "100x300");
        expect_near(pixel("a.png", 36, 224), k_white);
        expect_near(pixel("a.png", 36, 100), k_black);
        expect_near(pixel("a.png", 90, 224), k_black);
        expect_fine(film + "--element '#score' -o a." + ending);
        read_back();
        EXPECT_EQ(size_of("a.png"), "32x48");
        expect_near(pixel("a.png", 31, 47), k_white);
    }
    expect_fine(film + "--full-page -o a.jpg --key k.jpg && ffmpeg -v error -y -i k.jpg a.png");
    EXPECT_EQ(size_of("a.png"), "100x300");
}

// 1001 pixels of the page are 1251.25 of its picture.
TEST_F(RenderPage, IsShownInAllItsLengthWhereTheScaleLeavesAPartOfAPixel) {
    folder.write("long.html",
                 "<!doctype html><style>body{margin:0;height:1001px;background:#000}"
                 "div{position:absolute;left:0;top:961px;width:20px;height:40px;"
                 "background:#fff}</style><div id=last></div>");
    const std::string film = "pennywort render long.html --size 100x60 --scale 1.25 ";
    expect_fine(film + "--full-page -o a.png");
    const std::string size = size_of("a.png");
    EXPECT_TRUE(size == "125x1251" || size == "125x1252") << size;
    EXPECT_EQ(pixel("a.png", 5, 1249), k_white);
    EXPECT_EQ(pixel("a.png", 30, 1249), k_black);
    expect_fine(film + "--element '#last' -o b.png");
    EXPECT_EQ(size_of("b.png"), "25x" + std::to_string(std::stoi(size.substr(4)) - 1201));
    EXPECT_EQ(pixel("b.png", 12, 25), k_white);
}

TEST_F(RenderPage, ThatClosesItselfIsToldAtOnce) {
    folder.write("closes.html",
                 "<!doctype html><script>setTimeout(() => window.close(), 300)</script>");
    for (const char* way : {"", "--live "}) {
        expect_failure(std::string("pennywort render closes.html --seconds 60 -o a.mkv ") + way,
                       "the page has closed itself");
    }
}

// --- what it says

TEST_F(RenderPage, SaysEachOfItsFaultsWithItsPlaceAndTheSummaryCountsThem) {
    folder.write("faults.html",
                 "<!doctype html>\n<script>\nconsole.log('two', {goals: 2});\n"
                 "console.error('no data');\nPromise.reject(new Error('no team'));\n"
                 "setTimeout(() => nosuch(), 10);\n</script>\n<img src=missing.png>");
    auto run = folder.run("pennywort render faults.html --frames 9 --verbose -o a.y4m --json");
    EXPECT_EQ(run.status, 0) << run.errors;
    for (const char* part :
         {"page: faults.html:3:9: console.log: two {goals: 2}\n",
          "page: faults.html:4:9: console.error: no data\n",
          "page: faults.html:5:16: Uncaught (in promise) Error: no team\n",
          "page: faults.html:6:18: Uncaught ReferenceError: nosuch is not defined\n",
          "missing.png: Failed to load resource: net::ERR_FILE_NOT_FOUND\n",
          "of the page: 1 uncaught error, 1 rejected promise, 1 failed resource, 1 console "
          "error\n"}) {
        EXPECT_NE(run.errors.find(part), std::string::npos) << part << "\nin\n" << run.errors;
    }
    EXPECT_EQ(run.errors.find(":ERROR:"), std::string::npos) << "the browser's own" << run.errors;
    EXPECT_EQ(value_of(run.output, "page_errors"), "2") << run.output;
    EXPECT_EQ(value_of(run.output, "failed_resources"), "1");
    run = folder.run("pennywort render faults.html --frames 9 --strict -o b.y4m");
    EXPECT_EQ(run.status, 4) << run.errors;
    EXPECT_EQ(folder.read("a.y4m"), folder.read("b.y4m")) << "the film is whole";
    EXPECT_EQ(run.errors.find("console.log"), std::string::npos) << run.errors;
}

// As when a script takes the first letters of a name, and the last of them is an emoji.
TEST_F(RenderPage, WhoseTextsAreCutInTheMiddleOfACharacterIsHeard) {
    folder.write("cut.html",
                 "<!doctype html><script>console.error('no \\ud83d');\n"
                 "setTimeout(() => { throw new Error('cut \\ud83d') }, 10)</script>");
    const auto run = folder.run("pennywort render cut.html --frames 9 --strict -o a.y4m");
    EXPECT_EQ(run.status, 4) << run.errors;
    EXPECT_NE(run.errors.find("1 uncaught error, 1 console error"), std::string::npos)
        << run.errors;
}

// Its films and sounds are driven in its own world.
TEST_F(RenderPage, WhoseScriptsChangeWhatItsSoundIsDrivenByIsTold) {
    folder.write("bent.html",
                 "<!doctype html><script>JSON.stringify = () => { throw 1 };"
                 "new Audio('missing.wav').play(); const context = new AudioContext;"
                 "Float32Array.prototype.every = () => { throw 1 }</script>");
    const auto run = folder.run("pennywort render bent.html --frames 9 -o a.mkv");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("page: sound: a script of the page has changed"), std::string::npos)
        << run.errors;
}

TEST_F(RenderPage, WhoseWorkerSpeaksIsHeardToo) {
    folder.write("page.html",
                 "<!doctype html><script>new Worker(URL.createObjectURL(new Blob([\"console.error("
                 "'no feed'); setTimeout(() => nosuch(), 40)\"])))</script>");
    const auto run =
        folder.run("pennywort render page.html --frames 9 --strict --verbose -o a.y4m");
    EXPECT_EQ(run.status, 4) << run.errors;
    EXPECT_NE(run.errors.find("console.error: no feed\n"), std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find("nosuch is not defined\n"), std::string::npos) << run.errors;
}

// That one is heard by the page's log alone.
TEST_F(RenderPage, WhoseWorkersWorkerSpeaksIsHeardToo) {
    folder.write("page.html",
                 "<!doctype html><script>const made = text => `new Worker(URL.createObjectURL("
                 "new Blob([${JSON.stringify(text)}])))`;"
                 "eval(made(made(\"console.error('no feed')\")))</script>");
    const auto run =
        folder.run("pennywort render page.html --frames 9 --strict --verbose -o a.y4m");
    EXPECT_EQ(run.status, 4) << run.errors;
    EXPECT_NE(run.errors.find("no feed\n"), std::string::npos) << run.errors;
}

TEST_F(RenderPage, WhoseFilmNeedsALicenceIsToldSoByName) {
    folder.write("film.html", "<!doctype html><video src=film.mp4 autoplay muted></video>");
    const auto run = folder.run(
        "ffmpeg -v error -f lavfi -i testsrc=s=64x48:d=1 -pix_fmt yuv420p -c:v libx264 film.mp4\n"
        "pennywort render film.html --frames 9 --strict -o a.y4m");
    EXPECT_EQ(run.status, 4) << run.errors;
    EXPECT_NE(run.errors.find("film.mp4: it is H.264 and cannot be played"), std::string::npos)
        << run.errors;
}

// No name of theirs says it, and the second is elsewhere than the page has it.
constexpr const char* k_site_of_films = R"py(
        def film(name, kind): self.reply(200, kind, open(name, 'rb').read())
        if self.path == '/clip': return film('film.mp4', 'video/mp4')
        if self.path == '/good': return film('film.webm', 'video/webm')
        if self.path == '/moved':
            self.send_response(302); self.send_header('Location', '/clip')
            self.send_header('Content-Length', '0'); self.end_headers(); return
        pages = {'/src': '<video src=/clip>', '/moves': '<video src=/moved>',
                 '/source': '<video><source src=/clip type=video/mp4></video>',
                 '/other': '<video><source src=/clip type=video/mp4><source src=/good></video>',
                 '/none': '<video src=/missing>'}
        page = pages.get(self.path)
        self.reply(200 if page else 404, 'text/html', ('<!doctype html>' + (page or '')).encode())
)py";

TEST_F(RenderPage, WhoseServedFilmNeedsALicenceIsToldSoByItsType) {
    write_site(k_site_of_films);
    expect_fine(
        "ffmpeg -v error -f lavfi -i testsrc=s=64x48:d=1 -pix_fmt yuv420p -c:v libx264 film.mp4\n"
        "ffmpeg -v error -f lavfi -i testsrc=s=64x48:d=1 -c:v libvpx-vp9 film.webm");
    for (const auto& [page, film] :
         {std::pair("src", "/clip"), std::pair("moves", "/moved"), std::pair("source", "/clip")}) {
        const auto run = served(std::string("pennywort render $at/") + page +
                                " --frames 9 --strict --verbose --json -o a.y4m");
        EXPECT_EQ(run.status, 4) << page << run.errors;
        EXPECT_NE(run.errors.find(std::string(film) +
                                  ": it is H.264, HEVC or AAC, by its type (video/mp4), and "),
                  std::string::npos)
            << page << run.errors;
        EXPECT_EQ(value_of(run.output, "failed_resources"), "1") << page << run.errors;
    }
    const auto other = served("pennywort render $at/other --frames 9 --strict -o a.y4m");
    EXPECT_EQ(other.status, 0) << "it plays from its second source" << other.errors;
    const auto none = served("pennywort render $at/none --frames 9 --strict --verbose -o a.y4m");
    EXPECT_EQ(none.status, 4) << none.errors;
    EXPECT_EQ(none.errors.find("H.264"), std::string::npos) << none.errors;
}

TEST_F(RenderPage, ThatOpensADialogIsAnsweredAndGoesOn) {
    folder.write(
        "asks.html",
        "<!doctype html><script>alert('no data'); document.documentElement.style.background "
        "= confirm('go on?') ? '#fff' : '#000'</script>");
    for (const char* way : {"", "--live --frames 3 "}) {
        const auto run = folder.run(std::string("pennywort render asks.html --size 16x16 ") + way +
                                    "--timeout 10 --verbose -o a.png");
        EXPECT_EQ(run.status, 0) << way << run.errors;
        EXPECT_NE(run.errors.find("asks.html: alert: no data"), std::string::npos) << run.errors;
        EXPECT_EQ(pixel("a.png", 8, 8), k_white) << way;
    }
}

TEST_F(RenderPage, IsNotSearchedForPlugInsBeforeTheUser) {
    folder.write("plain.html", "<!doctype html>");
    const auto run = folder.run("pennywort render plain.html --frames 9 --verbose -o a.y4m");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("loaded: "), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find("Flash"), std::string::npos) << run.errors;
}

TEST_F(RenderPage, WithoutAFaultIsFineByTheStrictestEye) {
    folder.write("fine.html",
                 "<!doctype html><script>console.log('x'); console.warn('y')</script>");
    expect_fine("pennywort render fine.html --frames 9 --strict -o a.y4m");
}

// --- a piece of its film

TEST_F(RenderPage, InPiecesIsTheWholeFilm) {
    folder.write("moves.html",
                 "<!doctype html><style>body{margin:0;background:#000}"
                 "@keyframes run{to{transform:translateX(60px)}}"
                 "div{position:absolute;width:4px;height:8px;background:#fff}"
                 "#css{animation:run 1s steps(60) infinite}#turns{top:8px}#still{top:16px}</style>"
                 "<div id=css></div><div id=turns></div><div id=still></div>"
                 "<script>let n = 0; (function next() { turns.style.left = n++ % 60 + 'px';"
                 "requestAnimationFrame(next); })()</script>");
    folder.write("still.html", "<!doctype html><style>html{background:#20c840}</style>");
    for (const char* page : {"moves.html", "still.html"}) {
        const auto run = folder.run(
            std::string("film='pennywort render ") + page +
            " --size 64x32 --date 2026-11-22 --fps 60000/1001'\n"
            "$film --seconds 1.5 -o whole.bgra\n"
            "$film --to 0.5 -o piece-1.bgra & $film --from 0.5 --to 1.1 -o piece-2.bgra & wait\n"
            "$film --from 1.1 --frames 24 -o piece-3.bgra\n"
            "cat piece-?.bgra > pieces.bgra\n"
            "cmp whole.bgra pieces.bgra || exit\n"
            "$film --from 1.1 --frames 24 --fast-forward -o fast.bgra && cmp fast.bgra "
            "piece-3.bgra");
        EXPECT_EQ(run.status, 0) << page << run.output << run.errors;
        EXPECT_EQ(folder.read("whole.bgra").size(), 90u * 64 * 32 * 4);
        EXPECT_EQ(run.errors.find("--fast-forward: "), std::string::npos) << run.errors;
    }
}

// The browser goes on with what it first drew of such an element.
TEST_F(RenderPage, ThatKeepsWhatWasDrawnTinyIsTold) {
    folder.write("keeps.html",
                 "<!doctype html><style>body{margin:0;font:8px serif}div{will-change:transform;"
                 "transform-origin:0 0}</style><div>text</div><script>requestAnimationFrame("
                 "function next(at) { document.querySelector('div').style.transform = "
                 "`scale(${1 + at / 500})`; requestAnimationFrame(next); })</script>");
    const auto run = folder.run(
        "film='pennywort render keeps.html --size 64x32 --date 2026-11-22 --from 1 --frames 2'\n"
        "$film -o drawn.bgra && $film --fast-forward -o fast.bgra && ! cmp -s drawn.bgra "
        "fast.bgra");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_NE(run.errors.find("pennywort: --fast-forward: the page keeps parts as they were first "
                              "drawn (will-change)"),
              std::string::npos)
        << run.errors;
}

TEST_F(RenderPage, ThatHangsIsToldInOneLineEach) {
    folder.write("hangs.html", "<script>for(;;);</script>");
    const auto run = folder.run("pennywort render hangs.html --timeout 8 -o a.mkv");
    EXPECT_EQ(run.status, 1);
    const std::string told =
        "loading page 1 of 1\n"
        "loading page 1 of 1  (nothing new for 5 s, still waiting)\n";
    EXPECT_EQ(run.errors.substr(0, told.size()), told);
    EXPECT_EQ(run.errors.find("loading", told.size()), std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find("has not loaded within 8 s"), std::string::npos) << run.errors;
}

TEST_F(RenderPage, WhoseWorkerSpeaksCountsItOnce) {
    folder.write("page.html",
                 "<script>new Worker(URL.createObjectURL(new Blob(['setTimeout(() => {"
                 "console.error({goals: 2}); nosuch()}, 40)'])))</script>");
    const auto run = folder.run("pennywort render page.html --frames 9 --verbose --json -o a.y4m");
    EXPECT_NE(run.errors.find("console.error: {goals: 2}\n"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find("[object Object]"), std::string::npos) << run.errors;
    EXPECT_NE(run.output.find("\"console_errors\":1"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("\"page_errors\":1"), std::string::npos) << run.output;
}

TEST_F(RenderFixture, AnObjectThatAScriptReturnsOrThrowsIsToldWithWhatItHolds) {
    folder.write("page.html", "");
    folder.write("returns.js", "return {goals: [1, {by: 'Ada'}]}");
    folder.write("throws.js", "throw {code: 7}");
    folder.write("round.js", "const all = {}; return all.all = all");
    const auto run =
        folder.run("pennywort render page.html --script returns.js --verbose -o a.png");
    EXPECT_NE(run.errors.find(R"(script: {"goals":[1,{"by":"Ada"}]})"), std::string::npos)
        << run.errors;
    expect_failure("pennywort render page.html --script throws.js -o a.png",
                   R"(throws.js: {"code":7})");
    const auto round =
        folder.run("pennywort render page.html --script round.js --verbose -o a.png");
    EXPECT_NE(round.errors.find("script: [object Object]"), std::string::npos) << round.errors;
    expect_failure(
        "pennywort render page.html --wait-for '(() => { throw {code: 7} })()' "
        "--timeout 2 -o a.png",
        R"(it throws {"code":7})");
}

}  // namespace
}  // namespace pennywort::host
