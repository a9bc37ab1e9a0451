// model_memory_test.cpp - displays whose memory runs out at any moment.
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "loam/trace.h"
#include "tests/support/failing_memory.h"
#include "tests/webdisplay/model_display.h"

namespace {

// Texts that do not fit into a string itself.
const std::string k_host_url = "http://host.example/" + std::string(40, 'p');
const std::string k_key(40, 'k');
const std::string k_result(40, 'r');

TEST(DisplayMemory, AUrlIsQueuedOrNot) {
    const released<model_display> display(new model_display);
    int queued = 0;
    const int failures = with_each_allocation_failing([&] { display->LoadUrl(k_host_url.c_str()); },
                                                      [&] {
                                                          const std::string url =
                                                              display->PopNextURL();
                                                          if (url.empty()) return;
                                                          ++queued;
                                                          EXPECT_EQ(url, k_host_url);
                                                          EXPECT_EQ(display->PeekNextURL(), "");
                                                      });
    EXPECT_GT(failures, 0);
    EXPECT_GE(queued, 2) << "the first and the last have all their memory";
}

// A result that could not be handed over is still awaited: its observer is not lost unheard.
TEST(DisplayMemory, AResultArrivesOrIsStillAwaited) {
    const released<model_display> display(new model_display);
    const zString key(k_key.c_str());
    const zString result(k_result.c_str());
    int arrived = 0;
    bool has_thrown = false;
    const auto await = [&] {
        arrived = 0;
        has_thrown = false;
        display->add_observer(
            k_key.c_str(), [&](const std::string&) { ++arrived; }, 0);
    };
    await();
    const int failures = with_each_allocation_failing(
        [&] {
            try {
                display->received_javascript_exec_result(key, result);
            } catch (const std::bad_alloc&) {
                has_thrown = true;
            }
        },
        [&] {
            EXPECT_EQ(arrived, has_thrown ? 0 : 1);
            EXPECT_EQ(display->m_observers.contains(k_key), has_thrown);
            await();
        });
    EXPECT_GE(failures, 2);
}

}  // namespace
