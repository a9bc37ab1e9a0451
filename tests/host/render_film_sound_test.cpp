// tests/host/render_film_sound_test.cpp - the program on the real browser runtime: the sound of a
// <video> in exact films, sample by sample.
#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <string>

#include "tests/host/sound_fixture.h"

namespace pennywort::host {
namespace {

// From 0.5 s on.
constexpr const char* k_film_player = R"html(<!doctype html><body><video src=film.webm></video>
<script>
const asked = new URLSearchParams(location.search), film = document.querySelector('video');
film.loop = asked.has('loop');
film.muted = asked.has('muted');
film.playbackRate = Number(asked.get('rate') || 1);
film.volume = Number(asked.get('volume') || 1);
setTimeout(() => film.play(), 500);
</script>)html";

struct film_case {
    const char* name;
    const char* query;
    spans heard;
    double hertz;
    double level;
};
void PrintTo(const film_case& c, std::ostream* out) { *out << c.name; }

class FilmsSound : public ExactFilmSound, public testing::WithParamInterface<film_case> {
protected:
    FilmsSound() {
        folder.write("film.html", k_film_player);
        folder.run(
            "ffmpeg -v error -f lavfi -i testsrc=s=16x16:r=25:d=1 -i tone.wav -c:v libvpx "
            "-c:a libopus -b:a 192k film.webm");
    }
    std::vector<float> samples_of(const std::string& query) const {
        const auto run = folder.run("pennywort render 'film.html?" + query +
                                    "' --size 16x16 --seconds 3 -o a.wav");
        EXPECT_EQ(run.status, 0) << run.errors;
        const auto samples = heard("a.wav");
        EXPECT_EQ(samples.size(), 144'000u);
        return samples;
    }
};

// Its coder changes the samples a little, and those near the ends of the film more.
constexpr std::size_t k_end = 480;

TEST_P(FilmsSound, IsHeardFromWhereItPlays) {
    const auto samples = samples_of(GetParam().query);
    const auto found = sounding(samples);
    ASSERT_EQ(found, GetParam().heard);
    for (const auto& [from, until] : found) {
        const double gone = 2 * std::acos(-1) * GetParam().hertz * double(k_end) / 48'000;
        EXPECT_LT(furthest(samples, {from + k_end, until - k_end}, GetParam().hertz,
                           GetParam().level, quarter() + gone),
                  0.01);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of, FilmsSound,
    testing::Values(film_case{"AFilm", "", {{24'000, 72'000}}, 500, 0.5},
                    film_case{"OneThatIsTurnedDown", "volume=0.5", {{24'000, 72'000}}, 500, 0.25},
                    film_case{"OneAtTwiceItsRate", "rate=2", {{24'000, 48'000}}, 1000, 0.5},
                    film_case{"OneThatIsMuted", "muted", {}, 500, 0}),
    [](const auto& one) { return std::string(one.param.name); });

// As long as its file says that it is, which is a little longer than its tone.
TEST_F(FilmsSound, ALoopBeginsAgainWithTheFilm) {
    const auto asked =
        folder.run("ffprobe -v error -show_entries format=duration -of csv=p=0 film.webm");
    const auto length = static_cast<std::size_t>(std::lround(std::stod(asked.output) * 48'000));
    const auto samples = samples_of("loop");
    const auto found = sounding(samples);
    ASSERT_EQ(found.size(), 3u);
    for (std::size_t n = 0; n < 3; ++n) EXPECT_EQ(found[n].first, 24'000 + n * length) << n;
    const double gone = 2 * std::acos(-1) * 500 * double(k_end) / 48'000;
    for (const auto& [from, until] : found) {
        EXPECT_LT(furthest(samples, {from + k_end, until - k_end}, 500, 0.5, quarter() + gone),
                  0.01);
    }
}

}  // namespace
}  // namespace pennywort::host
