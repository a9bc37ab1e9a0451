// model_scripts_test.cpp - scripts of a display without an engine, and the observers of their
// results.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/time.h"
#include "tests/support/eventually.h"
#include "tests/webdisplay/model_display.h"

namespace {

using display = released<model_display>;

constexpr std::uint64_t k_what = 0x77686174;

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
    ASSERT_TRUE(pennywort::tests::eventually([&] { return zTime::MicroNow() != now; }));
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

}  // namespace
