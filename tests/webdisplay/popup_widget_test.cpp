// popup_widget_test.cpp - a list or picker laid over the picture of its page, pixel by pixel.
#include "webdisplay/popup_widget.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "tests/support/failing_memory.h"

namespace pennywort::webdisplay {
namespace {

using pixels = std::vector<std::uint32_t>;
constexpr std::uint32_t k_page_pixel = 0xFF102030;
constexpr std::uint32_t k_list = 0xFFFFFFFF;

class PopupWidget : public testing::Test {
protected:
    void open(int left, int top, int width, int height, std::uint32_t colour = k_list) {
        m_widget.show(true);
        m_widget.place(left, top);
        const pixels list(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                          colour);
        m_widget.paint(list.data(), width, height);
    }
    // Of a page of four by three pixels.
    pixels picture() {
        pixels shown(m_page.size());
        std::memcpy(shown.data(), m_widget.laid_over(m_page.data(), 4, 3), shown.size() * 4);
        return shown;
    }
    // The same, where 'x' is the list's pixel.
    std::string seen() {
        std::string text;
        for (const std::uint32_t pixel : picture()) text += pixel == k_list ? 'x' : '.';
        return text;
    }

    popup_widget m_widget;
    const pixels m_page = pixels(12, k_page_pixel);
};

TEST_F(PopupWidget, LiesWhereItStands) {
    open(1, 1, 2, 1);
    EXPECT_EQ(seen(),
              "...."
              ".xx."
              "....");
}

TEST_F(PopupWidget, IsCutOffAtEachEdge) {
    const struct {
        int left, top, width, height;
        const char* seen;
    } cases[] = {
        {-1, -1, 2, 2, "x..........."},
        {3, 2, 5, 5, "...........x"},
        {-9, 1, 20, 1, "....xxxx...."},
        {0, -5, 4, 6, "xxxx........"},
        {4, 0, 2, 2, "............"},
        {0, 3, 4, 1, "............"},
        {-2, 0, 2, 3, "............"},
        {0, -3, 4, 3, "............"},
        {INT_MAX, INT_MAX, 2, 2, "............"},
        {INT_MIN, INT_MIN, 2, 2, "............"},
    };
    for (const auto& one : cases) {
        open(one.left, one.top, one.width, one.height);
        EXPECT_EQ(seen(), one.seen) << one.left << ' ' << one.top;
    }
}

TEST_F(PopupWidget, ThePageIsTheHostsOwnWhereNoneIsToBeSeen) {
    const auto is_page_itself = [&] {
        return m_widget.laid_over(m_page.data(), 4, 3) == m_page.data();
    };
    EXPECT_TRUE(is_page_itself());
    m_widget.show(true);
    EXPECT_TRUE(is_page_itself()) << "it has not painted yet";
    open(0, 0, 1, 1);
    EXPECT_FALSE(is_page_itself());
    m_widget.show(false);
    EXPECT_TRUE(is_page_itself());
    open(0, 0, 1, 1);
    m_widget.show(true);
    EXPECT_TRUE(is_page_itself()) << "the next one has not painted yet";
    m_widget.paint(m_page.data(), 0, 0);
    EXPECT_TRUE(is_page_itself());
}

TEST_F(PopupWidget, WhatIsPaintedWhileClosedIsNotSeen) {
    open(0, 0, 1, 1);
    m_widget.show(false);
    m_widget.paint(m_page.data(), 1, 1);
    EXPECT_EQ(m_widget.laid_over(m_page.data(), 4, 3), m_page.data());
}

// Its shadow.
TEST_F(PopupWidget, IsSeenThroughAsFarAsItsAlphaGoes) {
    const struct {
        std::uint32_t over, under, seen;
    } cases[] = {
        {0x00000000, 0xFF102030, 0xFF102030}, {0x80000000, 0xFFFF8000, 0xFF7F4000},
        {0x80808080, 0xFF000000, 0xFF808080}, {0xFF010203, 0xFFFFFFFF, 0xFF010203},
        {0x80402010, 0x00000000, 0x80402010}, {0x80402010, 0x80402010, 0xC0603018},
        {0x01FFFFFF, 0xFFFFFFFF, 0xFFFFFFFF},
    };
    for (const auto& one : cases) {
        m_widget.show(true);
        m_widget.place(0, 0);
        m_widget.paint(&one.over, 1, 1);
        std::uint32_t seen = 0;
        std::memcpy(&seen, m_widget.laid_over(&one.under, 1, 1), 4);
        EXPECT_EQ(seen, one.seen) << std::hex << one.over << " over " << one.under << ": " << seen;
    }
}

TEST_F(PopupWidget, WithoutMemoryThePageIsShownAlone) {
    const pixels list(4, k_list);
    const void* shown = nullptr;
    int times_alone = 0;
    const int failures = with_each_allocation_failing(
        [&] {
            m_widget.show(true);
            m_widget.paint(list.data(), 2, 2);
            shown = m_widget.laid_over(m_page.data(), 4, 3);
        },
        [&] {
            if (shown == m_page.data()) return void(++times_alone);
            ASSERT_NE(shown, nullptr);
            EXPECT_EQ(std::memcmp(shown, list.data(), 8), 0);
        });
    EXPECT_EQ(failures, 2);
    EXPECT_EQ(times_alone, 2);
    EXPECT_EQ(seen(), "xx..xx......");
}

}  // namespace
}  // namespace pennywort::webdisplay
