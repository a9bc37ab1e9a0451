// startup_folders_test.cpp - the folder for data when several hosts run, and after one that
// crashed.
#include <filesystem>
#include <string>

#include "tests/webdisplay/startup_fixture.h"
#include "webdisplay/folder_claim.h"

namespace {

TEST_F(StartupTest, ASecondHostGetsAFolderOfItsOwnThatGoesWithIt) {
    start();
    test_process::set_variable("LOAM_TRACE", "stderr");
    const std::string said = run_probe(original_probe());
    EXPECT_TRUE(has(said, "started 1\n")) << said;
    EXPECT_TRUE(has(said, "cache exists 1\n")) << said;
    const std::string shared = fake().settings().cache_path;
    const std::size_t at = said.find("cache ") + 6;
    const std::string own = said.substr(at, said.find('\n', at) - at);
    EXPECT_NE(own, shared);
    EXPECT_NE(own, "");
    EXPECT_FALSE(fs::exists(own)) << "it is removed at the end";
    EXPECT_TRUE(has(said, shared + " is in use")) << said;
    EXPECT_TRUE(has(said, own)) << said;
    EXPECT_TRUE(fs::is_directory(shared));
}

TEST_F(StartupTest, TheFolderOfAHostThatEndedIsUsedAgain) {
    EXPECT_TRUE(has(run_probe(original_probe()), "TarnhelmCache\n"));
    start();
    EXPECT_EQ(fake().settings().cache_path, (m_folder / "config" / "TarnhelmCache").string());
}

TEST_F(StartupTest, TheFolderOfAHostThatCrashedIsUsedAgain) {
    const std::string said = run_probe(original_probe(), "abandon");
    ASSERT_TRUE(has(said, "started 1\n")) << said;
    start();
    EXPECT_EQ(fake().settings().cache_path, (m_folder / "config" / "TarnhelmCache").string());
}

// Between a host's claim and the runtime's own mark another host may come.
TEST_F(StartupTest, AFolderIsClaimedByOneHostAtATime) {
    using pennywort::webdisplay::folder_claim;
    auto first = folder_claim::make(m_folder.string());
    ASSERT_TRUE(first);
    EXPECT_FALSE(folder_claim::make(m_folder.string()));
    first.reset();
    EXPECT_TRUE(folder_claim::make(m_folder.string()));
    EXPECT_FALSE(folder_claim::make((m_folder / "nowhere").string()));
}

TEST_F(StartupTest, AFolderThatAnotherProgramsRuntimeUsesIsLeftAlone) {
    const fs::path cache = m_folder / "config" / "TarnhelmCache";
    fs::create_directories(cache);
    test_process::mark_as_used(cache.string());
    start();
    EXPECT_NE(fake().settings().cache_path, cache.string());
    EXPECT_TRUE(fs::is_directory(fake().settings().cache_path));
    const std::string own = fake().settings().cache_path;
    shut_down();
    EXPECT_FALSE(fs::exists(own));
    EXPECT_TRUE(test_process::is_marked_as_used(cache.string()));
}

}  // namespace
