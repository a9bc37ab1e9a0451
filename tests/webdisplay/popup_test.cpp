// popup_test.cpp - windows that a page opens: they share the display's client, and must neither
// reach its renderer nor take it with them.
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using strings = std::vector<std::string>;

class PopupTest : public FakeRuntimeTest {
protected:
    void SetUp() override {
        FakeRuntimeTest::SetUp();
        if (HasFatalFailure()) return;
        script().keep_clients = true;
        start();
        show(m_screen);
    }
    void TearDown() override {
        m_screen.release();
        FakeRuntimeTest::TearDown();
    }
    // The identifier of a window that the page opened, 0 if it was refused.
    int popup(const std::string& url, int opener = 1, bool gesture = false) {
        int id = -1;
        fake().post([&] { id = fake().open_popup(opener, url, gesture); });
        EXPECT_TRUE(loop_until([&] { return id >= 0; }));
        settle();
        return id;
    }

    screen m_screen{page("http://a/")};
};

TEST_F(PopupTest, AWindowThatAScriptOpensIsLeftToTheRuntime) {
    EXPECT_EQ(popup("http://popup/"), 2);
    EXPECT_EQ(fake().opened_by_popup(), strings{"http://popup/"});
}

// It may have a process of its own, and its pages call the host as the display's do.
TEST_F(PopupTest, ItsCallsAreBoundAsTheDisplaysAre) {
    EXPECT_EQ(fake().browser(popup("http://popup/")).max_waiting_calls, 0);
    zRecord settings = page("http://b/");
    settings.SetInt32("web_max_waiting_calls", 250);
    screen bounded(settings);
    show(bounded);
    EXPECT_EQ(fake().browser(popup("http://popup/", 3)).max_waiting_calls, 250);
    bounded.release();
}

TEST_F(PopupTest, ItsFramesLoadsAndErrorsAreNotTheDisplays) {
    const int id = popup("http://popup/");
    m_screen.seen.frames.clear();
    m_screen.seen.events.clear();
    fake().post([id] {
        fake().paint(id);
        fake().paint_popup_widget(id, 3, 3);
        fake().load_end(id, true, 200, "");
        fake().load_error(id, true, -2, "ERR_FAILED", "http://popup/");
        fake().navigate(id, "http://popup/2");
    });
    settle();
    EXPECT_TRUE(m_screen.seen.frames.empty());
    EXPECT_EQ(m_screen.seen.events, strings{});
    EXPECT_EQ(scripts_of(id), strings{});
    zString last;
    m_screen->GetUrlForLastPageLoaded(last);
    EXPECT_STREQ(last.CString(), "http://a/");
}

TEST_F(PopupTest, ItTakesNoUrlOfTheQueue) {
    script().page_answers_next_url = false;
    m_screen->LoadUrl("http://b/");
    m_screen->LoadUrl("http://c/");
    ASSERT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://b/"); }));
    const int id = popup("http://popup/");
    settle();
    EXPECT_EQ(fake().browser(id).loads, strings{});
    EXPECT_EQ(scripts_of(id), strings{});
    fake().post([] {
        fake().message(1, "execute", {std::u16string(u"LoadNextUrl"), std::u16string(u"0")});
    });
    EXPECT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://c/"); }));
}

TEST_F(PopupTest, ItsEndIsNotTheDisplays) {
    const int id = popup("http://popup/");
    fake().post([id] { fake().close_from_page(id); });
    ASSERT_TRUE(loop_until([id] { return fake().browser(id).closed; }));
    EXPECT_EQ(m_screen->ExecuteJavascript("x", 0, {}), 0);
    m_screen.seen.frames.clear();
    m_screen->Repaint();
    EXPECT_TRUE(loop_until([&] { return !m_screen.seen.frames.empty(); }));
    m_screen->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://b/"); }));
}

TEST_F(PopupTest, ItIsHiddenSinceNobodySeesIt) {
    const int id = popup("http://popup/");
    EXPECT_EQ(fake().browser(id).hides, std::vector<bool>{true});
}

TEST_F(PopupTest, ItClosesWithTheDisplay) {
    const int first = popup("http://popup/1"), second = popup("http://popup/2");
    m_screen->Close();
    EXPECT_TRUE(loop_until([&] {
        return fake().browser(1).closed && fake().browser(first).closed &&
               fake().browser(second).closed;
    }));
}

TEST_F(PopupTest, ItClosesWithADisplayThatIsReleasedInAFrame) {
    const int id = popup("http://popup/");
    m_screen.seen.on_frame = [&] { m_screen.release(); };
    fake().post([] { fake().paint(1); });
    EXPECT_TRUE(loop_until([id] { return fake().browser(1).closed && fake().browser(id).closed; }));
}

TEST_F(PopupTest, ItClosesWhenThePageClosesItself) {
    const int id = popup("http://popup/");
    fake().post([] { fake().close_from_page(1); });
    EXPECT_TRUE(loop_until([id] { return fake().browser(1).closed && fake().browser(id).closed; }));
}

TEST_F(PopupTest, ItMayNotPrintWhereTheDisplaysPagesMayNot) {
    EXPECT_FALSE(fake().browser(popup("http://popup/")).refuses_printing);
    zRecord settings = page("http://b/");
    settings.SetBool("web_refuse_printing", true);
    screen silent(settings);
    show(silent);
    EXPECT_TRUE(fake().browser(3).refuses_printing);
    EXPECT_TRUE(fake().browser(popup("http://popup/", 3)).refuses_printing);
    silent.release();
}

TEST_F(PopupTest, WithoutABoundEachIsOpened) {
    for (int i = 0; i < 30; ++i) EXPECT_GT(popup("http://popup/"), 0) << i;
}

TEST_F(PopupTest, WithABoundAPageCannotOpenWindowsWithoutEnd) {
    zRecord settings = page("http://b/");
    settings.SetInt32("web_max_popups", 3);
    screen bounded(settings);
    show(bounded);
    for (int i = 0; i < 3; ++i) EXPECT_GT(popup("http://popup/", 2), 0) << i;
    EXPECT_EQ(popup("http://popup/", 2), 0);
    EXPECT_EQ(bounded->ExecuteJavascript("x", 0, {}), 0);
    // One that closes makes room for another.
    fake().post([] { fake().close_from_page(4); });
    ASSERT_TRUE(loop_until([] { return fake().browser(4).closed; }));
    EXPECT_GT(popup("http://popup/", 2), 0);
    bounded.release();
}

TEST_F(PopupTest, ADisplayThatIsGoneOpensNoWindows) {
    script().close_after_works = 20;
    fake().post([&] { m_screen->Close(); });
    loop_works(1);
    EXPECT_EQ(popup("http://popup/"), 0);
}

TEST_F(PopupTest, NoReferenceOfTheClientIsLost) {
    popup("http://popup/");
    popup("http://popup/2", 1, true);
    m_screen.release();
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed && fake().browser(2).closed; }));
    settle();
    // Both browsers of the fake hold the client; nobody else may.
    fake().post([] {});
    EXPECT_EQ(fake().held(), "app 1, client 2");
    EXPECT_TRUE(fake().client_is_unshared(1));
}

TEST_F(PopupTest, ItsMessagesAreAnsweredInItsOwnPage) {
    const int id = popup("http://popup/");
    fake().post([id] {
        fake().message(id, "execute", {std::u16string(u"hello"), std::u16string(u"x")});
    });
    settle();
    EXPECT_EQ(m_screen.seen.commands, strings{"hello(x)"});
    ASSERT_EQ(scripts_of(id).size(), 1u);
    EXPECT_NE(scripts_of(id)[0].find("hostAppCallback('hello',''"), std::string::npos);
}

}  // namespace
