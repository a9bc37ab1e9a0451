// model_test.cpp - the part of a display that needs no browser engine: settings, queue, receivers,
// observers of script results.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/time.h"
#include "loam/trace.h"
#include "tests/webdisplay/model_display.h"

namespace {

using display = released<model_display>;

constexpr std::uint64_t k_what = 0x77686174;

zRecord settings_with(const char* key, std::int32_t value) {
    zRecord settings;
    settings.SetInt32(key, value);
    return settings;
}

zRecord page_settings(const char* url, const char* css, bool transparent) {
    zRecord settings;
    settings.SetCString("web_url", url);
    settings.SetCString("web_override_css", css);
    settings.SetBool("web_transparent", transparent);
    return settings;
}

// --- settings

struct side_case {
    const char* name;
    std::int32_t asked;
    long want;
};
void PrintTo(const side_case& c, std::ostream* out) { *out << c.name; }

class ModelSideTest : public testing::TestWithParam<side_case> {};

TEST_P(ModelSideTest, ASideBelowTwoPixelsBecomesOne) {
    const side_case& c = GetParam();
    long width = 0, height = 0;
    display wide(new model_display(settings_with("web_width", c.asked)));
    wide->GetSize(width, height);
    EXPECT_EQ(width, c.want);
    EXPECT_EQ(height, 1);

    display high(new model_display(settings_with("web_height", c.asked)));
    high->GetSize(width, height);
    EXPECT_EQ(width, 1);
    EXPECT_EQ(height, c.want);
}

INSTANTIATE_TEST_SUITE_P(
    All, ModelSideTest,
    testing::Values(side_case{"Least", std::numeric_limits<std::int32_t>::min(), 1},
                    side_case{"Negative", -5, 1}, side_case{"Zero", 0, 1}, side_case{"One", 1, 1},
                    side_case{"Two", 2, 2}, side_case{"Usual", 1920, 1920},
                    side_case{"Most", std::numeric_limits<std::int32_t>::max(),
                              std::numeric_limits<std::int32_t>::max()}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Model, WithoutSettingsItIsOnePixelOpaqueAndHasNothingToLoad) {
    display d(new model_display);
    long width = 0, height = 0;
    d->GetSize(width, height);
    EXPECT_EQ(width, 1);
    EXPECT_EQ(height, 1);
    EXPECT_FALSE(d->m_transparent);
    EXPECT_TRUE(d->m_windowless);
    EXPECT_EQ(d->PeekNextURL(), "");
    EXPECT_STREQ(d->get_css_override(), "");
    EXPECT_EQ(d->next_url_calls, 0);
}

TEST(Model, KeepsTheFrameRateAsItWasGiven) {
    display d(new model_display({}, 59.94));
    EXPECT_EQ(d->m_frame_rate, 59.94);
}

TEST(Model, SizesAreComparedAsTheyStandNotAsTheyAreUsed) {
    const zRecord none;
    EXPECT_FALSE(
        cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(none, settings_with("web_width", 1)));
    EXPECT_FALSE(
        cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(none, settings_with("web_height", 1)));
    EXPECT_TRUE(
        cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(none, settings_with("web_width", 0)));
    EXPECT_TRUE(cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(
        settings_with("web_height", -3), settings_with("web_height", -3)));
}

TEST(Model, SettingsDifferByUrlStyleSheetOrTransparency) {
    const zRecord a = page_settings("http://a/", "p{}", true);
    const auto equal = &cWebDisplayBrowser::IsWebDisplaySettingsEqual;
    EXPECT_TRUE(equal(a, page_settings("http://a/", "p{}", true)));
    EXPECT_FALSE(equal(a, page_settings("http://A/", "p{}", true)));
    EXPECT_FALSE(equal(a, page_settings("http://a/", "p{} ", true)));
    EXPECT_FALSE(equal(a, page_settings("http://a/", "p{}", false)));
}

TEST(Model, SettingsAreEqualWhateverTheSize) {
    zRecord a = page_settings("http://a/", "", false), b = page_settings("http://a/", "", false);
    a.SetInt32("web_width", 100);
    b.SetInt32("web_height", 7);
    EXPECT_TRUE(cWebDisplayBrowser::IsWebDisplaySettingsEqual(a, b));
}

TEST(Model, AnAbsentSettingEqualsItsDefault) {
    EXPECT_TRUE(cWebDisplayBrowser::IsWebDisplaySettingsEqual({}, page_settings("", "", false)));
    EXPECT_FALSE(cWebDisplayBrowser::IsWebDisplaySettingsEqual({}, page_settings("", "", true)));
}

// --- queue

TEST(Model, AnEmptyQueueReadsAsAnEmptyUrlAndStaysEmpty) {
    display d(new model_display(page_settings("", "", false)));
    EXPECT_EQ(d->PeekNextURL(), "");
    EXPECT_EQ(d->PopNextURL(), "");
    EXPECT_EQ(d->PopNextURL(), "");
    EXPECT_EQ(d->PeekNextURL(), "");
}

TEST(Model, TheUrlOfTheSettingsIsTheFirstOfTheQueue) {
    display d(new model_display(page_settings("http://first/", "", false)));
    EXPECT_EQ(d->next_url_calls, 0);
    d->LoadUrl("http://second/");
    d->LoadUrl("");
    EXPECT_EQ(d->next_url_calls, 2);
    EXPECT_EQ(d->PeekNextURL(), "http://first/");
    EXPECT_EQ(d->PeekNextURL(), "http://first/");
    EXPECT_EQ(d->PopNextURL(), "http://first/");
    EXPECT_EQ(d->PopNextURL(), "http://second/");
    EXPECT_EQ(d->PopNextURL(), "");
}

TEST(Model, ANullUrlIsIgnored) {
    display d(new model_display);
    d->LoadUrl(nullptr);
    EXPECT_EQ(d->PeekNextURL(), "");
    EXPECT_EQ(d->next_url_calls, 0);
}

TEST(Model, CopiesTheUrlThatItIsGiven) {
    display d(new model_display);
    std::string url = "http://a/";
    d->LoadUrl(url.c_str());
    url.assign(url.size(), 'x');
    EXPECT_EQ(d->PopNextURL(), "http://a/");
}

TEST(Model, QueuesFromManyThreadsAtOnce) {
    display d(new model_display);
    constexpr int k_threads = 4, k_each = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < k_threads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < k_each; ++n) d->LoadUrl("http://a/");
        });
    }
    for (auto& thread : threads) thread.join();
    int popped = 0;
    while (!d->PopNextURL().empty()) ++popped;
    EXPECT_EQ(popped, k_threads * k_each);
}

// --- observers of script results

TEST(Model, ResultsOfUnknownKeysAreDropped) {
    display d(new model_display);
    d->received_javascript_exec_result("nobody", "result");
    d->received_javascript_exec_result("", "");
    EXPECT_TRUE(d->m_observers.empty());
}

TEST(Model, AResultIsDeliveredOnce) {
    display d(new model_display);
    std::vector<std::string> results;
    d->add_observer(
        "key", [&](const std::string& r) { results.push_back(r); }, 0);
    d->received_javascript_exec_result("key", "one");
    d->received_javascript_exec_result("key", "two");
    EXPECT_EQ(results, std::vector<std::string>{"one"});
}

TEST(Model, KeysAreComparedByteByByte) {
    display d(new model_display);
    int calls = 0;
    d->add_observer(
        "Key", [&](const std::string&) { ++calls; }, 0);
    d->received_javascript_exec_result("key", "");
    d->received_javascript_exec_result("Key ", "");
    d->received_javascript_exec_result(zString("Key\0x", 5), "");
    EXPECT_EQ(calls, 0);
    d->received_javascript_exec_result("Key", "");
    EXPECT_EQ(calls, 1);
}

TEST(Model, AResultKeepsItsBytes) {
    display d(new model_display);
    std::string got;
    d->add_observer(
        "key", [&](const std::string& r) { got = r; }, 0);
    d->received_javascript_exec_result("key", zString("a\0'\"\n\xC3\xA9", 7));
    EXPECT_EQ(got, std::string("a\0'\"\n\xC3\xA9", 7));
}

TEST(Model, ASecondObserverWithTheSameKeyReplacesTheFirst) {
    display d(new model_display);
    std::string who;
    auto first = std::make_shared<int>(0);
    d->add_observer(
        "key", [&who, first](const std::string&) { who += "first"; }, 0);
    d->add_observer(
        "key", [&](const std::string&) { who += "second"; }, 0);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(d->m_observers.size(), 1u);
    d->received_javascript_exec_result("key", "");
    EXPECT_EQ(who, "second");
}

// So many milliseconds are a multiple of 2^32 microseconds: with the product formed in 32 bits the
// observer expires at the moment of its registration, and a test need not wait for it.
constexpr unsigned long k_expires_now = 1ul << 29;

void let_the_clock_advance() {
    const std::int64_t now = zTime::MicroNow();
    while (zTime::MicroNow() == now) std::this_thread::yield();
}

TEST(Model, AnExpiredObserverGoesWithTheNextRegistrationAndIsNotCalled) {
    display d(new model_display);
    int calls = 0;
    auto held = std::make_shared<int>(0);
    d->add_observer(
        "old", [&calls, held](const std::string&) { ++calls; }, k_expires_now);
    let_the_clock_advance();
    EXPECT_EQ(held.use_count(), 2) << "nothing but a registration purges";
    d->add_observer(
        "new", [](const std::string&) {}, 0);
    EXPECT_EQ(held.use_count(), 1);
    d->received_javascript_exec_result("old", "");
    EXPECT_EQ(calls, 0);
}

TEST(Model, AnExpiredObserverThatIsNotPurgedYetStillGetsItsResult) {
    display d(new model_display);
    int calls = 0;
    d->add_observer(
        "old", [&](const std::string&) { ++calls; }, k_expires_now);
    let_the_clock_advance();
    d->received_javascript_exec_result("old", "");
    EXPECT_EQ(calls, 1);
}

TEST(Model, AnObserverWithoutATimeOutSurvivesEveryPurge) {
    display d(new model_display);
    int calls = 0;
    d->add_observer(
        "patient", [&](const std::string&) { ++calls; }, 0);
    for (int i = 0; i < 100; ++i) {
        let_the_clock_advance();
        d->add_observer(
            std::to_string(i).c_str(), [](const std::string&) {}, 0);
    }
    d->received_javascript_exec_result("patient", "");
    EXPECT_EQ(calls, 1);
}

TEST(Model, RegisteringAKeyAgainRenewsItsTime) {
    display d(new model_display);
    int calls = 0;
    d->add_observer(
        "key", [](const std::string&) {}, k_expires_now);
    let_the_clock_advance();
    d->add_observer(
        "key", [&](const std::string&) { ++calls; }, 0);
    let_the_clock_advance();
    d->add_observer(
        "other", [](const std::string&) {}, 0);
    d->received_javascript_exec_result("key", "");
    EXPECT_EQ(calls, 1);
}

TEST(Model, TimeOutsCountInMilliseconds) {
    display d(new model_display);
    const std::int64_t before = zTime::MicroNow();
    d->add_observer(
        "key", [](const std::string&) {}, 4294967);
    const std::int64_t after = zTime::MicroNow();
    EXPECT_GE(d->m_observers.at("key").expiry, before + 4294967000);
    EXPECT_LE(d->m_observers.at("key").expiry, after + 4294967000);
    d->add_observer(
        "wrapped", [](const std::string&) {}, 4294968);
    EXPECT_LE(d->m_observers.at("wrapped").expiry, zTime::MicroNow() + 704);
}

TEST(Model, ACallbackMayRunAnotherScript) {
    display d(new model_display);
    std::string order;
    d->add_observer(
        "outer",
        [&](const std::string&) {
            order += "outer";
            d->add_observer(
                "inner", [&](const std::string&) { order += ",inner"; }, 0);
            d->received_javascript_exec_result("inner", "");
            d->received_javascript_exec_result("outer", "");
        },
        k_expires_now);
    d->received_javascript_exec_result("outer", "");
    EXPECT_EQ(order, "outer,inner");
    EXPECT_TRUE(d->m_observers.empty());
}

TEST(Model, PendingObserversEndWithTheDisplayWithoutACall) {
    int calls = 0;
    auto held = std::make_shared<int>(0);
    display d(new model_display);
    d->add_observer(
        "key", [&calls, held](const std::string&) { ++calls; }, 0);
    d.Release();
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(calls, 0);
}

// --- scripts

TEST(Model, TheInertOverloadsDropTheirCallbacksUncalled) {
    display d(new model_display);
    auto held = std::make_shared<int>(0);
    const auto callback = [held](const std::string&) { FAIL(); };
    cWebDisplayBrowser& base = *d;
    EXPECT_EQ(base.ExecuteJavascript(1ul, 2ul, callback), -1);
    EXPECT_EQ(base.ExecuteJavascript(1ul, 2ul, 3l, 4ul), -1);
    EXPECT_EQ(base.CacheScriptToBrowser("script", 1, callback), -1);
    EXPECT_EQ(held.use_count(), 2) << "the callback's own copy and this one";
    EXPECT_TRUE(d->scripts.empty());
}

TEST(Model, WithoutAnObserverTheScriptRunsAndItsResultIsNotAwaited) {
    display d(new model_display);
    d->script_answer = 7;
    EXPECT_EQ(d->ExecuteJavascript("go()", 5ul, 0l, 9000ul), 7);
    ASSERT_EQ(d->scripts.size(), 1u);
    EXPECT_EQ(d->scripts[0].script, "go()");
    EXPECT_EQ(d->scripts[0].timeout_ms, 0u);
    EXPECT_FALSE(d->scripts[0].on_result);
}

TEST(Model, TheResultForAnObserverIsPostedAsARecord) {
    display d(new model_display);
    d->script_answer = -1;
    const std::int32_t observer_id = zObserverHandler::NewCode();
    std::vector<std::string> posted;
    const zObserverHandler observer(observer_id, [&](const zRecord& payload, std::uint64_t data) {
        posted.push_back(payload.AsString("script_result", "none") + "/" +
                         std::to_string(payload.AsInt32(k_what, 0)) + "/" + std::to_string(data));
    });
    EXPECT_EQ(d->ExecuteJavascript("go()", 42ul, static_cast<long>(observer_id), 9000ul), -1);
    ASSERT_EQ(d->scripts.size(), 1u);
    EXPECT_EQ(d->scripts[0].timeout_ms, 9000u);
    ASSERT_TRUE(d->scripts[0].on_result);
    d->scripts[0].on_result("it's");
    while (zMessageLoop::RunOnce(0)) {
    }
    EXPECT_EQ(posted, std::vector<std::string>{"it's/42/0"});
}

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
            while (!m_entered) std::this_thread::yield();
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
    display d(new model_display(page_settings("http://a/", "", false)));
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

TEST(Model, HasNoClockOfItsHost) {
    display d(new model_display);
    EXPECT_FALSE(d->NextFrame());
}

}  // namespace
