// model_receivers_test.cpp - the receivers of a display without an engine: frames, what becomes of
// pages, calls of the page.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "loam/trace.h"
#include "tests/support/eventually.h"
#include "tests/webdisplay/model_display.h"

namespace {

using display = released<model_display>;

// --- frames

struct painter final : cBrowserVideoRendererInterface {
    void GetSize(long& width, long& height) const override { width = height = 1; }
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override {
        last_pixels = pixels;
        last_width = width;
        last_height = height;
        last_popup = isPopup;
        ++frames;
        if (on_frame) on_frame();
    }
    const void* last_pixels = nullptr;
    long last_width = 0, last_height = 0;
    bool last_popup = false;
    int frames = 0;
    std::function<void()> on_frame;
};

TEST(Model, AFrameWithoutARendererIsDropped) {
    display d(new model_display);
    const int pixel = 0;
    d->BrowserPainted(&pixel, 1, 1, false);
    painter p;
    d->SetVideoRenderer(&p);
    d->SetVideoRenderer(nullptr);
    d->BrowserPainted(&pixel, 1, 1, false);
    EXPECT_EQ(p.frames, 0);
}

TEST(Model, AFrameGoesToTheRendererAsItCame) {
    display d(new model_display);
    painter p;
    d->SetVideoRenderer(&p);
    const int pixels[6] = {};
    d->BrowserPainted(pixels, 3, 2, true);
    EXPECT_EQ(p.last_pixels, pixels);
    EXPECT_EQ(p.last_width, 3);
    EXPECT_EQ(p.last_height, 2);
    EXPECT_TRUE(p.last_popup);
    d->BrowserPainted(pixels, 2, 3, false);
    EXPECT_FALSE(p.last_popup);
    EXPECT_EQ(p.frames, 2);
}

TEST(Model, CountsThePagesFramesAndNotThoseOfItsWidgets) {
    display d(new model_display);
    const int pixel = 0;
    cWebDisplayFrameCounts counts;
    d->GetFrameCounts(counts);
    EXPECT_EQ(counts.painted, 0u);
    d->BrowserPainted(&pixel, 1, 1, false);
    d->BrowserPainted(&pixel, 1, 1, true);
    d->BrowserPainted(&pixel, 1, 1, false);
    d->GetFrameCounts(counts);
    EXPECT_EQ(counts.painted, 2u);
    EXPECT_EQ(counts.ticks, 0u);
    EXPECT_EQ(counts.ticks_missed, 0u);
}

TEST(Model, ARendererMayRemoveItselfWhileItIsCalled) {
    display d(new model_display);
    painter p;
    p.on_frame = [&] { d->SetVideoRenderer(nullptr); };
    d->SetVideoRenderer(&p);
    const int pixel = 0;
    d->BrowserPainted(&pixel, 1, 1, false);
    d->BrowserPainted(&pixel, 1, 1, false);
    EXPECT_EQ(p.frames, 1);
}

// A display can stand wherever a renderer is expected.
TEST(Model, ADisplayIsARendererItself) {
    display front(new model_display), back(new model_display);
    painter p;
    front->SetVideoRenderer(back.get());
    back->SetVideoRenderer(&p);
    const int pixel = 0;
    front->BrowserPainted(&pixel, 1, 1, false);
    EXPECT_EQ(p.frames, 1);
    front->SetVideoRenderer(nullptr);
}

// Counts the frames that reach it after it was removed.
struct mortal_painter final : cBrowserVideoRendererInterface {
    explicit mortal_painter(std::atomic<int>& late_frames) : late(late_frames) {}
    void GetSize(long& width, long& height) const override { width = height = 1; }
    void BrowserPainted(const void*, long, long, bool) override {
        if (!installed) ++late;
    }
    std::atomic<bool> installed{true};
    std::atomic<int>& late;
};

TEST(Model, ARemovedRendererIsNotCalledAgainWhileFramesArrive) {
    display d(new model_display);
    std::atomic<int> late{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> engines;
    for (int i = 0; i < 2; ++i) {
        engines.emplace_back([&] {
            const int pixel = 0;
            while (!done) d->BrowserPainted(&pixel, 1, 1, false);
        });
    }
    for (int i = 0; i < 500; ++i) {
        auto renderer = std::make_unique<mortal_painter>(late);
        d->SetVideoRenderer(renderer.get());
        std::this_thread::yield();
        d->SetVideoRenderer(nullptr);
        renderer->installed = false;
    }
    done = true;
    for (auto& engine : engines) engine.join();
    EXPECT_EQ(late, 0);
}

// Has `call` reach a receiver on one thread while `remove` takes the receiver away on another. What
// the receiver does in its call is `in_call()`: it stays long enough for a removal that does not
// wait to come through. Whether the removal came back while the receiver was still in its call.
class removal_during_a_call {
public:
    void in_call() {
        m_entered = true;
        for (int i = 0; i < 50 && !m_removed; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        m_removed_in_call = m_removed.load();
    }
    bool came_back(const std::function<void()>& call, const std::function<void()>& remove) {
        std::thread caller(call);
        std::thread remover([&] {
            EXPECT_TRUE(pennywort::tests::eventually([&] { return m_entered.load(); }));
            remove();
            m_removed = true;
        });
        caller.join();
        remover.join();
        return m_removed_in_call;
    }

private:
    std::atomic<bool> m_entered{false}, m_removed{false}, m_removed_in_call{false};
};

TEST(Model, RemovingARendererWaitsForItsCall) {
    display d(new model_display);
    removal_during_a_call removal;
    painter p;
    p.on_frame = [&] { removal.in_call(); };
    d->SetVideoRenderer(&p);
    const int pixel = 0;
    EXPECT_FALSE(removal.came_back([&] { d->BrowserPainted(&pixel, 1, 1, false); },
                                   [&] { d->SetVideoRenderer(nullptr); }));
}

// --- page events

struct page_receiver final : cBrowserPageCallbackHandler {
    void PageLoadFailed(const zString& url, const zString& error) override {
        events.push_back(std::string("failed ") + url.CString() + " " + error.CString());
        if (on_event) on_event();
    }
    void PageLoaded(const zString& url) override {
        events.push_back(std::string("loaded ") + url.CString());
        if (on_event) on_event();
    }
    bool PageRequest(const zString& url) override {
        events.push_back(std::string("asked ") + url.CString());
        return allow;
    }
    bool allow = true;
    std::vector<std::string> events;
    std::function<void()> on_event;
};

TEST(Model, WithoutAReceiverEveryRequestMayPass) {
    display d(new model_display);
    EXPECT_TRUE(d->handle_page_request("http://a/"));
}

TEST(Model, TheReceiverDecidesAboutARequest) {
    display d(new model_display);
    page_receiver receiver;
    d->SetPageCallbackReceiver(&receiver);
    receiver.allow = false;
    EXPECT_FALSE(d->handle_page_request("http://a/"));
    receiver.allow = true;
    EXPECT_TRUE(d->handle_page_request("http://b/"));
    EXPECT_EQ(receiver.events, (std::vector<std::string>{"asked http://a/", "asked http://b/"}));
}

TEST(Model, AReceiverThatOverridesNothingLetsEverythingPass) {
    display d(new model_display);
    cBrowserPageCallbackHandler pages;
    cBrowserJavascriptCallbackHandler scripts;
    d->SetPageCallbackReceiver(&pages);
    d->SetJavascriptCallbackReceiver(&scripts);
    EXPECT_TRUE(d->handle_page_request("http://a/"));
    d->handle_page_loaded("http://a/");
    d->handle_page_load_failed("http://a/", "error");
    zString result("untouched");
    d->handle_javascript_callback("name", "argument", result);
    EXPECT_STREQ(result.CString(), "untouched");
    d->SetPageCallbackReceiver(nullptr);
    d->SetJavascriptCallbackReceiver(nullptr);
}

TEST(Model, NoPageHasBeenLoadedAtFirst) {
    zRecord settings;
    settings.SetCString("web_url", "http://a/");
    display d(new model_display(settings));
    zString last("something");
    d->GetUrlForLastPageLoaded(last);
    EXPECT_STREQ(last.CString(), "");
}

TEST(Model, ALoadedPageIsTheLastOneBeforeItsReceiverHearsOfIt) {
    display d(new model_display);
    page_receiver receiver;
    zString last_in_callback;
    receiver.on_event = [&] {
        d->GetUrlForLastPageLoaded(last_in_callback);
        EXPECT_EQ(d->next_url_calls, 0) << "the next URL comes after the receiver";
    };
    d->SetPageCallbackReceiver(&receiver);
    d->handle_page_loaded("http://a/");
    EXPECT_STREQ(last_in_callback.CString(), "http://a/");
    EXPECT_EQ(d->next_url_calls, 1);
}

TEST(Model, AFailedPageDoesNotChangeTheLastOne) {
    display d(new model_display);
    page_receiver receiver;
    d->SetPageCallbackReceiver(&receiver);
    d->handle_page_loaded("http://a/");
    d->handle_page_load_failed("http://b/", "ERR_X");
    zString last;
    d->GetUrlForLastPageLoaded(last);
    EXPECT_STREQ(last.CString(), "http://a/");
    EXPECT_EQ(receiver.events,
              (std::vector<std::string>{"loaded http://a/", "failed http://b/ ERR_X"}));
}

TEST(Model, TheQueueGoesOnWithoutAReceiver) {
    display d(new model_display);
    d->handle_page_loaded("http://a/");
    d->handle_page_load_failed("http://b/", "ERR_X");
    EXPECT_EQ(d->next_url_calls, 2);
}

TEST(Model, AFailureIsTraced) {
    std::vector<std::string> traces;
    zTraceManager::Default()->SetSink([&](const char* message) { traces.emplace_back(message); });
    display d(new model_display);
    d->handle_page_load_failed("http://b/%s", "ERR_%d");
    zTraceManager::Default()->SetSink({});
    EXPECT_EQ(traces,
              std::vector<std::string>{
                  "cWebDisplayBrowser: page load failed:\nurl: http://b/%s\nerror: ERR_%d\n"});
}

TEST(Model, AReceiverMayQueueTheNextPageInItsCallback) {
    display d(new model_display);
    page_receiver receiver;
    receiver.on_event = [&] { d->LoadUrl("http://next/"); };
    d->SetPageCallbackReceiver(&receiver);
    d->handle_page_loaded("http://a/");
    EXPECT_EQ(d->next_url_calls, 2);
    EXPECT_EQ(d->PopNextURL(), "http://next/");
}

TEST(Model, AReceiverMayRemoveItselfInItsCallback) {
    display d(new model_display);
    page_receiver receiver;
    receiver.on_event = [&] { d->SetPageCallbackReceiver(nullptr); };
    d->SetPageCallbackReceiver(&receiver);
    d->handle_page_loaded("http://a/");
    d->handle_page_loaded("http://b/");
    EXPECT_EQ(receiver.events, std::vector<std::string>{"loaded http://a/"});
    EXPECT_EQ(d->next_url_calls, 2);
}

TEST(Model, RemovingAPageReceiverWaitsForItsCall) {
    display d(new model_display);
    removal_during_a_call removal;
    page_receiver receiver;
    receiver.on_event = [&] { removal.in_call(); };
    d->SetPageCallbackReceiver(&receiver);
    EXPECT_FALSE(removal.came_back([&] { d->handle_page_loaded("http://a/"); },
                                   [&] { d->SetPageCallbackReceiver(nullptr); }));
}

struct script_receiver final : cBrowserJavascriptCallbackHandler {
    void JavascriptCallback(const zString& name, const zString& argument,
                            zString& result) override {
        result = std::string(name.View()) + "|" + std::string(argument.View());
        if (on_call) on_call();
    }
    std::function<void()> on_call;
};

TEST(Model, RemovingAScriptReceiverWaitsForItsCall) {
    display d(new model_display);
    removal_during_a_call removal;
    script_receiver receiver;
    receiver.on_call = [&] { removal.in_call(); };
    d->SetJavascriptCallbackReceiver(&receiver);
    zString result;
    EXPECT_FALSE(
        removal.came_back([&] { d->handle_javascript_callback("name", "argument", result); },
                          [&] { d->SetJavascriptCallbackReceiver(nullptr); }));
}

TEST(Model, APageCommandIsAnsweredByItsReceiver) {
    display d(new model_display);
    zString result("before");
    d->handle_javascript_callback("name", "argument", result);
    EXPECT_STREQ(result.CString(), "before");
    script_receiver receiver;
    d->SetJavascriptCallbackReceiver(&receiver);
    d->handle_javascript_callback(zString("na\0me", 5), "it's", result);
    EXPECT_EQ(result, zString("na\0me|it's", 10));
    d->SetJavascriptCallbackReceiver(nullptr);
}

}  // namespace
