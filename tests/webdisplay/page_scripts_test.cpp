// page_scripts_test.cpp - the scripts that a display puts into its pages: which, when and how
// often.
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using PageScriptsTest = FakeRuntimeTest;
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

TEST_F(PageScriptsTest, TheFirstPageGetsTheProbeAndTheListeners) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(scripts_of(1), (strings{k_flash_probe, k_listeners}));
}

TEST_F(PageScriptsTest, EveryScriptRunsWithoutAUrlFromLineZero) {
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

TEST_F(PageScriptsTest, TheFlashProbeRunsOncePerProcess) {
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

TEST_F(PageScriptsTest, AStyleSheetGoesIntoEachPageOnceAsADataUrl) {
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

TEST_F(PageScriptsTest, SubFramesGetNoScripts) {
    script().pages["http://a/"].frames = {"http://frame/1", "http://frame/2"};
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    EXPECT_EQ(fake().scripts().size(), 2u);
    for (const auto& ran : fake().scripts()) EXPECT_TRUE(ran.main_frame);
}

TEST_F(PageScriptsTest, ADetachedPageGetsNoScripts) {
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

TEST_F(PageScriptsTest, TheNextPageIsAskedForThroughTheFinishedOne) {
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

}  // namespace
