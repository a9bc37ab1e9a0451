// tests/host/film_fixture.h - films that ffmpeg makes of the writers' frames, and a look into them.
// Linux only.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/output/frame_writer.h"
#include "host/output/output_target.h"
#include "host/system/program_search.h"
#include "tests/host/fake_writer.h"
#include "tests/host/output_of.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {

inline constexpr long k_width = 64;
inline constexpr long k_height = 64;

inline frame_format movie_format(bool transparent) {
    frame_format format = format_of(k_width, k_height, "59.94");
    format.transparent = transparent;
    return format;
}

inline constexpr const char* k_bt709 =
    "color_range=tv\ncolor_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709\n";
// Its decoder, where ffmpeg's usual one leaves the alpha out.
inline constexpr const char* k_vpx = "-c:v libvpx-vp9 ";

// Blue, green, red, alpha of a pixel of a film's first frame.
inline std::vector<int> pixel_of(const std::string& file, long width, long height, long x, long y,
                                 const std::string& decoder = {}) {
    const auto pixels = output_of(
        "ffmpeg -v error " + decoder + "-i 'file:" + file +
        "' -frames:v 1 -f rawvideo -pix_fmt bgra -sws_flags accurate_rnd+full_chroma_int -");
    if (pixels.size() != std::size_t(width * height * 4)) {
        ADD_FAILURE() << file << " has " << pixels.size() << " bytes of pixels";
        return {-1, -1, -1, -1};
    }
    std::vector<int> pixel;
    for (int i = 0; i < 4; ++i) {
        pixel.push_back(
            static_cast<unsigned char>(pixels[static_cast<std::size_t>((y * width + x) * 4 + i)]));
    }
    return pixel;
}

inline std::string described(const std::string& file) {
    return output_of("ffprobe -v error -count_frames -show_streams 'file:" + file + "'");
}

inline void expect_part(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
}

inline void expect_near(const std::vector<int>& pixel, const std::vector<int>& want,
                        int tolerance) {
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(pixel[i], want[i], tolerance) << i;
}

// Half of it is half transparent, the other half not there.
inline picture_ptr half_there() {
    auto made = std::make_shared<picture>(k_width, k_height);
    for (std::size_t i = 0; i < made->pixel_count(); ++i) {
        made->pixels[i] = i % k_width < k_width / 2 ? 0x80106420 : 0;
    }
    return made;
}

class NeedsFfmpeg : public testing::Test {
protected:
    void SetUp() override {
        if (find_program("ffmpeg").empty()) GTEST_SKIP() << "needs ffmpeg";
    }
    // A film of one colour, or of several frames.
    outcome make(const output_target& target, const frame_format& format,
                 const std::vector<picture_ptr>& frames) const {
        const auto writer = make_page_writer(target, nullptr, format, nullptr);
        if (auto begun = writer->begin(); !begun.ok()) return begun;
        for (const auto& frame : frames) {
            if (auto shown = writer->show(frame); !shown.ok()) return shown;
        }
        return writer->finish();
    }
    output_target target_of(const std::string& name) const {
        std::string reason;
        const auto target = output_target::parse(folder.path(name), "", reason);
        EXPECT_TRUE(target) << reason;
        return target.value_or(output_target());
    }

    const temporary_folder folder;
};

}  // namespace pennywort::host
