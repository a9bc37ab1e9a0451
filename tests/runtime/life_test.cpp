// life_test.cpp - displays and the runtime closed, released and shut down in every state and from
// every callback; what a host keeps afterwards.
#include <ostream>

#include "harness.h"
#include "loam/thread.h"
#include "peer.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;
using manager = cWebDisplayCEFBrowserManager;

// They end by themselves when the runtime hangs up, a moment after it.
bool no_renderer_is_left() {
    return wait_for([] { return processes_below("renderer").empty(); });
}

// Nothing was waited for in vain, and the runtime is as good as new.
class Life : public RuntimeTest {
protected:
    void TearDown() override {
        EXPECT_EQ(traces().find("in time"), std::string::npos) << traces();
        if (manager::IsInitialized()) expect_another_page_shows();
        RuntimeTest::TearDown();
        EXPECT_TRUE(no_renderer_is_left()) << PrintToString(processes_below("renderer"));
    }

    static void expect_another_page_shows() {
        shown_page next({.url = colour_url("#0f0")});
        EXPECT_TRUE(next.wait_for_colour(k_green));
    }
};

// --- closing

TEST_F(Life, ADisplayThatWasNeverOpenedCloses) {
    cWebDisplayCEFBrowser* display = make_display({.url = animated_url()});
    display->Close();
    display->Close();
    EXPECT_EQ(display->Release(), 0);
}

TEST_F(Life, ADisplayClosesRightAfterItWasOpened) {
    for (int i = 0; i < 10; ++i) {
        shown_page page({.url = animated_url()});
        page.close();
        EXPECT_EQ(page.frames.count(), 0);
    }
}

TEST_F(Life, ADisplayIsReleasedRightAfterItWasOpened) {
    for (int i = 0; i < 10; ++i) {
        cWebDisplayCEFBrowser* display = make_display({.url = animated_url()});
        EXPECT_TRUE(display->Open());
        EXPECT_EQ(display->Release(), 0);
    }
}

TEST_F(Life, ADisplayClosesAtEveryStepOfItsOpening) {
    for (int milliseconds = 0; milliseconds < 100; milliseconds += 7) {
        shown_page page({.url = animated_url()});
        run_loop_for(milliseconds);
        page.close();
    }
}

TEST_F(Life, AHiddenDisplayCloses) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 2; }));
    page->SetVisibility(false);
    page.close();
}

TEST_F(Life, AfterCloseEveryOperationIsHarmless) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 2; }));
    page->Close();
    const long frames = page.frames.count();
    page->Close();
    page->SetSize(100, 50);
    page->SetVisibility(false);
    page->SetVisibility(true);
    page->Repaint();
    page->DeleteCookies("http://host.example/");
    page->LoadUrl(colour_url("#f00").c_str());
    page->LoadNextUrl();
    EXPECT_FALSE(page->IsLoading());
    EXPECT_FALSE(page->NextFrame());
    EXPECT_EQ(page->ExecuteJavascript(zString("1"), 0, std::function<void(std::string)>()), -1);
    run_loop_for(300);
    EXPECT_EQ(page.frames.count(), frames);
}

TEST_F(Life, AClosedDisplayOpensAgain) {
    shown_page page({.url = colour_url("#f00")});
    EXPECT_TRUE(page.wait_for_colour(k_red));
    page->Close();
    page->LoadUrl(colour_url("#00f").c_str());
    EXPECT_TRUE(page->Open());
    EXPECT_TRUE(page.wait_for_colour(k_blue));
}

TEST_F(Life, OpenTwiceIsOneDisplay) {
    shown_page page({.url = colour_url("#f00")});
    EXPECT_TRUE(page->Open());
    EXPECT_TRUE(page.wait_for_colour(k_red));
    EXPECT_TRUE(page->Open());
    run_loop_for(300);
    EXPECT_EQ(page.events.loaded.size(), 1u) << PrintToString(page.events.loaded);
}

// --- from callbacks and other threads

enum class ending { close, release };
struct callback_case {
    const char* name;
    const char* callback;
    ending how;
};
void PrintTo(const callback_case& c, std::ostream* out) { *out << c.name; }

class EndInCallback : public Life, public testing::WithParamInterface<callback_case> {
protected:
    // What the callbacks do, once; Release goes with the last reference.
    void end() {
        if (m_ended++ > 0) return;
        if (GetParam().how == ending::close) return m_page->get()->Close();
        cWebDisplayCEFBrowser* display = m_page->get();
        m_page->forget();
        display->Release();
    }

    bool is(const char* callback) const { return std::string(GetParam().callback) == callback; }

    int m_ended = 0;
    std::unique_ptr<shown_page> m_page;
    peer m_peer;
};

TEST_P(EndInCallback, IsSafe) {
    const std::string url = is("failed") ? m_peer.url("/reset")
                                         : m_peer.html(
                                               "<script>setInterval(() => {"
                                               "document.body.style.background = "
                                               "'rgb(' + Date.now() % 256 + ',0,0)';"
                                               "window.hostApp.execute('tick', 1) }, 5)"
                                               "</script><body>");
    m_page = std::make_unique<shown_page>(page_settings{});
    kept_page_events& events = m_page->events;
    if (is("paint")) m_page->frames.on_frame = [&] { end(); };
    if (is("request")) events.allow = [&](const std::string&) { return end(), true; };
    if (is("loaded")) events.on_loaded = [&] { end(); };
    if (is("failed")) events.on_failed = [&] { end(); };
    if (is("bridge"))
        m_page->calls.answer = [&](const std::string&, const std::string&) { return end(), "x"; };
    (*m_page)->LoadUrl(url.c_str());
    if (is("result")) {
        ASSERT_TRUE(m_page->wait_until_loaded());
        (*m_page)->ExecuteJavascript(zString("return 1"), 0, [this](const std::string&) { end(); });
    }
    EXPECT_TRUE(wait_for([&] { return m_ended > 0; }));
    run_loop_for(300);
}

const callback_case k_callbacks[] = {
    {"CloseInPaint", "paint", ending::close},     {"ReleaseInPaint", "paint", ending::release},
    {"CloseInRequest", "request", ending::close}, {"ReleaseInRequest", "request", ending::release},
    {"CloseInLoaded", "loaded", ending::close},   {"ReleaseInLoaded", "loaded", ending::release},
    {"CloseInFailed", "failed", ending::close},   {"ReleaseInFailed", "failed", ending::release},
    {"CloseInBridge", "bridge", ending::close},   {"ReleaseInBridge", "bridge", ending::release},
    {"CloseInResult", "result", ending::close},   {"ReleaseInResult", "result", ending::release},
};
INSTANTIATE_TEST_SUITE_P(All, EndInCallback, testing::ValuesIn(k_callbacks),
                         case_name<callback_case>);

TEST_F(Life, AFrameThatARepaintBringsMayCloseTheDisplay) {
    shown_page page({.url = colour_url("#f00")});
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(page.wait_for_colour(k_red));
    bool closed = false;
    page.frames.on_frame = [&] {
        page->Close();
        closed = true;
    };
    page->Repaint();
    EXPECT_TRUE(wait_for([&] { return closed; }));
    run_loop_for(300);
}

TEST_F(Life, AFrameMayResizeRepaintAndHideTheDisplay) {
    shown_page page({.url = animated_url()});
    page.frames.on_frame = [&] {
        page->SetSize(50 + page.frames.count() % 40, 50);
        page->Repaint();
        if (page.frames.count() % 10 == 5) page->SetVisibility(false);
        page->SetVisibility(true);
    };
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > 100; })) << page.frames.count();
}

TEST_F(Life, ADisplayClosesFromAnotherThread) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 2; }));
    std::atomic<bool> closed{false};
    std::thread other([&] {
        page->Close();
        closed = true;
    });
    EXPECT_TRUE(wait_for([&] { return closed.load(); }));
    other.join();
}

TEST_F(Life, DisplaysOpenAndCloseOnSeveralThreadsAtOnce) {
    std::atomic<int> done{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) {
                cWebDisplayCEFBrowser* display = make_display({.url = animated_url()});
                display->Open();
                zThread::MicroSleep(20'000);
                display->SetSize(30, 30);
                display->Close();
                display->Release();
            }
            ++done;
        });
    }
    EXPECT_TRUE(wait_for([&] { return done == 4; })) << done;
    for (std::thread& one : threads) one.join();
}

// --- the end of the runtime

TEST_F(Life, ShutdownClosesWhatIsOpen) {
    shown_page open({.url = animated_url()});
    shown_page loading({.url = colour_url("#f00")});
    ASSERT_TRUE(wait_for([&] { return open.frames.count() > 2; }));
    manager::Shutdown();
    EXPECT_FALSE(manager::IsInitialized());
    EXPECT_TRUE(no_renderer_is_left()) << PrintToString(processes_below("renderer"));
    open->SetSize(10, 10);
    open->Repaint();
    open.run("1");
    EXPECT_FALSE(open->IsLoading());
}

TEST_F(Life, ShutdownEndsAPageThatIsStillLoading) {
    peer server;
    shown_page never({.url = server.url("/never")});
    shown_page half({.url = server.url("/half")});
    ASSERT_TRUE(wait_for([&] { return never->IsLoading() && half.frames.count() > 0; }));
    manager::Shutdown();
    EXPECT_TRUE(no_renderer_is_left()) << PrintToString(processes_below("renderer"));
}

TEST_F(Life, ShutdownEndsAPageThatHangs) {
    peer server;
    shown_page page({.url = server.html("<script>while (true) {}</script>")});
    ASSERT_TRUE(wait_for([&] { return page->IsLoading(); }));
    run_loop_for(300);
    manager::Shutdown();
    EXPECT_TRUE(no_renderer_is_left()) << PrintToString(processes_below("renderer"));
}

TEST_F(Life, ShutdownRightAfterOpenIsClean) {
    shown_page page({.url = animated_url()});
    manager::Shutdown();
    EXPECT_EQ(page.frames.count(), 0);
}

TEST_F(Life, ShutdownInACallbackIsRefusedAndTraced) {
    shown_page page({.url = animated_url()});
    bool asked = false;
    page.frames.on_frame = [&] {
        if (!std::exchange(asked, true)) manager::Shutdown();
    };
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    EXPECT_TRUE(manager::IsInitialized());
    EXPECT_NE(traces().find("called from a callback"), std::string::npos) << traces();
}

TEST_F(Life, ShutdownTwiceIsHarmless) {
    manager::Shutdown();
    manager::Shutdown();
    EXPECT_FALSE(manager::IsInitialized());
}

TEST_F(Life, ASecondStartupIsTrueAndChangesNothing) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 2; }));
    EXPECT_TRUE(manager::Startup(""));
    EXPECT_TRUE(manager::Startup("anything"));
    const long frames = page.frames.count();
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > frames + 2; }));
}

TEST_F(Life, AStartupAfterShutdownIsFalseAndHarmless) {
    manager::Shutdown();
    EXPECT_FALSE(manager::Startup(""));
    EXPECT_FALSE(manager::IsInitialized());
    zString failure;
    manager::GetStartupFailure(failure);
    EXPECT_NE(std::string(failure.View()).find("restart the program"), std::string::npos)
        << failure.CString();
    cWebDisplayCEFBrowser* display = make_display({.url = animated_url()});
    EXPECT_FALSE(display->Open());
    display->LoadUrl("http://host.example/");
    display->SetSize(5, 5);
    display->Close();
    display->Release();
    run_loop_for(100);
}

TEST_F(Life, ADisplayMayOutliveTheRuntime) {
    cWebDisplayCEFBrowser* display = make_display({.url = animated_url()});
    EXPECT_TRUE(display->Open());
    run_loop_for(200);
    manager::Shutdown();
    display->Close();
    EXPECT_FALSE(display->Open());
    EXPECT_EQ(display->Release(), 0);
}

// --- what is left

class Leak : public RuntimeTest {
protected:
    static void open_and_close(int displays) {
        for (int i = 0; i < displays; ++i) {
            shown_page page({.url = animated_url()});
            ASSERT_TRUE(wait_for([&] { return page.frames.count() > 0; })) << "display " << i;
            page.close();
        }
    }

    // Once the runtime has ended the helpers of the last pages.
    static holdings settled() {
        run_loop_for(2000);
        return current_holdings();
    }
    // The runtime's own threads and descriptors come and go by some; one left by each of 180
    // displays, or by every fourth, would be far more. Its caches are memory of its own and only
    // printed; what the library allocates is malloc's.
    static bool is_no_more_than(const holdings& after, const holdings& warm) {
        return after.threads <= warm.threads + 10 && after.descriptors <= warm.descriptors + 45 &&
               after.processes <= warm.processes + 2 &&
               after.heap_bytes <= warm.heap_bytes + 180u * 32u * 1024u;
    }
};

// Against a warm runtime: its own threads, descriptors and caches grow with its first pages.
TEST_F(Leak, TwoHundredDisplaysLeaveNothing) {
    open_and_close(20);
    const holdings warm = settled();
    open_and_close(180);
    holdings after;
    EXPECT_TRUE(wait_for([&] { return is_no_more_than(after = settled(), warm); }));
    std::printf("after 20: %s\nafter 200: %s\n", PrintToString(warm).c_str(),
                PrintToString(after).c_str());
}

TEST_F(Leak, ReceiversAndScriptsOfClosedDisplaysAreLetGo) {
    const auto watched = std::make_shared<int>(0);
    for (int i = 0; i < 20; ++i) {
        shown_page page({.url = animated_url()});
        ASSERT_TRUE(page.wait_until_loaded());
        page->ExecuteJavascript(zString("throw 'never answered'"), 0,
                                [watched](const std::string&) { ++*watched; });
        page.close();
    }
    EXPECT_EQ(watched.use_count(), 1);
    EXPECT_EQ(*watched, 0);
}

}  // namespace
}  // namespace pennywort::runtime_test
