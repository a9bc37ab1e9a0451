// tests/host/memory_test.cpp - memory that runs out once, at each place of a frame's way.
#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <new>
#include <system_error>
#include <vector>

#include "host/output/key_writer.h"
#include "host/output/matroska_writer.h"
#include "host/output/weaving_writer.h"
#include "host/render/recorder.h"
#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"
#include "tests/support/effort.h"
#include "tests/support/failing_memory.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;
using colours = std::vector<std::uint32_t>;

constexpr std::uint64_t k_recorded = tests::effort(200, 80);

// One run: pictures and ticks on this thread, the writer on its own.
struct recording {
    const std::shared_ptr<writer_log> log = std::make_shared<writer_log>();
    writer_thread writer{std::make_unique<fake_writer>(log)};
    recorder frames{4, 2, *frame_rate::parse("50"), &writer, false, true};
    const std::vector<float> sound = std::vector<float>(960, 1);

    void take_frames() {
        auto now = recorder::time_point() + 1000s;
        frames.begin(k_recorded);
        for (std::uint32_t i = 1; !frames.is_done() && !frames.has_no_memory(); ++i) {
            const std::uint32_t pixels[8] = {i, i, i, i, i, i, i, i};
            frames.tick(now);
            frames.painted(pixels, 4, 2, now + 5ms);
            const float* const both[] = {sound.data(), sound.data()};
            frames.heard(both, 2, 960, now + 40ms);
            now += 20ms;
        }
    }
};

TEST(RecorderMemory, AFrameThatFindsNoneIsToldAndNoneIsLostInSilence) {
    bool is_told = false;
    bool is_whole = false;
    const auto work = [&] {
        is_told = is_whole = false;
        try {
            recording one;
            one.take_frames();
            one.frames.end_sound();
            is_told = one.frames.has_no_memory();
            is_whole = one.writer.finish().ok() && one.writer.written() == k_recorded &&
                       one.log->heard.size() == k_recorded * 960 * 2;
        } catch (const std::bad_alloc&) {
            is_told = true;  // the program ends with its line
        } catch (const std::system_error&) {
            is_told = true;  // so does it where the writer's thread finds none
        }
    };
    const int failures =
        with_each_allocation_failing(work, [&] { EXPECT_TRUE(is_told || is_whole); });
    EXPECT_GT(failures, 20);
}

// Of two frames becomes one, and of that the fill and the key, or there is no memory. A mutex of
// Windows takes its own at its first lock, and says std::system_error where there is none.
TEST(PageWriterMemory, FillAndKeyAreWholeOrItFails) {
    const auto fill = std::make_shared<writer_log>();
    const auto key = std::make_shared<writer_log>();
    const std::vector<picture_ptr> frames{picture_of(1, 4, 2), picture_of(2, 4, 2)};
    bool has_thrown = false;
    const auto work = [&] {
        has_thrown = false;
        fill->shown.clear();
        key->shown.clear();
        try {
            weaving_writer writer(std::make_unique<key_writer>(std::make_unique<fake_writer>(fill),
                                                               std::make_unique<fake_writer>(key)));
            for (const auto& frame : frames) EXPECT_TRUE(writer.show(frame).ok());
            EXPECT_TRUE(writer.finish().ok());
        } catch (const std::exception&) {
            has_thrown = true;
        }
    };
    const int failures = with_each_allocation_failing(work, [&] {
        EXPECT_TRUE(has_thrown || (fill->shown.size() == 1 && key->shown.size() == 1));
    });
    EXPECT_GT(failures, 5);
}

// Fails as a writer does whose conversion finds no room.
class greedy_writer : public frame_writer {
public:
    explicit greedy_writer(bool fails_at_end) : m_fails_at_end(fails_at_end) {}
    outcome begin() override { return outcome::fine(); }
    outcome show(const picture_ptr&) override {
        if (!m_fails_at_end) throw std::bad_alloc();
        return outcome::fine();
    }
    outcome finish() override {
        if (m_fails_at_end) throw std::bad_alloc();
        return outcome::fine();
    }

private:
    const bool m_fails_at_end;
};

TEST(WriterThreadMemory, AWriterThatFindsNoneFails) {
    for (const bool fails_at_end : {false, true}) {
        writer_thread writer(std::make_unique<greedy_writer>(fails_at_end));
        writer.show(picture_of(1));
        EXPECT_EQ(writer.finish().text(), "out of memory");
        EXPECT_TRUE(writer.has_failed());
    }
}

// The stream is whole or the writer has thrown: no frame is left out.
TEST(MatroskaMemory, AStreamIsWholeOrFails) {
    const temporary_folder folder;
    const std::string path = folder.path("stream");
    auto format = format_of(8, 8);
    format.transparent = true;
    const picture_ptr frame = picture_of(0x80402010, 8, 8);
    std::uintmax_t whole = 0;
    bool has_thrown = false;
    const auto work = [&] {
        has_thrown = false;
        try {
            matroska_writer writer(format, into_file(path));
            bool is_fine = writer.begin().ok();
            for (int i = 0; i < 3 && is_fine; ++i) is_fine = writer.show(frame).ok();
            has_thrown = !writer.finish().ok() || !is_fine;
        } catch (const std::bad_alloc&) {
            has_thrown = true;
        }
    };
    const int failures = with_each_allocation_failing(work, [&] {
        const auto size = std::filesystem::file_size(file_path(path));
        if (whole == 0) whole = size;
        EXPECT_TRUE(has_thrown || size == whole);
    });
    EXPECT_GT(failures, 5);
}

}  // namespace
}  // namespace pennywort::host
