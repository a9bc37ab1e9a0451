// sound_fixture.h - films of pages that sound, and a look at their samples. Linux only.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/render_fixture.h"

namespace pennywort::host {

// White in the frame of 0.5 s, with a tone of 1 kHz and 2 s that begins with it.
inline constexpr const char* k_beep =
    "<!doctype html><style>body{margin:0;background:#000}</style><body><script>"
    "const context = new AudioContext(); let from, is_told = false;"
    "requestAnimationFrame(function next(stamp) { if (from === undefined) from = stamp;"
    "const is_white = Math.abs(stamp - from - 500) < 1;"
    "document.body.style.background = is_white ? '#fff' : '#000';"
    "if (is_white && !is_told) { is_told = true; const tone = context.createOscillator();"
    "tone.frequency.value = 1000; tone.connect(context.destination); tone.start();"
    "tone.stop(context.currentTime + 2); } requestAnimationFrame(next); })</script>";

// Plays half a volume of a tone from 0.5 s on, which begins between two frames of 24 a second.
inline constexpr const char* k_player =
    "<!doctype html><body><script>const asked = new URLSearchParams(location.search);"
    "const one = new Audio(asked.get('src')); one.loop = asked.has('loop');"
    "one.playbackRate = Number(asked.get('rate') || 1); one.volume = 0.5;"
    "one.onended = () => console.log('ended', performance.now());"
    "setTimeout(() => one.play(), 500);"
    "if (asked.has('pause')) { setTimeout(() => one.pause(), 705);"
    "setTimeout(() => one.play(), 1000); }</script>";

using span = std::pair<std::size_t, std::size_t>;
using spans = std::vector<span>;

class ExactFilmSound : public RenderFixture {
protected:
    ExactFilmSound() {
        folder.write("beep.html", k_beep);
        folder.write("player.html", k_player);
        // A second of 500 Hz. Its first sample is not 0, so that it is seen where it begins.
        folder.run(
            "ffmpeg -v error -f lavfi -i \"aevalsrc='0.5*cos(2*PI*500*t)':s=48000:d=1\" "
            "-c:a pcm_f32le tone.wav; ffmpeg -v error -i tone.wav -c:a libopus tone.ogg");
    }
    // Its left side; both are alike.
    std::vector<float> heard(const std::string& film) const {
        folder.run("ffmpeg -v error -y -i " + film + " -f f32le -ar 48000 -ac 2 samples");
        const std::string bytes = folder.read("samples");
        std::vector<float> both(bytes.size() / sizeof(float));
        std::memcpy(both.data(), bytes.data(), both.size() * sizeof(float));
        std::vector<float> left;
        for (std::size_t i = 0; i + 1 < both.size(); i += 2) {
            EXPECT_EQ(both[i], both[i + 1]) << i;
            left.push_back(both[i]);
        }
        return left;
    }
    // From the first to behind the last sample of each piece without a millisecond of silence.
    static spans sounding(const std::vector<float>& samples) {
        spans found;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (std::abs(samples[i]) < 1e-4f) continue;
            if (found.empty() || i > found.back().second + 48) found.push_back({i, i});
            found.back().second = i + 1;
        }
        return found;
    }
    std::string play(const std::string& query, const std::string& more = "--seconds 3") {
        const auto run = folder.run("pennywort render 'player.html?" + query +
                                    "' --size 16x16 -o a.wav " + more);
        EXPECT_EQ(run.status, 0) << run.errors;
        return run.errors;
    }
    static double furthest(const std::vector<float>& samples, span piece, double hertz,
                           double level, double phase) {
        double most = 0;
        for (std::size_t i = piece.first; i < piece.second; ++i) {
            const double at = 2 * std::acos(-1) * hertz * double(i - piece.first) / 48'000;
            most = std::max(most, std::abs(samples[i] - level * std::sin(at + phase)));
        }
        return most;
    }
    static double quarter() { return std::acos(-1) / 2; }
};

}  // namespace pennywort::host
