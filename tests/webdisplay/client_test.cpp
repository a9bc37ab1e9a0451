// client_test.cpp - what a display's client does at each callback of the runtime: frames, loads,
// scripts that it puts into pages, requests, drags.
#include <stdexcept>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using ClientTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

// The scripts as pages know them, written down here once more: they are part of the interface.
const std::string k_flash_probe =
    "var hasFlash = '0';try {\tvar fo = new ActiveXObject('ShockwaveFlash.ShockwaveFlash');\tif "
    "(fo) hasFlash = '1';}catch (e) {\tif (navigator.mimeTypes && "
    "navigator.mimeTypes['application/x-shockwave-flash'] != undefined && "
    "navigator.mimeTypes['application/x-shockwave-flash'].enabledPlugin)\t\thasFlash = "
    "'1';}window.hostApp.execute('HasFlash', hasFlash); ";
const std::string k_focus =
    "document.addEventListener('focus', function(e) {var tag = e.target.tagName.toUpperCase();var "
    "editableInput = false;if (tag === 'INPUT') {  var typ = e.target.type.toUpperCase();  "
    "editableInput = (typ === 'TEXT' || typ === 'PASSWORD' || typ === 'FILE' || typ === 'SEARCH' "
    "|| typ === 'EMAIL' || typ === 'NUMBER' || typ === 'DATE');}var editable = '0';if "
    "((editableInput || tag === 'TEXTAREA' || e.target.isContentEditable) && (!e.target.readOnly "
    "&& !e.target.disabled))\t\teditable = '1';window.hostApp.execute('Focus', editable);}, true);";
const std::string k_blur =
    "document.addEventListener('blur', function() { window.hostApp.execute('Focus', '0'); }, "
    "true);";
const std::string k_error_hook =
    "window.onerror = function(msg,url, line) { window.hostApp.execute(msg, url); };";
const std::string k_next_url = "window.hostApp.execute('LoadNextUrl', '0');";
const std::string k_listeners = k_focus + k_blur + k_error_hook;

TEST(PageScripts, HaveTheLengthsThatPagesWereTestedWith) {
    EXPECT_EQ(k_flash_probe.size(), 349u);
    EXPECT_EQ(k_focus.size(), 535u);
    EXPECT_EQ(k_blur.size(), 94u);
    EXPECT_EQ(k_error_hook.size(), 79u);
    EXPECT_EQ(k_next_url.size(), 43u);
}

// --- scripts that are put into pages

TEST_F(ClientTest, TheFirstPageGetsTheProbeAndTheListeners) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(scripts_of(1), (strings{k_flash_probe, k_listeners}));
}

TEST_F(ClientTest, EveryScriptRunsWithoutAUrlFromLineZero) {
    start();
    zRecord settings = page("http://a/");
    settings.SetCString("web_override_css", "p{}");
    screen s(settings);
    s->LoadUrl("http://b/");
    show(s);
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    s->ExecuteJavascript("go()", 0, {});
    ASSERT_EQ(fake().scripts().size(), 7u);
    for (const auto& ran : fake().scripts()) {
        EXPECT_EQ(ran.url, "") << ran.code;
        EXPECT_EQ(ran.line, 0) << ran.code;
    }
}

TEST_F(ClientTest, TheFlashProbeRunsOncePerProcess) {
    start();
    screen first(page("http://a/")), second(page("http://b/"));
    show(first);
    show(second);
    first->LoadUrl("http://c/");
    ASSERT_TRUE(loop_until([&] { return first.seen.heard("loaded http://c/"); }));
    EXPECT_EQ(count_of(scripts_of(1), k_flash_probe), 1);
    EXPECT_EQ(count_of(scripts_of(1), k_listeners), 2);
    EXPECT_EQ(scripts_of(2), strings{k_listeners});
}

TEST_F(ClientTest, AStyleSheetGoesIntoEachPageOnceAsADataUrl) {
    start();
    zRecord settings = page("http://a/");
    // Long, and with what would break a quotation: the base64 has no line breaks and ends in "==".
    const std::string css = "p{content:'\"\\\n\xC3\xA9'}" + std::string(100, ' ') + "q";
    settings.SetString("web_override_css", css);
    screen s(settings);
    s->LoadUrl("http://b/");
    show(s);
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    settle();
    const std::string link =
        "var link = document.createElement('link');link.setAttribute('rel', 'stylesheet');"
        "link.setAttribute('type', 'text/css');link.setAttribute('href', '"
        "data:text/css;charset=utf-8;base64,"
        "cHtjb250ZW50OiciXArDqSd9ICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgIC"
        "Ag"
        "ICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgIHE=');"
        "document.getElementsByTagName('head')[0].appendChild(link);";
    EXPECT_EQ(scripts_of(1),
              (strings{link, k_flash_probe, k_listeners, k_next_url, link, k_listeners}));
}

TEST_F(ClientTest, SubFramesGetNoScripts) {
    script().pages["http://a/"].frames = {"http://frame/1", "http://frame/2"};
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    EXPECT_EQ(fake().scripts().size(), 2u);
    for (const auto& ran : fake().scripts()) EXPECT_TRUE(ran.main_frame);
}

TEST_F(ClientTest, ADetachedPageGetsNoScripts) {
    script().ignore_close = true;
    script().pages["http://a/"].never_ends = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    // From a callback Close cannot wait, so this test need not wait for a browser that never
    // closes.
    fake().post([&] { s->Close(); });
    loop_works(1);
    fake().post([] { fake().finish_load(1); });
    settle();
    EXPECT_EQ(scripts_of(1), strings{});
    EXPECT_EQ(s.seen.events, strings{});
    script().ignore_close = false;  // so that Shutdown can
}

// --- frames

TEST_F(ClientTest, FramesArriveWholeAtTheSizeOfTheDisplay) {
    start();
    screen s(page("http://a/", 320, 180));
    show(s);
    ASSERT_FALSE(s.seen.frames.empty());
    EXPECT_EQ(s.seen.frames.back().width, 320);
    EXPECT_EQ(s.seen.frames.back().height, 180);
    EXPECT_FALSE(s.seen.frames.back().is_popup);
    EXPECT_TRUE(s.seen.all_on_display_thread);
}

TEST_F(ClientTest, FramesOfAWidgetAreMarked) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.frames.clear();
    fake().post([] { fake().paint_popup_widget(1, 20, 10); });
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_TRUE(s.seen.frames[0].is_popup);
    EXPECT_EQ(s.seen.frames[0].width, 20);
    EXPECT_EQ(s.seen.frames[0].height, 10);
}

TEST_F(ClientTest, NoFrameIsLostOrDoubled) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.frames.clear();
    fake().post([] {
        for (int i = 0; i < 50; ++i) fake().paint(1);
    });
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    ASSERT_EQ(s.seen.frames.size(), 50u);
    for (std::size_t i = 1; i < 50; ++i) {
        EXPECT_EQ(s.seen.frames[i].number, s.seen.frames[0].number + i);
    }
}

TEST_F(ClientTest, AfterItsEndTheViewIsOnePixelAndNoFrameArrives) {
    script().keep_clients = true;
    start();
    screen s(page("http://a/", 320, 180));
    show(s);
    int width = 0, height = 0;
    fake().view_rect(1, width, height);
    EXPECT_EQ(width, 320);
    fake().post([] { fake().close_from_page(1); });
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    s.seen.frames.clear();
    fake().view_rect(1, width, height);
    EXPECT_EQ(width, 1);
    EXPECT_EQ(height, 1);
    fake().post([] { fake().paint_popup_widget(1, 4, 4); });
    settle();
    EXPECT_TRUE(s.seen.frames.empty());
}

TEST_F(ClientTest, EveryCallbackAfterTheDisplaysEndIsHarmless) {
    script().keep_clients = true;
    start();
    screen s(page("http://a/"));
    show(s);
    s->LoadUrl("http://b/");
    s.release();
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    const std::size_t scripts_before = fake().scripts().size();
    int width = 0, height = 0;
    fake().view_rect(1, width, height);
    EXPECT_EQ(width, 1);
    fake().post([] {
        fake().paint_popup_widget(1, 4, 4);
        fake().load_end(1, true, 200, "");
        fake().load_error(1, true, -2, "ERR_FAILED", "http://b/");
        fake().drag_enter(1);
        fake().request(1, "http://late/", true);
        for (const char16_t* command : {u"LoadNextUrl", u"HasFlash", u"Focus", u"anything"}) {
            fake().message_from_closed(1, "execute",
                                       {std::u16string(command), std::u16string(u"0")});
        }
    });
    settle();
    EXPECT_EQ(fake().scripts().size(), scripts_before);
    ASSERT_FALSE(fake().requests().empty());
    EXPECT_TRUE(fake().requests().back().allowed);
}

TEST_F(ClientTest, NothingHoldsTheClientOnceTheDisplayIsGone) {
    script().keep_clients = true;
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_FALSE(fake().client_is_unshared(1)) << "the display holds it too";
    s.release();
    settle();
    EXPECT_TRUE(fake().client_is_unshared(1));
}

// --- loads and failures

TEST_F(ClientTest, APageIsReportedOnceWhenItsMainFrameHasLoaded) {
    script().pages["http://a/"].frames = {"http://frame/"};
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    zString last;
    s->GetUrlForLastPageLoaded(last);
    EXPECT_STREQ(last.CString(), "http://a/");
}

TEST_F(ClientTest, AnAbortedLoadIsNoFailure) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().load_error(1, true, -3, "ERR_ABORTED", "http://x/"); });
    settle();
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
}

TEST_F(ClientTest, AFailureIsReportedWithItsUrlAndText) {
    script().pages["http://a/"].error = -105;
    script().pages["http://a/"].error_text = "ERR_NAME_NOT_RESOLVED";
    start();
    screen s(page("http://a/"));
    show(s);
    ASSERT_FALSE(s.seen.events.empty());
    EXPECT_EQ(s.seen.events[0], "failed http://a/: ERR_NAME_NOT_RESOLVED");
}

TEST_F(ClientTest, AFailureInASubFrameIsReportedToo) {
    start();
    screen s(page("http://a/"));
    show(s);
    fake().post([] { fake().load_error(1, false, -6, "ERR_FILE_NOT_FOUND", "file:///frame"); });
    settle();
    EXPECT_TRUE(s.seen.heard("failed file:///frame: ERR_FILE_NOT_FOUND"));
}

TEST_F(ClientTest, ARedirectLoopEndsAsAFailure) {
    script().pages["http://a/"].redirect_to = "http://b/";
    script().pages["http://b/"].redirect_to = "http://a/";
    start();
    screen s(page("http://a/"));
    show(s);
    ASSERT_FALSE(s.seen.events.empty());
    EXPECT_NE(s.seen.events[0].find("ERR_TOO_MANY_REDIRECTS"), std::string::npos);
}

// --- the queue

TEST_F(ClientTest, TheNextPageIsAskedForThroughTheFinishedOne) {
    script().page_answers_next_url = false;
    start();
    screen s(page("http://a/"));
    s->LoadUrl("http://b/");
    show(s);
    EXPECT_EQ(scripts_of(1).back(), k_next_url);
    EXPECT_EQ(fake().browser(1).loads, strings{}) << "the page has not answered";
    fake().post([] {
        fake().message(1, "execute", {std::u16string(u"LoadNextUrl"), std::u16string(u"ignored")});
    });
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_EQ(fake().browser(1).loads, strings{"http://b/"});
    EXPECT_EQ(count_of(scripts_of(1), k_next_url), 1) << "the queue was empty after that";
}

TEST_F(ClientTest, QueuedPagesComeOneAfterAnother) {
    script().pages["http://b/"].error = -6;
    script().pages["http://b/"].error_text = "ERR_FILE_NOT_FOUND";
    start();
    screen s(page("http://a/"));
    for (const char* url : {"http://b/", "http://c/", "http://d/"}) s->LoadUrl(url);
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://d/"); }));
    EXPECT_EQ(fake().browser(1).start_url, "http://a/");
    EXPECT_EQ(fake().browser(1).loads, (strings{"http://b/", "http://c/", "http://d/"}));
    EXPECT_TRUE(s.seen.heard("failed http://b/: ERR_FILE_NOT_FOUND"));
    EXPECT_TRUE(s.seen.heard("loaded http://c/"));
}

TEST_F(ClientTest, ALoadThatIsReplacedReportsOnlyThePageThatStays) {
    start();
    screen s(page("http://a/"));
    script().pages["http://slow/"].never_ends = true;
    show(s);
    s.seen.events.clear();
    fake().post([] { fake().navigate(1, "http://slow/"); });
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    fake().post([] { fake().navigate(1, "http://b/"); });
    ASSERT_TRUE(loop_until([&] { return !s->IsLoading(); }));
    EXPECT_EQ(s.seen.events, strings{"loaded http://b/"});
}

// --- requests

TEST_F(ClientTest, TheHostIsAskedAboutEveryRequestOfTheMainFrameOnTheDisplayThread) {
    script().pages["http://a/"].resources = {"http://a/x.css", "http://a/y.png"};
    script().pages["http://a/"].frames = {"http://frame/"};
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.requests, (strings{"http://a/", "http://a/x.css", "http://a/y.png"}));
    EXPECT_TRUE(s.seen.all_on_display_thread);
    for (const auto& request : fake().requests()) {
        EXPECT_TRUE(request.allowed) << request.url;
        EXPECT_EQ(request.answered_on_ui_thread, request.main_frame) << request.url;
    }
    EXPECT_EQ(fake().requests().size(), 4u);
}

TEST_F(ClientTest, ARefusedPageIsNotLoadedAndNoFailure) {
    start();
    screen s(page("http://a/"));
    s.seen.allow_requests = false;
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return !fake().requests().empty(); }));
    settle();
    EXPECT_FALSE(fake().requests()[0].allowed);
    EXPECT_EQ(s.seen.events, strings{});
    EXPECT_FALSE(s->IsLoading());
}

TEST_F(ClientTest, WithoutAReceiverEveryRequestPasses) {
    start();
    screen s(page("http://a/"));
    s->SetPageCallbackReceiver(nullptr);
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return fake().browser(1).url == "http://a/"; }));
    EXPECT_TRUE(fake().requests()[0].allowed);
}

TEST_F(ClientTest, AResourceRefusedIsCancelledAlone) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.allow_requests = false;
    fake().request(1, "http://a/tracker.js", true);
    fake().request(1, "http://frame/x.js", false);
    ASSERT_TRUE(loop_until([] { return fake().requests().size() == 3; }));
    settle();
    for (const auto& request : fake().requests()) {
        EXPECT_EQ(request.allowed, request.url != "http://a/tracker.js") << request.url;
    }
}

TEST_F(ClientTest, RequestsThatWaitWhenTheDisplayGoesAreAnswered) {
    start();
    screen s(page("http://a/"));
    show(s);
    for (int i = 0; i < 20; ++i) fake().request(1, "http://a/late", true);
    fake().settle_io();
    s.release();
    settle();
    EXPECT_EQ(fake().requests().size(), 21u);
}

TEST_F(ClientTest, RequestsThatWaitAtShutdownAreDropped) {
    start();
    screen s(page("http://a/"));
    show(s);
    for (int i = 0; i < 20; ++i) fake().request(1, "http://a/late", true);
    fake().settle_io();
    shut_down();
    s.release();
}

// --- what is left to the runtime

// Dialogs, permissions and the rest keep the runtime's defaults, which refuse them.
TEST_F(ClientTest, AnswersForItsOwnHandlersOnly) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(fake().handlers(1),
              (strings{"download", "drag", "life span", "load", "render", "request"}));
}

TEST_F(ClientTest, APageMaySaveNothing) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_FALSE(fake().may_download(1, "http://a/file.zip"));
}

TEST_F(ClientTest, ReceiversThatThrowDoNotReachTheRuntime) {
    start();
    screen s(page("http://a/"));
    s.seen.on_frame = [] { throw std::runtime_error("in a frame"); };
    s.seen.on_event = [](const std::string&) { throw 7; };
    show(s);
    EXPECT_FALSE(s.seen.frames.empty());
    s.seen.on_frame = {};
    s.seen.on_event = {};
    s->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

// --- drags

TEST_F(ClientTest, NothingCanBeDraggedIn) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_TRUE(fake().drag_enter(1));
}

// --- a renderer process that dies

TEST_F(ClientTest, AKilledRendererStopsTheFramesUntilThePageIsLoadedAgain) {
    script().animate = true;
    start();
    screen s(page("http://a/"));
    show(s);
    ASSERT_TRUE(loop_until([&] { return s.seen.frames.size() > 3; }));
    fake().post([] { fake().kill_renderer(1); });
    loop_works(3);
    s.seen.frames.clear();
    s->Repaint();
    loop_works(5);
    EXPECT_TRUE(s.seen.frames.empty());
    s->LoadUrl("http://a/");
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_EQ(count_of(s.seen.events, "loaded http://a/"), 2);
}

TEST_F(ClientTest, ARendererKilledWhileItsPageLoadsLeavesTheDisplayUsable) {
    script().pages["http://a/"].never_ends = true;
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s->IsLoading(); }));
    fake().post([] { fake().kill_renderer(1); });
    ASSERT_TRUE(loop_until([&] { return !s->IsLoading(); }));
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
}

}  // namespace
