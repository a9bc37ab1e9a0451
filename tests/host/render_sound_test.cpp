// tests/host/render_sound_test.cpp - the program on the real browser runtime: what pages say in
// exact films, sample by sample.
#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "tests/host/sound_fixture.h"

namespace pennywort::host {
namespace {

TEST_F(ExactFilmSound, ATonesSamplesAreThoseOfItsFrame) {
    expect_fine("pennywort render beep.html --size 16x16 --seconds 3 -o a.wav");
    const auto samples = heard("a.wav");
    EXPECT_EQ(samples.size(), 3u * 48'000);
    const auto found = sounding(samples);
    ASSERT_EQ(found.size(), 1u);
    // Of a sine the first sample is 0, and so is the last.
    EXPECT_EQ(found[0], span(24'001, 120'000));
    EXPECT_LT(furthest(samples, {24'000, 120'000}, 1000, 1, 0), 0.001);
}

TEST_F(ExactFilmSound, TwoRunsAreEqualAndTheFlashIsWhereTheToneIs) {
    for (const char* film : {"a.wav", "b.wav"}) {
        expect_fine(std::string("pennywort render beep.html --date 2026-01-01 --size 16x16 "
                                "--fps 59.94 --seconds 2 -o ") +
                    film);
    }
    EXPECT_TRUE(folder.read("a.wav") == folder.read("b.wav"));
    const auto samples = heard("a.wav");
    // As many as 120 frames last: 120 * 48000 * 1001 / 60000.
    EXPECT_EQ(samples.size(), 96'096u);
    expect_fine("pennywort render beep.html --size 16x16 --fps 50 --seconds 1 -o c.mkv");
    folder.run("ffmpeg -v error -i c.mkv -f rawvideo -pix_fmt gray frames");
    const std::string frames = folder.read("frames");
    ASSERT_EQ(frames.size(), 50u * 16 * 16);
    for (std::size_t n = 0; n < 50; ++n) {
        EXPECT_EQ(static_cast<unsigned char>(frames[n * 256]) > 127, n == 25) << n;
    }
    const auto found = sounding(heard("c.mkv"));
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found[0].first, 24'001u);
}

TEST_F(ExactFilmSound, ASoundFileBeginsWhereItIsPlayed) {
    const std::string said = play("src=tone.wav", "--fps 24 --seconds 3 --verbose");
    EXPECT_NE(said.find("console.log: ended 15"), std::string::npos) << said;
    const auto samples = heard("a.wav");
    EXPECT_EQ(samples.size(), 144'000u);
    ASSERT_EQ(sounding(samples), (spans{{24'000, 72'000}}));
    EXPECT_LT(furthest(samples, {24'000, 72'000}, 500, 0.25, quarter()), 1e-6);
}

TEST_F(ExactFilmSound, ItLoopsWithoutASeam) {
    play("src=tone.wav&loop");
    const auto samples = heard("a.wav");
    ASSERT_EQ(sounding(samples), (spans{{24'000, 144'000}}));
    EXPECT_LT(furthest(samples, {24'000, 144'000}, 500, 0.25, quarter()), 1e-6);
}

TEST_F(ExactFilmSound, AtTwiceItsRateItLastsHalfAsLong) {
    const std::string said = play("src=tone.wav&rate=2");
    EXPECT_NE(said.find("its pitch goes with its rate of 2"), std::string::npos) << said;
    const auto samples = heard("a.wav");
    ASSERT_EQ(sounding(samples), (spans{{24'000, 48'000}}));
    EXPECT_LT(furthest(samples, {24'000, 48'000}, 1000, 0.25, quarter()), 1e-6);
}

TEST_F(ExactFilmSound, APauseIsASilenceAndItGoesOnWhereItStood) {
    play("src=tone.wav&pause");
    const auto samples = heard("a.wav");
    ASSERT_EQ(sounding(samples), (spans{{24'000, 33'840}, {48'000, 86'160}}));
    const double left = 2 * std::acos(-1) * 500 * 9840 / 48'000;
    EXPECT_LT(furthest(samples, {48'000, 86'160}, 500, 0.25, quarter() + left), 1e-6);
}

TEST_F(ExactFilmSound, ACompressedFileIsHeardAsItIsDecoded) {
    play("src=tone.ogg");
    const auto found = sounding(heard("a.wav"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].first, 24'000u);
    EXPECT_NEAR(double(found[0].second), 72'000, 480);
}

TEST_F(ExactFilmSound, PiecesOfAFilmAreItsPieces) {
    play("src=tone.wav", "--fps 29.97 --date 2026-01-01 --seconds 3");
    const auto whole = heard("a.wav");
    std::vector<float> pieces;
    for (const char* piece : {"--from 0 --to 1", "--from 1 --to 3"}) {
        play("src=tone.wav", std::string("--fps 29.97 --date 2026-01-01 ") + piece);
        const auto one = heard("a.wav");
        pieces.insert(pieces.end(), one.begin(), one.end());
    }
    EXPECT_EQ(whole.size(), 144'144u);
    EXPECT_EQ(pieces, whole);
}

// One that is moved goes on, and one that has never been there plays, too.
TEST_F(ExactFilmSound, WhatLeavesTheDocumentFallsSilent) {
    folder.write(
        "leaves.html",
        "<!doctype html><body><div id=a><audio src=tone.wav></audio></div><div id=b></div>"
        "<script>const one = document.querySelector('audio'), none = new Audio('tone.wav');"
        "setTimeout(() => one.play(), 500); setTimeout(() => b.append(one), 600);"
        "setTimeout(() => { b.textContent = ''; }, 700);"
        "setTimeout(() => console.log('paused:', one.paused), 740);"
        "setTimeout(() => none.play(), 1000)</script>");
    const auto run =
        folder.run("pennywort render leaves.html --size 16x16 --seconds 2.5 --verbose -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("paused: true"), std::string::npos) << run.errors;
    EXPECT_EQ(sounding(heard("a.wav")), (spans{{24'000, 33'600}, {48'000, 96'000}}));
}

TEST_F(ExactFilmSound, ARateThatTheBrowserRefusesChangesNothing) {
    folder.write("rate.html",
                 "<!doctype html><body><script>const one = new Audio('tone.wav');"
                 "setTimeout(() => one.play(), 500); setTimeout(() => {"
                 "try { one.playbackRate = 20 } catch (fault) { console.log(fault.name) } }, 700)"
                 "</script>");
    const auto run =
        folder.run("pennywort render rate.html --size 16x16 --seconds 2 --verbose -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("NotSupportedError"), std::string::npos) << run.errors;
    EXPECT_EQ(sounding(heard("a.wav")), (spans{{24'000, 72'000}}));
}

TEST_F(ExactFilmSound, AtNoRateAtAllItIsSilentAndThenGoesOn) {
    folder.write("rate.html",
                 "<!doctype html><body><script>const one = new Audio('tone.wav');"
                 "setTimeout(() => one.play(), 500); setTimeout(() => one.playbackRate = 0, 700);"
                 "setTimeout(() => one.playbackRate = 1, 1000)</script>");
    const auto run = folder.run("pennywort render rate.html --size 16x16 --seconds 2 -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("sound:"), std::string::npos) << run.errors;
    EXPECT_EQ(sounding(heard("a.wav")), (spans{{24'000, 33'600}, {48'000, 86'400}}));
}

// Sounds from 0.5 s on, by a file or by a context.
constexpr const char* k_sounding_frame =
    "<!doctype html><script>const one = new Audio('tone.wav'); one.loop = true;"
    "const context = new AudioContext(), tone = context.createConstantSource();"
    "tone.offset.value = 0.25; tone.connect(context.destination);"
    "setTimeout(() => location.search === '?file' ? one.play() : tone.start(), 500)</script>";

struct frame_case {
    const char* name;
    const char* kind;
    const char* script;  // of its page, 1 s from its beginning
    bool goes_on;
};
void PrintTo(const frame_case& c, std::ostream* out) { *out << c.name; }

class SoundOfAnIframe : public ExactFilmSound, public testing::WithParamInterface<frame_case> {};

TEST_P(SoundOfAnIframe, IsHeardUntilItMovesOn) {
    const frame_case& one = GetParam();
    folder.write("frame.html", k_sounding_frame);
    folder.write("page.html", std::string("<!doctype html><iframe id=f src=frame.html?") +
                                  one.kind + "></iframe><script>setTimeout(() => {" + one.script +
                                  "}, 1000)</script>");
    folder.write("silent.html", "<!doctype html>");
    write_site(R"py(
        name = self.path[1:].split('?')[0]
        kind = 'audio/wav' if name == 'tone.wav' else 'text/html'
        self.reply(200, kind, open(name, 'rb').read())
)py");
    const auto run = served("pennywort render $at/page.html --size 16x16 --seconds 2 -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("sound:"), std::string::npos) << run.errors;
    const auto found = sounding(heard("a.wav"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].first, 24'000u);
    EXPECT_GE(found[0].second, one.goes_on ? 95'800u : 46'800u);
    EXPECT_LE(found[0].second, one.goes_on ? 96'000u : 52'800u);
}

INSTANTIATE_TEST_SUITE_P(
    Of, SoundOfAnIframe,
    testing::Values(frame_case{"AFile", "file", "", true},
                    frame_case{"AContext", "context", "", true},
                    frame_case{"AFileToAnotherPage", "file", "f.src = 'silent.html'", false},
                    frame_case{"AContextToAnotherPage", "context", "f.src = 'silent.html'", false},
                    frame_case{"AFileToAnotherSite", "file", "f.src = 'data:text/html,a'", false},
                    frame_case{"AContextToAnotherSite", "context", "f.src = 'data:text/html,a'",
                               false},
                    frame_case{"AFileOutOfItsPage", "file", "f.remove()", false},
                    frame_case{"AContextOutOfItsPage", "context", "f.remove()", false}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(ExactFilmSound, WhatCannotBeInItIsToldOnceEach) {
    folder.write("streams.html",
                 "<!doctype html><body><script>const context = new AudioContext();"
                 "const one = new Audio('tone.wav'); context.createMediaElementSource(one);"
                 "context.createMediaStreamDestination(); context.createMediaStreamDestination();"
                 "new Audio('http://127.0.0.1:1/a.wav').play();"
                 "new Audio('nosuch.wav').play().catch(() => 0);</script>"
                 "<iframe src=\"data:text/html,<script>new AudioContext()</script>\"></iframe>");
    const auto run = folder.run("pennywort render streams.html --size 16x16 --seconds 1 -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    for (const char* line :
         {"sound: createMediaElementSource: ", "sound: createMediaStreamDestination: ",
          "127.0.0.1:1/a.wav is not in the film: ", "nosuch.wav is not in the film: ",
          "sound: what a frame of another site says is not in the film"}) {
        const auto at = run.errors.find(line);
        EXPECT_NE(at, std::string::npos) << line << "\n" << run.errors;
        EXPECT_EQ(run.errors.find(line, at + 1), std::string::npos) << line;
    }
    EXPECT_TRUE(sounding(heard("a.wav")).empty());
}

TEST_F(ExactFilmSound, IsLeftOutOrToldWhereTheFilmHasNone) {
    auto run = folder.run("pennywort render beep.html --size 16x16 --seconds 1 -o a.y4m");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("the page has sound, and a.y4m holds none"), std::string::npos)
        << run.errors;
    run = folder.run(
        "pennywort render beep.html --mute --size 16x16 --seconds 1 -o a.mkv\n"
        "ffprobe -v error -show_entries stream=codec_type -of csv a.mkv");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("sound"), std::string::npos) << run.errors;
    EXPECT_EQ(run.output.find("audio"), std::string::npos) << run.output;
    run = folder.run("pennywort render beep.html --mute --seconds 1 -o a.wav");
    EXPECT_EQ(run.status, 2) << run.errors;
}

}  // namespace
}  // namespace pennywort::host
