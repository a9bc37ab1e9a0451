// model_making_test.cpp - a display is made with each allocation failing, and nothing stays.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "loam/trace.h"
#include "tests/support/failing_memory.h"
#include "webdisplay.h"

namespace {

const std::string k_url = "http://page/" + std::string(40, 'u');

TEST(DisplayMemory, ADisplayIsMadeWholeOrNotAtAll) {
    zTraceManager::Default();  // stays, once it is made
    zRecord settings;
    settings.SetString("web_url", k_url);
    settings.SetString("web_override_css", std::string(40, 'c'));
    cWebDisplayBrowser* made = nullptr;
    const auto each_fails = [&] {
        return with_each_allocation_failing(
            [&] { made = cWebDisplayCEFBrowserManager::CreateBrowser(settings, 25); },
            [&] {
                if (made == nullptr) return;
                cWebDisplayPageStatus status;
                made->GetPageStatus(status);
                made->Release();
                EXPECT_EQ(status.waiting, 1u);
            });
    };
    // A thread that throws for the first time keeps some memory for all the times to come.
    each_fails();
    const std::size_t left = memory_in_use();
    EXPECT_GT(each_fails(), 10);
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(memory_in_use(), left);
}

}  // namespace
