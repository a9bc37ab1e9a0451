// page_clock_test.cpp - pages that live by a clock of their own: what they show is read from their
// pictures, since a picture is what a film is made of.
#include <array>
#include <functional>

#include "harness.h"

namespace pennywort::runtime_test {
namespace {

constexpr int k_width = 320;
constexpr int k_height = 240;
constexpr std::int64_t k_frame_us = 20'000;

// Writes each of its clocks as a row of 24 white or black squares, the lowest bit at the left: row
// r from 8 r on, square i from 10 i on. A row has tenths of a millisecond, or a count.
constexpr const char* k_clocks = R"html(<body style="margin:0;background:#000;overflow:hidden">
<canvas id=c width=240 height=160></canvas>
<style>@keyframes run{to{transform:translateX(10000px)}}
#css{position:absolute;top:0;left:0;width:1px;height:1px;animation:run 10s linear both}</style>
<div id=css></div>
<script>
const c = document.getElementById('c').getContext('2d');
const css = document.getElementById('css');
const row = (r, x) => { x = Math.max(0, Math.round(x)) & 0xffffff;
  for (let i = 0; i < 24; i++) { c.fillStyle = x >> i & 1 ? '#fff' : '#000'; c.fillRect(10 * i, 8 * r, 8, 6); } };
let at, now, day, timeline, every = 0, worked = 0;
setInterval(() => ++every, 10);
const worker = new Worker(URL.createObjectURL(new Blob(
  ['let n = 0; setInterval(() => postMessage(++n), 20)'], {type: 'text/javascript'})));
worker.onmessage = e => worked = e.data;
const frame = stamp => {
  if (at === undefined) { at = stamp; now = performance.now(); day = Date.now();
                          timeline = document.timeline.currentTime; }
  row(0, (stamp - at) * 10);
  row(1, (performance.now() - now) * 10);
  row(2, (Date.now() - day) * 10);
  row(3, (document.timeline.currentTime - timeline) * 10);
  row(4, every);
  row(5, new DOMMatrix(getComputedStyle(css).transform).e * 10);
  row(6, worked);
  row(7, Math.floor(day / 1000) & 0xffffff);
  row(8, Math.random() * 0xffffff);
  requestAnimationFrame(frame);
};
requestAnimationFrame(frame);
</script>)html";
enum row {
    k_stamp,
    k_now,
    k_day,
    k_timeline,
    k_timers,
    k_css,
    k_worker,
    k_seconds,
    k_random,
    k_rows
};
using rows = std::array<long, k_rows>;

long read_row(const kept_frames& frames, int row) {
    long value = 0;
    for (int bit = 0; bit < 24; ++bit) {
        if (frames.at(10 * bit + 4, 8 * row + 3).green > 128) value |= 1L << bit;
    }
    return value;
}

rows read_rows(const kept_frames& frames) {
    rows all{};
    for (int row = 0; row < k_rows; ++row) all[row] = read_row(frames, row);
    return all;
}

class PageClock : public RuntimeTest {
protected:
    static page_settings settings(const std::string& url) {
        return {.url = url, .width = k_width, .height = k_height, .page_clock = true};
    }

    void add_switches() override {
        RuntimeTest::add_switches();
        cWebDisplayCEFBrowserManager::EnablePageClock(7);
    }

    // Asks for one frame and the one after it, and tells how the first ended.
    struct film {
        explicit film(shown_page& shown) : page(shown) {}

        void ask(std::int64_t microseconds) {
            ASSERT_TRUE(page->AdvancePage(
                microseconds, [kept = m_kept](cWebDisplayPageFrame how) { kept->push_back(how); }));
        }
        bool wait_for_ends(std::size_t count) {
            return wait_for([&] { return ends.size() >= count; });
        }

        shown_page& page;
        // The page outlives the film, and ends the frames that wait with itself.
        std::shared_ptr<std::vector<cWebDisplayPageFrame>> m_kept =
            std::make_shared<std::vector<cWebDisplayPageFrame>>();
        std::vector<cWebDisplayPageFrame>& ends = *m_kept;
    };

    static std::string fault(shown_page& page) {
        cWebDisplayPageStatus status;
        page->GetPageStatus(status);
        return std::string(status.frameFault.View());
    }

    // A page that is not red at its beginning, and that no frame fails of.
    static void expect_red_within_frames(shown_page& page, int count) {
        ASSERT_TRUE(page.wait_until_loaded()) << fault(page);
        film taken(page);
        for (int n = 0; n <= count; ++n) taken.ask(n * k_frame_us);
        ASSERT_TRUE(taken.wait_for_ends(static_cast<std::size_t>(count)))
            << taken.ends.size() << fault(page);
        for (const auto end : taken.ends)
            EXPECT_NE(end, cWebDisplayPageFrame::Failed) << fault(page);
        EXPECT_EQ(page.frames.centre(), k_red);
    }

    // The rows of so many frames.
    static std::vector<rows> shoot(shown_page& page, int count) {
        std::vector<rows> shot;
        film taken(page);
        for (int n = 0; n < count; ++n) {
            taken.ask(n * k_frame_us);
            if (!taken.wait_for_ends(static_cast<std::size_t>(n) + 1)) break;
            EXPECT_EQ(taken.ends.back(), cWebDisplayPageFrame::Painted) << fault(page);
            shot.push_back(read_rows(page.frames));
        }
        return shot;
    }
};

TEST_F(PageClock, EachFrameShowsItsOwnMoment) {
    constexpr int k_frames = 50;
    shown_page page(settings(page_url(k_clocks)));
    ASSERT_TRUE(page.wait_until_loaded()) << fault(page);
    EXPECT_EQ(page.frames.count(), 0);
    const std::vector<rows> shot = shoot(page, k_frames);
    ASSERT_EQ(shot.size(), static_cast<std::size_t>(k_frames));
    EXPECT_EQ(page.frames.count(), k_frames);
    const rows& first = shot.front();
    for (int n = 0; n < k_frames; ++n) {
        SCOPED_TRACE("frame " + std::to_string(n));
        for (const int clock : {k_stamp, k_now, k_day, k_timeline, k_css}) {
            EXPECT_EQ(shot[n][clock] - first[clock], 200L * n) << "clock " << clock;
        }
        EXPECT_EQ(shot[n][k_timers] - first[k_timers], 2L * n);
        EXPECT_NEAR(static_cast<double>(shot[n][k_worker] - first[k_worker]), n, 2);
    }
}

TEST_F(PageClock, AFrameAtWhichNothingChangesIsToldWithTheNext) {
    shown_page page(
        settings(page_url("<body style='background:#00f'><script>"
                          "setTimeout(() => document.body.style.background = '#f00', 50)"
                          "</script>")));
    ASSERT_TRUE(page.wait_until_loaded()) << fault(page);
    film taken(page);
    for (int n = 0; n < 6; ++n) taken.ask(n * k_frame_us);
    ASSERT_TRUE(taken.wait_for_ends(5)) << taken.ends.size() << fault(page);
    const auto changed = cWebDisplayPageFrame::Painted;
    const auto same = cWebDisplayPageFrame::Unchanged;
    EXPECT_EQ(taken.ends[0], changed);
    EXPECT_EQ(taken.ends[1], same);
    EXPECT_EQ(taken.ends[2], same);
    EXPECT_EQ(taken.ends[3], changed);
    EXPECT_EQ(taken.ends[4], same);
    EXPECT_EQ(page.frames.centre(), k_red);
}

// Throttles and old substitutes go by a timer, which does not come while the page's time stands.
TEST_F(PageClock, APageThatReplacesItsFrameRequestsHasItsTurnsAllTheSame) {
    shown_page page(settings(page_url(
        "<body style='background:#00f'><script>let turns = 0;"
        "window.requestAnimationFrame = turn => setTimeout(() => turn(performance.now()), 16);"
        "requestAnimationFrame(function next() { if (++turns === 3) "
        "document.body.style.background = '#f00'; requestAnimationFrame(next); })</script>")));
    expect_red_within_frames(page, 4);
}

// Of pictures of 20 ms each. The browser draws the next one ahead of the page, whose own change
// comes behind frames in which nothing but the image has moved.
TEST_F(PageClock, AFastAnimatedImageHoldsUpNothingBesideIt) {
    shown_page page(settings(
        page_url("<body style='background:#00f'><script>"
                 "setTimeout(() => document.body.style.background = '#f00', 100)</script>"
                 "<img width=20 height=20 src='data:image/gif;base64,R0lGODlhAQABAIAAAAAAAP///yH/"
                 "C05FVFNDQVBFMi4wAwEAAAAh+QQEAgAAACwAAAAAAQABAAACAkQBACH5BAQCAAAALAAAAAABAAEAAAIC"
                 "TAEAIfkEBAIAAAAsAAAAAAEAAQAAAgJMAQA7'>")));
    expect_red_within_frames(page, 6);
}

TEST_F(PageClock, ADialogIsAnsweredWithYes) {
    shown_page page(settings(
        page_url("<body style='background:#00f'><script>setTimeout(() => { alert('a');"
                 "const is_fine = confirm('b') && prompt('c', 'Oslo') === 'Oslo';"
                 "document.body.style.background = is_fine ? '#f00' : '#0f0'; }, 30)</script>")));
    expect_red_within_frames(page, 4);
}

// Each in its own time: the second one is moved twice as far a frame.
TEST_F(PageClock, TwoAtOnceHaveEachTheirOwnTime) {
    constexpr int k_frames = 25;
    shown_page one(settings(page_url(k_clocks)));
    shown_page other(settings(page_url(k_clocks)));
    ASSERT_TRUE(one.wait_until_loaded()) << fault(one);
    ASSERT_TRUE(other.wait_until_loaded()) << fault(other);
    film first(one);
    film second(other);
    std::vector<rows> of_first;
    std::vector<rows> of_second;
    for (int n = 0; n < k_frames; ++n) {
        first.ask(n * k_frame_us);
        second.ask(2 * n * k_frame_us);
        ASSERT_TRUE(first.wait_for_ends(n + 1)) << n << fault(one);
        ASSERT_TRUE(second.wait_for_ends(n + 1)) << n << fault(other);
        of_first.push_back(read_rows(one.frames));
        of_second.push_back(read_rows(other.frames));
    }
    for (int n = 0; n < k_frames; ++n) {
        SCOPED_TRACE("frame " + std::to_string(n));
        for (const int clock : {k_stamp, k_now, k_day, k_timeline, k_css}) {
            EXPECT_EQ(of_first[n][clock] - of_first[0][clock], 200L * n) << "clock " << clock;
            EXPECT_EQ(of_second[n][clock] - of_second[0][clock], 400L * n) << "clock " << clock;
        }
    }
}

TEST_F(PageClock, APageInTheDaysTimeGoesOnBesideIt) {
    constexpr int k_frames = 25;
    page_settings in_the_days_time = settings(page_url(k_clocks));
    in_the_days_time.page_clock = false;
    shown_page live(in_the_days_time);
    ASSERT_TRUE(live.wait_until_loaded());
    shown_page page(settings(page_url(k_clocks)));
    ASSERT_TRUE(page.wait_until_loaded()) << fault(page);
    const long pictures = live.frames.count();
    ASSERT_TRUE(wait_for([&] { return live.frames.count() > pictures + 2; }));
    const std::vector<rows> shot = shoot(page, k_frames);
    // Where the two shared one time, that would stand by now, since nobody moves it any more.
    const rows live_before = read_rows(live.frames);
    ASSERT_TRUE(wait_for([&] { return read_row(live.frames, k_now) > live_before[k_now] + 2000; }));
    for (const int clock : {k_stamp, k_timeline, k_css, k_timers}) {
        EXPECT_GT(read_row(live.frames, clock), live_before[clock]) << "clock " << clock;
    }
    ASSERT_EQ(shot.size(), static_cast<std::size_t>(k_frames));
    for (int n = 0; n < k_frames; ++n) {
        for (const int clock : {k_stamp, k_now, k_day, k_timeline, k_css}) {
            EXPECT_EQ(shot[n][clock] - shot[0][clock], 200L * n) << "frame " << n << " " << clock;
        }
    }
}

}  // namespace
}  // namespace pennywort::runtime_test
