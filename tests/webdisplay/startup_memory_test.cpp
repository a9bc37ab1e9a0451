// startup_memory_test.cpp - a start of the browser runtime where memory runs out, at each place of
// its way.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/httpserver/descriptors.h"
#include "tests/support/failing_memory.h"
#include "tests/webdisplay/fake_runtime_test.h"
#include "webdisplay/folder_claim.h"

namespace fs = std::filesystem;
using manager = cWebDisplayCEFBrowserManager;

namespace {

class StartupMemory : public FakeRuntimeTest {
protected:
    // The runtime can be started once in a process, so one that would do well ends the attempts.
    // This one refuses, and each attempt goes all its way up to it.
    void fail_at_each_place() {
        script().init_exit_code = 1;
        bool is_started = false;
        const int failures =
            with_each_allocation_failing([&] { is_started = manager::Startup(""); },
                                         [&] {
                                             EXPECT_FALSE(is_started);
                                             expect_nothing_left();
                                         });
        EXPECT_GT(failures, 60);
    }
    void expect_nothing_left() {
        zString failure;
        manager::GetStartupFailure(failure);
        EXPECT_NE(*failure.CString(), '\0');
        EXPECT_FALSE(manager::IsInitialized());
        EXPECT_EQ(fake().leaks(), "");
        EXPECT_EQ(fake().held(), "");
        EXPECT_EQ(private_folders(), 0);
        // Without a manager this does nothing; with one the next start would be taken for done.
        manager::Shutdown();
        // The first attempt leaves what the system keeps for the library and the thread's loop.
        if (m_descriptors == 0) m_descriptors = open_descriptors();
        EXPECT_LE(open_descriptors(), m_descriptors);
    }
    int private_folders() const {
        int count = 0;
        for (const auto& entry : fs::directory_iterator(m_folder)) {
            if (entry.path().filename().string().starts_with("TarnhelmCache-")) ++count;
        }
        return count;
    }

    std::size_t m_descriptors = 0;
};

TEST_F(StartupMemory, AStartThatFindsNoneLeavesNothingBehind) { fail_at_each_place(); }

// The folder of another host's is in use, so each start makes one of its own.
TEST_F(StartupMemory, OneWithAPrivateFolderLeavesNoneBehind) {
    const fs::path cache = m_folder / "config" / "TarnhelmCache";
    fs::create_directories(cache);
    const auto claim = pennywort::webdisplay::folder_claim::make(cache.string());
    ASSERT_NE(claim, nullptr);
    fail_at_each_place();
}

TEST_F(StartupMemory, AStartThatFoundNoneCanBeTriedAgain) {
    for (int count = 0; count < 5; ++count) {
        fail_memory_after(count);
        const bool is_started = manager::Startup("");
        EXPECT_TRUE(stop_failing_memory());
        EXPECT_FALSE(is_started) << count;
    }
    start();
    screen shown(page("http://a/"));
    show(shown);
    EXPECT_TRUE(shown.seen.heard("loaded http://a/"));
}

}  // namespace
