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
    // Starts until it does well, with one allocation more before the failure each time. Returns how
    // many starts failed.
    int start_at_last() {
        constexpr int k_most_starts = 100'000;
        for (int count = 0; count < k_most_starts; ++count) {
            fail_memory_after(count);
            const bool is_started = manager::Startup("");
            stop_failing_memory();
            EXPECT_EQ(manager::IsInitialized(), is_started) << count;
            if (is_started) return count;
            expect_nothing_left(count);
            if (HasFailure()) return 0;
        }
        return 0;
    }
    void expect_nothing_left(int count) {
        zString failure;
        manager::GetStartupFailure(failure);
        EXPECT_NE(*failure.CString(), '\0') << count;
        EXPECT_EQ(fake().initialisations(), 0) << count;
        EXPECT_EQ(fake().leaks(), "") << count;
        EXPECT_EQ(fake().held(), "") << count;
        EXPECT_EQ(private_folders(), 0) << count;
        // The system keeps a few of its own for the library and for the thread's loop.
        EXPECT_LE(open_descriptors(), m_descriptors + 6) << count;
        // Without a manager this does nothing; with one the next start would be taken for done.
        manager::Shutdown();
    }
    int private_folders() const {
        int count = 0;
        for (const auto& entry : fs::directory_iterator(m_folder)) {
            if (entry.path().filename().string().starts_with("TarnhelmCache-")) ++count;
        }
        return count;
    }
    void expect_a_page_loads() {
        screen shown(page("http://a/"));
        show(shown);
        EXPECT_TRUE(shown.seen.heard("loaded http://a/"));
    }

    const std::size_t m_descriptors = open_descriptors();
};

TEST_F(StartupMemory, AStartThatFindsNoneCanBeTriedAgain) {
    EXPECT_GT(start_at_last(), 20);
    expect_a_page_loads();
}

// The folder of another host's is in use, so each start makes one of its own.
TEST_F(StartupMemory, OneWithAPrivateFolderLeavesNoneBehind) {
    const fs::path cache = m_folder / "config" / "TarnhelmCache";
    fs::create_directories(cache);
    const auto claim = pennywort::webdisplay::folder_claim::make(cache.string());
    ASSERT_NE(claim, nullptr);
    EXPECT_GT(start_at_last(), 20);
    EXPECT_EQ(private_folders(), 1);
    expect_a_page_loads();
    shut_down();
    EXPECT_EQ(private_folders(), 0);
}

}  // namespace
