// flash_test.cpp - what a process knows of the Flash plug-in, and the two notices that a host gets.
//
// The state belongs to the process and has no way back, so each of these tests needs a process of
// its own; ctest gives it one.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "loam/message_loop.h"
#include "loam/observer.h"
#include "webdisplay.h"

namespace {

constexpr std::uint64_t k_flash = 0x77686174;

class FlashTest : public testing::Test {
protected:
    void SetUp() override {
        static int tests = 0;
        ASSERT_EQ(tests++, 0) << "run one of these tests per process, as ctest does";
    }

    // What the host is told, in short: n for a notification, f for a call of the function.
    std::string told() {
        while (zMessageLoop::RunOnce(0)) {
        }
        return m_told;
    }
    void configure_callback() { cWebDisplayBrowser::Flash_ConfigureMissingCallback(m_code, 77); }
    void configure_function() {
        cWebDisplayBrowser::Flash_ConfigureMissingFunction(
            [this](bool available) { m_told += available ? 'F' : 'f'; });
    }
    void detect(bool available) {
        cWebDisplayBrowser::SetHaveRunFlashDetection(true);
        cWebDisplayBrowser::Flash_SetAvailability(available);
    }
    // Each setter again, which must give nothing further.
    void repeat() {
        configure_callback();
        configure_function();
        detect(false);
        cWebDisplayBrowser::Flash_InformUserIfMissing();
    }
    int m_code = zObserverHandler::NewCode();

private:
    std::string m_told;
    zObserverHandler m_observer{m_code, [this](const zRecord& payload, std::uint64_t) {
                                    m_told += payload.AsInt32(k_flash, 0) == 77 ? 'n' : 'N';
                                }};
};

TEST_F(FlashTest, DetectionHasNotRunAtFirst) {
    EXPECT_FALSE(cWebDisplayBrowser::HaveRunFlashDetection());
    cWebDisplayBrowser::SetHaveRunFlashDetection(true);
    EXPECT_TRUE(cWebDisplayBrowser::HaveRunFlashDetection());
    cWebDisplayBrowser::SetHaveRunFlashDetection(false);
    EXPECT_FALSE(cWebDisplayBrowser::HaveRunFlashDetection());
}

TEST_F(FlashTest, AHostThatDidNotAskIsToldNothing) {
    configure_callback();
    configure_function();
    detect(false);
    EXPECT_EQ(told(), "");
}

TEST_F(FlashTest, NothingIsToldBeforeDetectionHasRun) {
    configure_callback();
    configure_function();
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    cWebDisplayBrowser::Flash_SetAvailability(false);
    EXPECT_EQ(told(), "");
}

TEST_F(FlashTest, NothingIsToldWhileThePlugInIsThere) {
    configure_callback();
    configure_function();
    detect(true);
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    EXPECT_EQ(told(), "");
}

TEST_F(FlashTest, APlugInThatGoesAwayIsTold) {
    configure_function();
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    detect(true);
    ASSERT_EQ(told(), "");
    cWebDisplayBrowser::Flash_SetAvailability(false);
    EXPECT_EQ(told(), "f");
}

TEST_F(FlashTest, SettingTheDetectionFlagAloneTellsNothing) {
    configure_callback();
    configure_function();
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    cWebDisplayBrowser::SetHaveRunFlashDetection(true);
    EXPECT_EQ(told(), "");
    cWebDisplayBrowser::Flash_SetAvailability(false);
    EXPECT_EQ(told(), "fn");
}

TEST_F(FlashTest, ACallbackWithoutACodeOrAnObserverIsNone) {
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    detect(false);
    cWebDisplayBrowser::Flash_ConfigureMissingCallback(m_code, 0);
    EXPECT_EQ(told(), "");
    cWebDisplayBrowser::Flash_ConfigureMissingCallback(0, 77);
    EXPECT_EQ(told(), "");
    configure_callback();
    EXPECT_EQ(told(), "n");
}

TEST_F(FlashTest, AnEmptyFunctionIsNone) {
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    detect(false);
    cWebDisplayBrowser::Flash_ConfigureMissingFunction({});
    configure_function();
    EXPECT_EQ(told(), "f");
}

TEST_F(FlashTest, AFunctionThatReplacesACalledOneIsNotCalled) {
    configure_function();
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    detect(false);
    bool second = false;
    cWebDisplayBrowser::Flash_ConfigureMissingFunction([&](bool) { second = true; });
    EXPECT_EQ(told(), "f");
    EXPECT_FALSE(second);
}

TEST_F(FlashTest, AFunctionMayCallTheSettersAgain) {
    int calls = 0;
    cWebDisplayBrowser::Flash_ConfigureMissingFunction([&](bool) {
        ++calls;
        cWebDisplayBrowser::Flash_SetAvailability(false);
        cWebDisplayBrowser::Flash_ConfigureMissingFunction([](bool) {});
    });
    cWebDisplayBrowser::Flash_InformUserIfMissing();
    detect(false);
    EXPECT_EQ(calls, 1);
}

// Host and detection may come in any order: each notice is given once in all of them.
class FlashOrderTest : public FlashTest, public testing::WithParamInterface<std::string> {};

TEST_P(FlashOrderTest, EachNoticeIsGivenOnce) {
    for (const char step : GetParam()) {
        if (step == 'c') configure_callback();
        if (step == 'f') configure_function();
        if (step == 'd') detect(false);
        if (step == 'i') cWebDisplayBrowser::Flash_InformUserIfMissing();
    }
    std::string notices = told();
    std::sort(notices.begin(), notices.end());
    EXPECT_EQ(notices, "fn");
    repeat();
    repeat();
    EXPECT_EQ(told().size(), 2u);
}

std::vector<std::string> every_order() {
    std::vector<std::string> orders;
    std::string order = "cdfi";
    do orders.push_back(order);
    while (std::next_permutation(order.begin(), order.end()));
    return orders;
}

INSTANTIATE_TEST_SUITE_P(All, FlashOrderTest, testing::ValuesIn(every_order()),
                         [](const auto& test) { return test.param; });

}  // namespace
