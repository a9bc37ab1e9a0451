// tests/host/render_live_sound_test.cpp - the program on the real browser runtime: what pages say
// in films in the day's time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// Black, and white for 200 ms from each 800 ms on, with a tone of 1 kHz begun in the same frame.
constexpr const char* k_sounding_page =
    "<!doctype html><style>body{margin:0;background:#000}</style><script>"
    "const context = new AudioContext(), begun = performance.now(); let beeps = 0;"
    "function beep() { const tone = context.createOscillator(); tone.frequency.value = 1000;"
    "tone.connect(context.destination); tone.start(); tone.stop(context.currentTime + 0.2); }"
    "(function next() { const now = performance.now() - begun, is_white = now % 800 < 200 && now > "
    "700;"
    "if (is_white && beeps < Math.floor(now / 800)) { beeps = Math.floor(now / 800); beep(); }"
    "if (document.body) document.body.style.background = is_white ? '#fff' : '#000';"
    "requestAnimationFrame(next); })()</script>";

class RenderedSound : public RenderFixture {
protected:
    RenderedSound() { folder.write("beeps.html", k_sounding_page); }

    // In seconds.
    std::vector<double> flashes(const std::string& film) const {
        folder.run("ffmpeg -v error -i " + film +
                   " -vf scale=2:2 -f rawvideo -pix_fmt gray frames");
        const std::string frames = folder.read("frames");
        std::vector<double> at;
        for (std::size_t n = 1; n * 4 < frames.size(); ++n) {
            const auto is_white = [&](std::size_t frame) {
                return static_cast<unsigned char>(frames[frame * 4]) > 127;
            };
            if (is_white(n) && !is_white(n - 1)) at.push_back(double(n) / 50);
        }
        return at;
    }
    // Where it begins to be loud after some silence; and `pitch` is how often a second the second
    // one of these swings, which neither end of the film cuts.
    std::vector<double> beeps(const std::string& film, double& pitch) const {
        folder.run("ffmpeg -v error -i " + film + " -f f32le -ar 48000 -ac 1 samples");
        const std::string bytes = folder.read("samples");
        std::vector<float> samples(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
        std::vector<double> at;
        std::size_t last_loud = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (std::abs(samples[i]) < 0.1f) continue;
            if (at.empty() || i - last_loud > 9600) at.push_back(double(i) / 48'000);
            last_loud = i;
        }
        if (at.size() < 2) return at;
        int swings = 0;
        const auto first = static_cast<std::size_t>((at[1] + 0.05) * 48'000);
        for (std::size_t i = first; i < first + 4800 && i + 1 < samples.size(); ++i) {
            if (samples[i] <= 0 && samples[i + 1] > 0) ++swings;
        }
        pitch = swings * 10;
        return at;
    }
};

TEST_F(RenderedSound, OfALiveFilmIsInStepWithItsPicture) {
    for (const char* film : {"a.mkv", "a.mp4"}) {
        const auto run = folder.run(std::string("pennywort render beeps.html --live --size 64x48 "
                                                "--seconds 5 -o ") +
                                    film);
        ASSERT_EQ(run.status, 0) << run.errors;
        double pitch = 0;
        const auto seen = flashes(film);
        const auto heard = beeps(film, pitch);
        EXPECT_NEAR(pitch, 1000, 20);
        ASSERT_GE(seen.size(), 4u) << run.errors;
        // Of the first one, with which a silent page begins to sound, the runtime has lost a piece.
        std::vector<double> apart;
        for (const double beep : heard) {
            double nearest = 1;
            for (std::size_t i = 1; i < seen.size(); ++i) {
                if (std::abs(beep - seen[i]) < std::abs(nearest)) nearest = beep - seen[i];
            }
            if (std::abs(nearest) < 0.3) apart.push_back(nearest);
        }
        ASSERT_GE(apart.size(), 4u) << film;
        std::sort(apart.begin(), apart.end());
        EXPECT_NEAR(apart[apart.size() / 2], 0, 0.020) << film << ": a frame";
        EXPECT_NEAR(apart.front(), 0, 0.030) << film;
        EXPECT_NEAR(apart.back(), 0, 0.030) << film;
    }
}

TEST_F(RenderedSound, IsToldWhereTheFilmHasNone) {
    auto run = folder.run("pennywort render beeps.html --live --size 64x48 --seconds 2 -o a.y4m");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("the page has sound, and a.y4m holds none"), std::string::npos)
        << run.errors;
    run = folder.run("pennywort render beeps.html --live --mute --size 64x48 --seconds 2 -o a.mkv");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors.find("the page has sound"), std::string::npos) << run.errors;
    double pitch = 0;
    EXPECT_TRUE(beeps("a.mkv", pitch).empty());
}

TEST_F(RenderedSound, AloneIsAWavFile) {
    const auto run =
        folder.run("pennywort render beeps.html --live --size 64x48 --seconds 4 -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    double pitch = 0;
    EXPECT_GE(beeps("a.wav", pitch).size(), 3u);
    EXPECT_NEAR(pitch, 1000, 20);
    EXPECT_EQ(folder.read("samples").size(), std::size_t(4 * 48'000) * sizeof(float));
}

}  // namespace
}  // namespace pennywort::host
