// tests/host/replacing_writer_test.cpp - what becomes of a file that an output is to replace.
// Links, rights and full disks: output_faults_test_linux.cpp.
#include "host/output/replacing_writer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

// A film of one byte a frame, with an end; the third frame finds no room.
class small_film : public frame_writer {
public:
    explicit small_film(const std::string& path) : m_path(path) {}
    outcome begin() override { return m_sink.open(m_path); }
    outcome show(const picture_ptr&) override {
        if (++m_frames == 3) return outcome::failed("no room in " + m_path);
        return m_sink.write("f", 1);
    }
    outcome finish() override {
        static_cast<void>(m_sink.write("end", 3));
        return m_sink.close();
    }

private:
    const std::string m_path;
    byte_sink m_sink;
    int m_frames = 0;
};

class ReplacedFile : public testing::Test {
protected:
    std::unique_ptr<frame_writer> film(const std::string& name = "a.mov") {
        output_target target;
        target.kind = output_kind::mov;
        target.path = folder.path(name);
        return std::make_unique<replacing_writer>(target, [](const output_target& made) {
            return std::make_unique<small_film>(made.path);
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

TEST_F(ReplacedFile, AMissingFolderIsToldBeforeAnythingBegins) {
    const auto begun = film("no/such/a.mov")->begin();
    EXPECT_NE(begun.text().find("there is no folder"), std::string::npos) << begun.text();
}

}  // namespace
}  // namespace pennywort::host
