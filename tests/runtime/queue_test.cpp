// queue_test.cpp - which pages of the queue are loaded, in which order, and what the host hears.
#include <algorithm>

#include "harness.h"
#include "peer.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class Queue : public RuntimeTest {
protected:
    peer m_peer;
};

std::string titled(const std::string& title) {
    return "<!doctype html><title>" + title + "</title><body>" + title;
}

// --- loads that fail

struct failing_case {
    const char* name;
    const char* path;
    const char* error;  // what the runtime says
};
void PrintTo(const failing_case& c, std::ostream* out) { *out << c.name; }

class FailingLoad : public Queue, public testing::WithParamInterface<failing_case> {};

TEST_P(FailingLoad, IsReportedAndTheNextPageFollows) {
    const std::string bad = m_peer.url(GetParam().path);
    const std::string good = m_peer.html(titled("after"));
    shown_page page({.url = bad, .tell_every_load = true});
    page->LoadUrl(good.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(good); }))
        << PrintToString(page.events.loaded);
    ASSERT_TRUE(page.events.has_failed(bad)) << PrintToString(page.events.failed);
    EXPECT_EQ(page.events.failed.front().second, GetParam().error);
    EXPECT_EQ(page.events.loaded, std::vector<std::string>{good}) << "what failed has not loaded";
    EXPECT_NE(traces().find("cWebDisplayBrowser: page load failed:\nurl: " + bad +
                            "\nerror: " + GetParam().error + "\n"),
              std::string::npos);
}
INSTANTIATE_TEST_SUITE_P(
    All, FailingLoad,
    testing::Values(failing_case{"RedirectLoop", "/redirect-loop", "ERR_TOO_MANY_REDIRECTS"},
                    failing_case{"Reset", "/reset", "ERR_CONNECTION_RESET"},
                    failing_case{"Nonsense", "/nonsense", "ERR_INVALID_HTTP_RESPONSE"}),
    case_name<failing_case>);

TEST_F(Queue, AServerThatIsNotThereIsReportedAndTheNextPageFollows) {
    const std::string bad = "http://127.0.0.1:9/";
    const std::string good = m_peer.html(titled("after"));
    shown_page page({.url = bad});
    page->LoadUrl(good.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(good); }))
        << PrintToString(page.events.loaded);
    EXPECT_TRUE(page.events.has_failed(bad)) << PrintToString(page.events.failed);
}

// URLs that the browser does not take, some without a word: nothing is asked again, and the page
// behind them comes by itself.
class UnusableUrl : public Queue, public testing::WithParamInterface<const char*> {};

TEST_P(UnusableUrl, DoesNotHoldUpTheQueueBehindAPage) {
    const std::string good = m_peer.html(titled("after"));
    shown_page page({.url = m_peer.html(titled("before")), .tell_every_load = true});
    page->LoadUrl(GetParam());
    page->LoadUrl(good.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(good); }))
        << PrintToString(page.events.failed);
}

TEST_P(UnusableUrl, DoesNotHoldUpTheQueueAsTheFirstPage) {
    const std::string good = m_peer.html(titled("after"));
    shown_page page({.url = GetParam(), .tell_every_load = true});
    page->LoadUrl(good.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(good); }))
        << PrintToString(page.events.failed);
}
INSTANTIATE_TEST_SUITE_P(All, UnusableUrl,
                         testing::Values("http://", "chrome://settings", "javascript:alert(1)", "",
                                         "no url at all", "no-such-scheme://x"),
                         [](const auto& one) { return "Case" + std::to_string(one.index); });

TEST_F(Queue, AUrlThatTheBrowserIgnoresIsAFailure) {
    shown_page page({.url = m_peer.html(titled("before")), .tell_every_load = true});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl("http://");
    EXPECT_TRUE(wait_for([&] { return page.events.has_failed("http://"); }));
    page->LoadUrl(nullptr);
    EXPECT_FALSE(page->IsLoading());
}

TEST_F(Queue, AFailureLeavesTheLastLoadedUrlAsItWas) {
    const std::string good = m_peer.html(titled("good"));
    shown_page page({.url = good, .tell_every_load = true});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl(m_peer.url("/reset").c_str());
    ASSERT_TRUE(wait_for([&] { return !page.events.failed.empty(); }));
    zString last;
    page->GetUrlForLastPageLoaded(last);
    EXPECT_EQ(last.View(), good);
}

TEST_F(Queue, AFailureInAFrameOfThePageIsReportedTooAndThePageLoads) {
    const std::string bad = m_peer.url("/reset");
    shown_page page({.url = m_peer.html("<!doctype html><iframe src='" + bad + "'></iframe>")});
    EXPECT_TRUE(wait_for([&] { return page.events.has_failed(bad); }));
    EXPECT_TRUE(page.wait_until_loaded());
}

TEST_F(Queue, APageThatNeverAnswersIsLeftForGoodWhenTheDisplayCloses) {
    shown_page page({.url = m_peer.url("/never")});
    EXPECT_TRUE(wait_for([&] { return page->IsLoading(); }));
    page->LoadUrl(m_peer.html(titled("next")).c_str());
    run_loop_for(500);
    EXPECT_TRUE(page->IsLoading());
    EXPECT_TRUE(page.events.loaded.empty()) << PrintToString(page.events.loaded);
    page.close();
    EXPECT_TRUE(page.events.failed.empty()) << PrintToString(page.events.failed);
}

TEST_F(Queue, ALoadThatAScriptReplacesIsNotReportedAsAFailure) {
    const std::string good = m_peer.html(titled("good"));
    shown_page page({.url = m_peer.html(titled("first"))});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("location.href = '" + m_peer.url("/never") + "'");
    ASSERT_TRUE(wait_for([&] { return page->IsLoading(); }));
    page.run("location.href = '" + good + "'");
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(good); }));
    EXPECT_TRUE(page.events.failed.empty()) << PrintToString(page.events.failed);
}

TEST_F(Queue, AnErrorStatusIsAPageLikeAnyOther) {
    const std::string missing = m_peer.url("/status/404");
    const std::string broken = m_peer.url("/status/500");
    shown_page page({.url = missing});
    page->LoadUrl(broken.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(broken); }));
    EXPECT_TRUE(page.events.has_loaded(missing));
    EXPECT_EQ(page.ask("return document.body.innerText"), "status 500");
}

TEST_F(Queue, ADownloadIsNoPageAndSavesNothing) {
    shown_page page({.url = m_peer.html(titled("before"))});
    ASSERT_TRUE(page.wait_until_loaded());
    const std::string after = m_peer.html(titled("after"));
    page->LoadUrl(m_peer.url("/download").c_str());
    run_loop_for(500);
    page->LoadUrl(after.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(after); }))
        << PrintToString(page.events.failed);
}

// --- what the host refuses

TEST_F(Queue, APageThatTheHostRefusesIsNotFetched) {
    shown_page page({.url = m_peer.html(titled("first"))});
    ASSERT_TRUE(page.wait_until_loaded());
    const std::string refused = m_peer.html(titled("refused"));
    page.events.allow = [&](const std::string& url) { return url != refused; };
    const std::string next = m_peer.html(titled("next"));
    page->LoadUrl(refused.c_str());
    page->LoadUrl(next.c_str());
    EXPECT_TRUE(wait_for([&] {
        if (!page->IsLoading()) page->LoadNextUrl();
        return page.events.has_loaded(next);
    })) << PrintToString(page.events.requests);
    EXPECT_FALSE(page.events.has_loaded(refused));
}

TEST_F(Queue, AResourceThatTheHostRefusesIsMissingFromThePage) {
    const std::string script = m_peer.url("/html/d2luZG93LmdvdCA9IDE");  // window.got = 1
    const std::string html = m_peer.html("<!doctype html><script src='" + script + "'></script>");
    shown_page refusing({});
    refusing.events.allow = [&](const std::string& url) { return url != script; };
    refusing->LoadUrl(html.c_str());
    ASSERT_TRUE(wait_for([&] { return refusing.events.has_loaded(html); }));
    EXPECT_EQ(refusing.ask("return String(window.got)"), "undefined");
    shown_page allowing({.url = html});
    ASSERT_TRUE(wait_for([&] { return allowing.events.has_loaded(html); }));
    EXPECT_EQ(allowing.ask("return String(window.got)"), "1");
}

TEST_F(Queue, TheHostIsAskedForEveryResourceOfTheMainFrameOnTheDisplayThread) {
    const std::string picture = m_peer.url("/status/200");
    const std::string inner = m_peer.html("<img src='" + m_peer.url("/status/404") + "'>");
    const std::string html =
        m_peer.html("<img src='" + picture + "'><iframe src='" + inner + "'></iframe>");
    shown_page page({.url = html});
    ASSERT_TRUE(page.wait_until_loaded());
    const auto& requests = page.events.requests;
    const auto asked = [&](const std::string& url) {
        return std::count(requests.begin(), requests.end(), url);
    };
    EXPECT_EQ(asked(html), 1) << PrintToString(requests);
    EXPECT_EQ(asked(picture), 1) << PrintToString(requests);
    EXPECT_EQ(asked(inner), 0) << PrintToString(requests);
    EXPECT_EQ(asked(m_peer.url("/status/404")), 0) << PrintToString(requests);
    EXPECT_TRUE(page.events.on_one_thread());
}

// --- the queue

TEST_F(Queue, ThreePagesAreShownOneAfterAnother) {
    const std::string urls[] = {m_peer.html(titled("one")), m_peer.html(titled("two")),
                                m_peer.html(titled("three"))};
    shown_page page({.url = urls[0]});
    page->LoadUrl(urls[1].c_str());
    page->LoadUrl(urls[2].c_str());
    ASSERT_TRUE(wait_for([&] { return page.events.has_loaded(urls[2]); }))
        << PrintToString(page.events.loaded);
    EXPECT_EQ(page.events.loaded, std::vector<std::string>(urls, urls + 3));
    EXPECT_EQ(page.ask("return document.title"), "three");
    zString last;
    page->GetUrlForLastPageLoaded(last);
    EXPECT_EQ(last.View(), urls[2]);
}

TEST_F(Queue, PagesQueuedBeforeOpenAreShownInOrder) {
    const std::string urls[] = {m_peer.html(titled("one")), m_peer.html(titled("two")),
                                m_peer.html(titled("three"))};
    cWebDisplayCEFBrowser* display = make_display({.url = urls[0]});
    kept_page_events events;
    display->SetPageCallbackReceiver(&events);
    display->LoadUrl(urls[1].c_str());
    display->LoadUrl(urls[2].c_str());
    zString last("something");
    display->GetUrlForLastPageLoaded(last);
    EXPECT_EQ(last.View(), "");
    EXPECT_TRUE(display->Open());
    EXPECT_TRUE(wait_for([&] { return events.has_loaded(urls[2]); }));
    EXPECT_EQ(events.loaded, std::vector<std::string>(urls, urls + 3));
    display->SetPageCallbackReceiver(nullptr);
    display->Close();
    display->Release();
}

TEST_F(Queue, APageForADisplayThatWasOpenedWithoutOneIsShown) {
    shown_page page({});
    run_loop_for(300);
    const std::string url = m_peer.html(titled("late"));
    page->LoadUrl(url.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(url); }));
}

TEST_F(Queue, APageAskedForRightAfterOpenIsShown) {
    shown_page page({});
    const std::string url = m_peer.html(titled("at once"));
    page->LoadUrl(url.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(url); }));
}

TEST_F(Queue, APageAskedForDuringALoadIsShownAfterIt) {
    const std::string first = m_peer.html(titled("first"));
    const std::string second = m_peer.html(titled("second"));
    shown_page page({.url = first});
    ASSERT_TRUE(wait_for([&] { return page->IsLoading() || !page.events.loaded.empty(); }));
    page->LoadUrl(second.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(second); }));
    EXPECT_EQ(page.events.loaded, (std::vector{first, second}));
}

TEST_F(Queue, APageAskedForInTheCallbackOfAnotherIsShown) {
    struct chain final : cBrowserPageCallbackHandler {
        cWebDisplayBrowser* display = nullptr;
        std::vector<std::string> urls;
        std::size_t loaded = 0;
        void PageLoaded(const zString&) override {
            if (++loaded < urls.size()) display->LoadUrl(urls[loaded].c_str());
        }
    } events;
    for (const char* title : {"one", "two", "three", "four"}) {
        events.urls.push_back(m_peer.html(titled(title)));
    }
    cWebDisplayCEFBrowser* display = make_display({.url = events.urls[0]});
    events.display = display;
    display->SetPageCallbackReceiver(&events);
    EXPECT_TRUE(display->Open());
    EXPECT_TRUE(wait_for([&] { return events.loaded == 4; })) << events.loaded;
    display->SetPageCallbackReceiver(nullptr);
    display->Close();
    display->Release();
}

TEST_F(Queue, TheSamePageTwiceIsLoadedTwice) {
    const std::string url = m_peer.html(titled("again"));
    shown_page page({.url = url});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl(url.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.loaded.size() == 2; }))
        << PrintToString(page.events.loaded);
}

TEST_F(Queue, ARedirectIsReportedByItsTarget) {
    const std::string target = m_peer.html(titled("target"));
    shown_page page({.url = m_peer.redirect(target)});
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(target); }))
        << PrintToString(page.events.loaded);
}

TEST_F(Queue, PagesAreLoadedFromFilesToo) {
    const temporary_folder folder;
    const std::string path = folder.child("caf\u00e9 100%.html");
    FILE* file = fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    fputs("<!doctype html><meta charset=utf-8><title>from a file</title>", file);
    fclose(file);
    shown_page page({.url = "file://" + folder.path() + "/caf%C3%A9%20100%25.html"});
    ASSERT_TRUE(page.wait_until_loaded()) << PrintToString(page.events.failed);
    EXPECT_EQ(page.ask("return document.title"), "from a file");
}

// --- style sheets and cookies

TEST_F(Queue, TheStyleSheetOfTheHostIsAppliedToEachPageOnce) {
    const std::string css =
        "body { color: rgb(1, 2, 3); background: url(\"data:,'\") } /* caf\u00e9 */";
    shown_page page({.url = m_peer.html(titled("one")), .css = css});
    ASSERT_TRUE(page.wait_until_loaded());
    const auto colour = [&] { return page.ask("return getComputedStyle(document.body).color"); };
    EXPECT_TRUE(wait_for([&] { return colour() == "rgb(1, 2, 3)"; }));
    EXPECT_EQ(page.ask("return document.querySelectorAll('link').length"), "1");
    const std::string second = m_peer.html(titled("two"));
    page->LoadUrl(second.c_str());
    ASSERT_TRUE(wait_for([&] { return page.events.has_loaded(second); }));
    EXPECT_TRUE(wait_for([&] { return colour() == "rgb(1, 2, 3)"; }));
    EXPECT_EQ(page.ask("return document.querySelectorAll('link').length"), "1");
}

TEST_F(Queue, WithoutAStyleSheetNoneIsAdded) {
    shown_page page({.url = m_peer.html(titled("one"))});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_EQ(page.ask("return document.querySelectorAll('link').length"), "0");
}

TEST_F(Queue, CookiesAreDeletedByUrl) {
    const std::string seen_url = m_peer.url("/cookie/seen");
    shown_page page({.url = m_peer.url("/cookie/set")});
    const auto seen = [&] {
        const std::size_t loads = page.events.loaded.size();
        page->LoadUrl(seen_url.c_str());
        wait_for([&] { return page.events.loaded.size() > loads; });
        return page.ask("return document.body.innerText").value_or("no answer");
    };
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_EQ(seen(), "shape=round; taste=sweet");
    page->DeleteCookies("http://another.example/");
    page->DeleteCookies("no url");
    page->DeleteCookies(nullptr);
    EXPECT_EQ(seen(), "shape=round; taste=sweet");
    page->DeleteCookies(seen_url.c_str());
    std::string last;
    EXPECT_TRUE(wait_for([&] { return (last = seen()) == "none"; })) << last;
}

TEST_F(Queue, AnEmptyUrlDeletesEveryCookie) {
    shown_page page({.url = m_peer.url("/cookie/set")});
    ASSERT_TRUE(page.wait_until_loaded());
    page->DeleteCookies("");
    EXPECT_TRUE(wait_for([&] { return page.ask("return document.cookie") == ""; }));
}

}  // namespace
}  // namespace pennywort::runtime_test
