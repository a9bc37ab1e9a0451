// page_clock_memory_test.cpp - what a host asks of an exact page, with each allocation failing in
// turn: it is taken and told once, or refused and never told.
#include <cstdint>
#include <functional>

#include "tests/support/failing_memory.h"
#include "tests/webdisplay/page_clock_fixture.h"

namespace {

class PageClockMemory : public PageClockFixture {
protected:
    void start_with_page() {
        script().animate = true;
        start_with_page_clocks();
    }
    // `ask` returns whether it was taken. What was is told once, and then the page goes on.
    void expect_told_or_refused(screen& shown, const std::function<bool()>& ask) {
        int taken = 0;
        bool is_taken = false;
        const int failures = with_each_allocation_failing(
            [&] { is_taken = ask(); },
            [&] {
                taken += is_taken ? 1 : 0;
                ASSERT_TRUE(loop_until([&] { return m_told >= taken; }));
            });
        EXPECT_GT(failures, 2);
        settle();
        EXPECT_EQ(m_told, taken);
        EXPECT_GE(taken, 2) << "the first and the last have all their memory";
        bool is_painted = false;
        ASSERT_TRUE(shown->AdvancePage(
            m_moment += 20'000, [&](cWebDisplayPageFrame how) { is_painted = how == k_painted; }));
        EXPECT_TRUE(loop_until([&] { return is_painted; }));
    }

    int m_told = 0;
    std::int64_t m_moment = 0;
};

TEST_F(PageClockMemory, AFrameIsToldOrRefused) {
    start_with_page();
    screen s(on_page_clock("http://a/"));
    show(s);
    const std::function<void(cWebDisplayPageFrame)> told = [this](cWebDisplayPageFrame) {
        ++m_told;
    };
    expect_told_or_refused(s, [&] { return s->AdvancePage(m_moment += 20'000, told); });
}

TEST_F(PageClockMemory, AQuestionIsToldOrRefused) {
    start_with_page();
    screen s(on_page_clock("http://a/"));
    show(s);
    const zString question("a question that does not fit into a text of its own");
    const std::function<void(const zString&)> told = [this](const zString&) { ++m_told; };
    expect_told_or_refused(s, [&] { return s->AskPage(question, told); });
}

}  // namespace
