// tests/host/page_run_frames_test.cpp - what becomes of a page while its frames count, and at its
// end.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>

#include "host/render/page_run.h"
#include "tests/host/page_run_fixture.h"

namespace pennywort::host {
namespace {

TEST_F(PageRun, ALivePageIsAskedAboutOnceASecond) {
    make_ready();
    const auto before = port.scripts.size();
    for (int i = 0; i < 1000; ++i) {
        pass(10ms);
        if (!port.open.empty()) port.answer("1");
    }
    EXPECT_GE(port.scripts.size() - before, 9u);
    EXPECT_LE(port.scripts.size() - before, 11u);
    EXPECT_TRUE(run->is_ready());
}

TEST_F(PageRun, APageThatDiesWhileItsFramesCountFails) {
    make_ready();
    pass_slowly(9s);
    EXPECT_TRUE(run->is_ready());
    pass_slowly(2s);
    EXPECT_TRUE(failure_has("stopped answering")) << run->failure();
}

TEST_F(PageRun, APageThatDiedBeforeItsLastFrameFails) {
    make_ready();
    pass(10ms);
    port.answer("1");
    run->end(now);
    EXPECT_FALSE(run->has_ended());
    pass_slowly(10s);
    EXPECT_TRUE(failure_has("stopped answering")) << run->failure();
}

TEST_F(PageRun, APageThatAnswersAtTheEndHasEnded) {
    make_ready();
    run->end(now);
    port.answer("1");
    pass(10ms);
    EXPECT_TRUE(run->has_ended());
    EXPECT_FALSE(run->has_failed());
}

TEST_F(PageRun, AnswerFromBeforeTheEndProvesNothing) {
    make_ready();
    pass(10ms);
    ASSERT_EQ(port.open.size(), 1u);
    auto before_the_end = std::move(port.open.back());
    port.open.pop_back();
    run->end(now);
    before_the_end("1");
    pass(10ms);
    EXPECT_FALSE(run->has_ended());
}

TEST_F(PageRun, APageMayLoadOthersWhileItsFramesCount) {
    make_ready();
    run->load_failed("https://example.com/frame", "ERR_FAILED");
    run->page_loaded();
    EXPECT_TRUE(run->is_ready());
}

TEST_F(PageRun, APageThatLoadsOneThatFailsWhileItsFramesCountFails) {
    make_ready();
    run->page_failed("https://example.com/next", "ERR_FAILED");
    EXPECT_TRUE(failure_has("https://example.com/next: ERR_FAILED")) << run->failure();
}

TEST_F(PageRun, APageWhoseProcessEndsWhileItsFramesCountFailsAtOnce) {
    make_ready();
    run->page_lost();
    EXPECT_TRUE(failure_has("the page's process has ended")) << run->failure();
}

// How a page may come to its end, and how far it has come by then.
struct gone_case {
    const char* name;
    void (*goes)(page_run&);
    const char* part;
    int last_stage = 5;
};
void PrintTo(const gone_case& c, std::ostream* out) { *out << c.name; }

constexpr gone_case k_gone[] = {
    {"Closed", [](page_run& run) { run.page_closed(); }, "the page has closed itself"},
    {"ProcessEnded", [](page_run& run) { run.page_lost(); }, "the page's process has ended"},
    {"Failed", [](page_run& run) { run.page_failed(k_url, "ERR_FAILED"); }, "ERR_FAILED"},
    {"Download", [](page_run& run) { run.load_failed(k_url, "it is a download"); },
     "it is a download", 0},
    {"NoPage", [](page_run& run) { run.load_failed(k_url, "status 204"); }, "status 204", 0},
};

class PageRunGone : public PageRun, public testing::WithParamInterface<gone_case> {
protected:
    // On its way, settling, drawing twice, ready, at its end.
    void come_to(int stage) {
        port = {};
        begin();
        if (stage > 0) load();
        for (int i = 1; i < std::min(stage, 4); ++i) answer("ready");
        if (stage < 4) return;
        paint();
        paint();
        ASSERT_TRUE(run->is_ready());
        if (stage > 4) run->end(now);
    }
};

// Neither a step nor an answer comes after it, and no time passes.
TEST_P(PageRunGone, FailsAtOnceHoweverFarItHasCome) {
    for (int stage = 0; stage <= GetParam().last_stage; ++stage) {
        come_to(stage);
        EXPECT_FALSE(run->has_failed()) << stage;
        GetParam().goes(*run);
        EXPECT_TRUE(failure_has(GetParam().part)) << stage << run->failure();
    }
}
INSTANTIATE_TEST_SUITE_P(By, PageRunGone, testing::ValuesIn(k_gone),
                         [](const auto& one) { return std::string(one.param.name); });

// Its frames are all taken: what becomes of it afterwards is no fault of the film.
TEST_F(PageRun, APageThatHasEndedMayFail) {
    make_ready();
    run->end(now);
    pass(10ms);
    port.answer("1");
    pass(10ms);
    ASSERT_TRUE(run->has_ended());
    run->page_lost();
    run->page_failed(k_url, "ERR_FAILED");
    EXPECT_TRUE(run->has_ended());
}

}  // namespace
}  // namespace pennywort::host
