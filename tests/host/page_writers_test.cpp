// tests/host/page_writers_test.cpp - frames that are woven of two, and films of a page's colour and
// of its alpha.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/output/key_writer.h"
#include "host/output/still_writer.h"
#include "host/output/weaving_writer.h"
#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

using colours = std::vector<std::uint32_t>;

// Keeps what it is shown.
class keeping_writer : public frame_writer {
public:
    struct kept {
        std::vector<picture_ptr> frames;
        bool has_begun = false;
        int finished = 0;
        bool fails = false;
    };
    explicit keeping_writer(kept& to) : m_kept(to) {}

    outcome begin() override {
        m_kept.has_begun = true;
        return outcome::fine();
    }
    outcome show(const picture_ptr& frame) override {
        if (m_kept.fails) return outcome::failed("the disk is full");
        m_kept.frames.push_back(frame);
        return outcome::fine();
    }
    outcome finish() override {
        ++m_kept.finished;
        return outcome::fine();
    }

private:
    kept& m_kept;
};

colours lines_of(const picture_ptr& frame) {
    colours first;
    for (long line = 0; line < frame->height; ++line) {
        first.push_back(frame->pixels[static_cast<std::size_t>(line * frame->width)]);
    }
    return first;
}

struct weaving : public testing::Test {
    keeping_writer::kept kept;
    weaving_writer writer{std::make_unique<keeping_writer>(kept)};
};
using WeavingWriter = weaving;

TEST_F(WeavingWriter, TakesTheTopFieldFromTheFirstFrame) {
    EXPECT_TRUE(writer.begin().ok());
    EXPECT_TRUE(kept.has_begun);
    EXPECT_TRUE(writer.show(picture_of(1, 3, 4)).ok());
    EXPECT_TRUE(kept.frames.empty());
    EXPECT_TRUE(writer.show(picture_of(2, 3, 4)).ok());
    EXPECT_TRUE(writer.show(picture_of(3, 3, 4)).ok());
    EXPECT_TRUE(writer.show(picture_of(4, 3, 4)).ok());
    EXPECT_TRUE(writer.finish().ok());
    ASSERT_EQ(kept.frames.size(), 2u);
    EXPECT_EQ(lines_of(kept.frames[0]), (colours{1, 2, 1, 2}));
    EXPECT_EQ(lines_of(kept.frames[1]), (colours{3, 4, 3, 4}));
    EXPECT_EQ(kept.frames[0]->pixels[2], 1u);
    EXPECT_EQ(kept.finished, 1);
}

TEST_F(WeavingWriter, AFrameThatIsLeftOverGivesBothFields) {
    EXPECT_TRUE(writer.show(picture_of(1, 1, 2)).ok());
    EXPECT_TRUE(writer.finish().ok());
    ASSERT_EQ(kept.frames.size(), 1u);
    EXPECT_EQ(lines_of(kept.frames[0]), (colours{1, 1}));
}

TEST_F(WeavingWriter, AFrameShownTwiceIsNotCopied) {
    const auto still = picture_of(1, 1, 2);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(writer.show(still).ok());
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(kept.frames, (std::vector<picture_ptr>{still, still}));
}

TEST_F(WeavingWriter, AFailureIsTold) {
    kept.fails = true;
    EXPECT_TRUE(writer.show(picture_of(1, 1, 2)).ok());
    EXPECT_FALSE(writer.show(picture_of(2, 1, 2)).ok());
    EXPECT_TRUE(writer.show(picture_of(1, 1, 2)).ok());
    EXPECT_FALSE(writer.finish().ok());
    EXPECT_EQ(kept.finished, 1);
}

struct fill_and_key : public testing::Test {
    keeping_writer::kept fill, key;
    key_writer writer{std::make_unique<keeping_writer>(fill),
                      std::make_unique<keeping_writer>(key)};
};
using KeyWriter = fill_and_key;

TEST_F(KeyWriter, WritesAlphaAsGreyBesideTheFrame) {
    EXPECT_TRUE(writer.begin().ok());
    EXPECT_TRUE(fill.has_begun && key.has_begun);
    const auto half = picture_of(0x80402010, 2, 2);
    EXPECT_TRUE(writer.show(half).ok());
    EXPECT_TRUE(writer.show(half).ok());
    EXPECT_TRUE(writer.show(picture_of(0, 2, 2)).ok());
    EXPECT_TRUE(writer.finish().ok());
    ASSERT_EQ(key.frames.size(), 3u);
    EXPECT_EQ(fill.frames[0], half);
    EXPECT_EQ(key.frames[0]->pixels[3], 0xFF808080);
    EXPECT_EQ(key.frames[0], key.frames[1]);
    EXPECT_EQ(key.frames[2]->pixels[0], 0xFF000000);
}

TEST_F(KeyWriter, CompletesBothWhereOneFails) {
    key.fails = true;
    const auto shown = writer.show(picture_of(1, 1, 1));
    EXPECT_EQ(shown.text(), "the disk is full");
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(fill.finished, 1);
    EXPECT_EQ(key.finished, 1);
}

TEST(StillWriter, LeavesNoHalfOfAPicture) {
    const temporary_folder folder;
    for (const bool fails : {false, true}) {
        folder.write("a.jpg", "half");
        keeping_writer::kept kept;
        kept.fails = fails;
        still_writer writer(std::make_unique<keeping_writer>(kept), folder.path("a.jpg"));
        EXPECT_TRUE(writer.begin().ok());
        EXPECT_TRUE(writer.show(picture_of(1)).ok());
        EXPECT_TRUE(writer.show(picture_of(2)).ok());
        EXPECT_EQ(writer.finish().ok(), !fails);
        EXPECT_EQ(folder.has("a.jpg"), !fails);
        EXPECT_EQ(kept.finished, 1);
        EXPECT_EQ(kept.frames.size(), fails ? 0u : 1u);
    }
}

}  // namespace
}  // namespace pennywort::host
