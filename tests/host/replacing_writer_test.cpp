// tests/host/replacing_writer_test.cpp - what becomes of a file that an output is to replace.
// Links, rights and full disks: output_faults_test_linux.cpp.
#include "host/output/replacing_writer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/output/key_writer.h"
#include "host/output/writer_thread.h"
#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

constexpr int k_never = -1;
constexpr int k_at_end = 0;

// A film of one byte a frame, with an end; one of its frames, or the end, finds no room.
class small_film : public frame_writer {
public:
    small_film(const std::string& path, int lost) : m_path(path), m_lost(lost) {}
    outcome begin() override { return m_sink.open(m_path); }
    outcome show(const picture_ptr&) override {
        return ++m_frames == m_lost ? no_room() : m_sink.write("f", 1);
    }
    outcome finish() override {
        static_cast<void>(m_sink.write("end", 3));
        const auto closed = m_sink.close();
        return m_lost == k_at_end ? no_room() : closed;
    }

private:
    outcome no_room() const { return outcome::failed("no room in " + m_path); }

    const std::string m_path;
    const int m_lost;
    byte_sink m_sink;
    int m_frames = 0;
};

// A reader behind a pipe hears at the very end that there is no room.
class full_pipe : public frame_writer {
public:
    outcome begin() override { return outcome::fine(); }
    outcome show(const picture_ptr&) override { return outcome::fine(); }
    outcome finish() override { return outcome::failed("no room behind the pipe"); }
};

class film_that_throws : public small_film {
public:
    explicit film_that_throws(const std::string& path) : small_film(path, k_never) {}
    outcome show(const picture_ptr& frame) override {
        if (std::exchange(m_has_one, true)) throw std::runtime_error("no thread");
        return small_film::show(frame);
    }

private:
    bool m_has_one = false;
};

class ReplacedFile : public testing::Test {
protected:
    std::unique_ptr<frame_writer> film(const std::string& name = "a.mov", int lost = 3) {
        output_target target;
        target.kind = output_kind::mov;
        target.path = folder.path(name);
        return std::make_unique<replacing_writer>(target, [lost](const output_target& made) {
            return std::make_unique<small_film>(made.path, lost);
        });
    }
    static outcome show(frame_writer& to, int frames) {
        outcome result = outcome::fine();
        for (int i = 0; i < frames && result.ok(); ++i) result = to.show(picture_of(1));
        return result;
    }
    std::set<std::string> names() const {
        std::set<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(file_path(folder.path()))) {
            const auto name = entry.path().filename().u8string();
            all.emplace(name.begin(), name.end());
        }
        return all;
    }
    using set = std::set<std::string>;

    const temporary_folder folder;
};

TEST_F(ReplacedFile, IsThereUntilTheNewOneIsWhole) {
    folder.write("a.mov", "good");
    const auto writer = film();
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_TRUE(show(*writer, 2).ok());
    EXPECT_EQ(folder.read("a.mov"), "good");
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(folder.read("a.mov"), "ffend");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, StaysAfterAFailure) {
    folder.write("a.mov", "good");
    const auto writer = film();
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_EQ(show(*writer, 3).text(),
              "no room in " + folder.path("a.mov") + "; the file that was there stays");
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(folder.read("a.mov"), "good");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, StaysWhereThereIsNoFrame) {
    folder.write("a.mov", "good");
    const auto writer = film();
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(folder.read("a.mov"), "good");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, LeavesWhatThereIsOfItWhereNoneWas) {
    const auto writer = film();
    ASSERT_TRUE(writer->begin().ok());
    const auto shown = show(*writer, 3);
    EXPECT_NE(shown.text().find("; what there is of it cannot be played"), std::string::npos)
        << shown.text();
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(folder.read("a.mov"), "ffend");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, WithoutAFrameThereIsNone) {
    const auto writer = film();
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(names(), set{});
}

TEST_F(ReplacedFile, HasAnEndingThatPlayersKnowWhileItIsMade) {
    const auto writer = film("a.b\u00FC.mov");
    ASSERT_TRUE(writer->begin().ok());
    ASSERT_EQ(names().size(), 1u);
    const std::string part = *names().begin();
    EXPECT_TRUE(part.starts_with("a.b\u00FC.part-") && part.ends_with(".mov")) << part;
}

TEST_F(ReplacedFile, MayHaveTheLongestNameThatThereIs) {
    const std::string longest = std::string(251, 'n') + ".mov";
    const auto writer = film(longest);
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_TRUE(show(*writer, 1).ok());
    EXPECT_FALSE(folder.has(longest));
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(names(), set{longest});
}

TEST_F(ReplacedFile, TwoThatAreMadeAtOnceAreEachWhole) {
    const auto one = film(), two = film();
    ASSERT_TRUE(one->begin().ok() && two->begin().ok());
    EXPECT_TRUE(show(*one, 2).ok() && show(*two, 1).ok());
    EXPECT_TRUE(one->finish().ok());
    EXPECT_EQ(folder.read("a.mov"), "ffend");
    EXPECT_TRUE(two->finish().ok());
    EXPECT_EQ(folder.read("a.mov"), "fend");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, StaysAloneWhereTheNewOneIsNotFinished) {
    folder.write("a.mov", "good");
    {
        const auto writer = film();
        ASSERT_TRUE(writer->begin().ok());
        EXPECT_TRUE(show(*writer, 2).ok());
        EXPECT_EQ(names().size(), 2u);
    }
    EXPECT_EQ(folder.read("a.mov"), "good");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, OfFillAndKeyNeitherIsLeftHalfMadeWhereOneCannotBegin) {
    {
        key_writer writer(film("fill.mov"), film("no/such/key.mov"));
        EXPECT_FALSE(writer.begin().ok());
    }
    EXPECT_EQ(names(), set{});
}

TEST_F(ReplacedFile, OfFillAndKeyBothStayAfterAFailureOfOne) {
    const std::pair<int, int> cases[] = {
        {3, k_never}, {k_never, 3}, {k_at_end, k_never}, {k_never, k_at_end}};
    for (const auto& [lost_fill, lost_key] : cases) {
        folder.write("fill.mov", "old fill");
        folder.write("key.mov", "old key");
        key_writer writer(film("fill.mov", lost_fill), film("key.mov", lost_key));
        ASSERT_TRUE(writer.begin().ok());
        const auto shown = show(writer, 3);
        const auto finished = writer.finish();
        EXPECT_NE(shown.ok(), finished.ok());
        const std::string other = folder.path(lost_key == k_never ? "key.mov" : "fill.mov");
        const std::string line = shown.text() + finished.text();
        EXPECT_NE(line.find("; the file that was there stays; " + other + " stays as it was"),
                  std::string::npos)
            << line;
        EXPECT_EQ(folder.read("fill.mov"), "old fill") << lost_fill << lost_key;
        EXPECT_EQ(folder.read("key.mov"), "old key") << lost_fill << lost_key;
        EXPECT_EQ(names(), (set{"fill.mov", "key.mov"}));
    }
}

TEST_F(ReplacedFile, OfAKeyStaysWhereItsFillFailsAtTheVeryEnd) {
    folder.write("key.mov", "old key");
    key_writer writer(std::make_unique<full_pipe>(), film("key.mov", k_never));
    ASSERT_TRUE(writer.begin().ok());
    EXPECT_TRUE(show(writer, 3).ok());
    EXPECT_EQ(writer.finish().text(),
              "no room behind the pipe; " + folder.path("key.mov") + " stays as it was");
    EXPECT_EQ(folder.read("key.mov"), "old key");
    EXPECT_EQ(names(), set{"key.mov"});
}

TEST_F(ReplacedFile, StaysWhereTheWriterOfTheNewOneThrows) {
    folder.write("a.mov", "good");
    output_target target;
    target.kind = output_kind::mov;
    target.path = folder.path("a.mov");
    auto film = std::make_unique<replacing_writer>(target, [](const output_target& made) {
        return std::make_unique<film_that_throws>(made.path);
    });
    ASSERT_TRUE(film->begin().ok());
    writer_thread writer(std::move(film));
    writer.show(picture_of(1));
    writer.show(picture_of(2));
    EXPECT_EQ(writer.finish().text(), "cannot write: no thread");
    EXPECT_EQ(folder.read("a.mov"), "good");
    EXPECT_EQ(names(), set{"a.mov"});
}

TEST_F(ReplacedFile, OfFillAndKeyBothAreReplacedOnceTheyAreWhole) {
    folder.write("fill.mov", "old fill");
    folder.write("key.mov", "old key");
    key_writer writer(film("fill.mov", k_never), film("key.mov", k_never));
    ASSERT_TRUE(writer.begin().ok());
    EXPECT_TRUE(show(writer, 3).ok());
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(folder.read("fill.mov"), "fffend");
    EXPECT_EQ(folder.read("key.mov"), "fffend");
}

TEST_F(ReplacedFile, AMissingFolderIsToldBeforeAnythingBegins) {
    const auto begun = film("no/such/a.mov")->begin();
    EXPECT_NE(begun.text().find("there is no folder"), std::string::npos) << begun.text();
}

}  // namespace
}  // namespace pennywort::host
