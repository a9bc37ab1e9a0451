// client_test.cpp - a display's client as the runtime sees it: what it answers for, what it lets
// through to the host, and how long it lives.
#include <stdexcept>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using ClientTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

// Dialogs, permissions and the rest keep the runtime's defaults, which refuse them.
TEST_F(ClientTest, AnswersForItsOwnHandlersOnly) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_EQ(fake().handlers(1), (strings{"drag", "life span", "load", "render", "request"}));
    EXPECT_TRUE(fake().may_download(1, "http://a/file.zip")) << "nobody decides";
}

TEST_F(ClientTest, APageSavesNothingWhereTheHostRefusesDownloads) {
    start();
    zRecord settings = page("http://a/");
    settings.SetBool("web_refuse_downloads", true);
    screen s(settings);
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

TEST_F(ClientTest, NothingCanBeDraggedIn) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_TRUE(fake().drag_enter(1));
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

}  // namespace
