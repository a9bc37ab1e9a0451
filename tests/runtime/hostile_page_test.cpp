// hostile_page_test.cpp - pages that hang, crash, ask, open, download: the display goes on, closes,
// and leaves nothing behind.
#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>

#include "harness.h"
#include "peer.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class Hostile : public RuntimeTest {
protected:
    void prepare() override {
        // Where the machine has no camera, pages would be refused for that reason only; and the
        // runtime's own guard against windows without a click stands before ours.
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("use-fake-device-for-media-stream", "");
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("disable-popup-blocking", "");
    }

    peer m_peer;
};

// One spare may stand by for the next page.
bool at_most_a_spare_renderer() {
    return wait_for([] { return processes_below("renderer").size() <= 1; });
}

void kill_all(const std::string& type) {
    const auto victims = processes_below(type);
    ASSERT_FALSE(victims.empty()) << PrintToString(processes_below());
    for (const process& one : victims) kill(one.id, SIGKILL);
}

constexpr std::string_view k_green_page = "<body style='margin:0;background:#0f0'>";

// `url` is that page, wherever it comes from.
void expect_to_show(shown_page& page, const std::string& url) {
    page->LoadUrl(url.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(url); }))
        << PrintToString(page.events.failed);
    EXPECT_TRUE(page.wait_for_colour(k_green));
}

// --- processes that go

TEST_F(Hostile, AKilledRendererStopsTheFramesUntilAPageIsLoadedAgain) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all("renderer");
    run_loop_for(500);
    const long stopped = page.frames.count();
    run_loop_for(700);
    EXPECT_EQ(page.frames.count(), stopped);

    page->LoadUrl(animated_url().c_str());
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > stopped + 5; }))
        << page.frames.count() - stopped;
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
}

TEST_F(Hostile, ADisplayWhoseRendererWasKilledCloses) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all("renderer");
    run_loop_for(200);
    page->SetSize(100, 100);
    page->Repaint();
    page.run("1");
    page.close();
    shown_page next({.url = animated_url()});
    EXPECT_TRUE(wait_for([&] { return next.frames.count() > 5; }));
}

TEST_F(Hostile, ARendererKilledAtTheSameMomentDoesNotHoldTheClosingUp) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all("renderer");
    page.close();
    EXPECT_TRUE(wait_for([] { return processes_below("renderer").empty(); }))
        << PrintToString(processes_below("renderer"));
}

// Before the page has come, the runtime often goes on saying that it is loading.
TEST_F(Hostile, ARendererKilledBeforeItsPageCameIsReplacedByTheNextPage) {
    shown_page page({.url = m_peer.url("/half")});
    ASSERT_TRUE(wait_for([&] { return page->IsLoading() && page.frames.count() > 0; }));
    kill_all("renderer");
    ASSERT_TRUE(wait_for([&] { return !page->IsLoading(); }));
    expect_to_show(page, m_peer.html(k_green_page));
}

TEST_F(Hostile, ARendererKilledInTheMiddleOfAPageIsReplacedByTheNextPage) {
    shown_page page({.url = m_peer.url("/half")});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    kill_all("renderer");
    ASSERT_TRUE(wait_for([&] { return !page->IsLoading(); }));
    expect_to_show(page, m_peer.html(k_green_page));
}

TEST_F(Hostile, OtherDisplaysGoOnWhenTheRendererOfOneIsKilled) {
    shown_page victim({.url = m_peer.html("<body style='background:#f00'>")});
    ASSERT_TRUE(victim.wait_until_loaded());
    const auto before = processes_below("renderer");
    shown_page other({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return other.frames.count() > 5; }));
    for (const process& one : before) kill(one.id, SIGKILL);
    run_loop_for(300);
    // The second may have got the first one's spare, and is loaded again then.
    if (!processes_below("renderer").empty()) other->LoadUrl(animated_url().c_str());
    const long frames = other.frames.count();
    EXPECT_TRUE(wait_for([&] { return other.frames.count() > frames + 5; }));
}

class KilledHelper : public Hostile, public testing::WithParamInterface<const char*> {};

TEST_P(KilledHelper, IsReplacedByTheRuntime) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all(GetParam());
    run_loop_for(500);
    expect_to_show(page, m_peer.html(k_green_page));
}
INSTANTIATE_TEST_SUITE_P(All, KilledHelper, testing::Values("gpu-process", "utility"),
                         [](const auto& one) {
                             return std::string(one.param) == "utility" ? "Utility" : "Gpu";
                         });

// --- pages that never end

TEST_F(Hostile, APageThatNeverComesBackFromAScriptCloses) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('hanging', 1); while (true) {}");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("hanging") == 1; }));
    page.run("1");
    page->SetSize(200, 100);
    page->Repaint();
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(Hostile, APageThatNeverComesBackFromAScriptGivesWayToTheNext) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('hanging', 1); while (true) {}");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("hanging") == 1; }));
    expect_to_show(page, m_peer.html_of_other_origin(k_green_page));
}

TEST_F(Hostile, APageThatHangsWhileItLoadsCloses) {
    shown_page page({.url = m_peer.html("<script>while (true) {}</script>")});
    ASSERT_TRUE(wait_for([&] { return page->IsLoading(); }));
    run_loop_for(300);
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(Hostile, APageThatIsNeverSentWholeIsShownAsFarAsItCame) {
    shown_page page({.url = m_peer.url("/half")});
    EXPECT_TRUE(page.wait_for_colour(k_blue));
    EXPECT_TRUE(page->IsLoading());
    page.close();
}

TEST_F(Hostile, APageThatReloadsItselfForEverLetsTheNextOneIn) {
    shown_page page({.url = m_peer.html("<script>location.reload()</script>")});
    ASSERT_TRUE(wait_for([&] { return page.events.loaded.size() > 3; }));
    page.close();
}

// --- windows that pages open

TEST_F(Hostile, AWindowThatThePageOpensNeverReachesTheRenderer) {
    const std::string inner = m_peer.html(
        "<body style='margin:0;background:#0f0'><script>"
        "window.hostApp.execute('inner', document.visibilityState)</script>");
    shown_page page({.url = m_peer.html("<body style='margin:0;background:#f00'>"
                                        "<script>window.inner = open('" +
                                        inner + "', '', 'width=500,height=300')</script>")});
    bool strange = false;
    page.frames.on_frame = [&] {
        strange |= page.frames.size() != std::pair(64L, 48L) || page.frames.centre() == k_green;
    };
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("inner") == 1; }));
    run_loop_for(500);
    page->Repaint();
    EXPECT_TRUE(page.wait_for_colour(k_red));
    EXPECT_FALSE(strange);
    EXPECT_EQ(page.frames.popup_count(), 0);
    // What happens to that window's loads is not the display's affair.
    EXPECT_FALSE(page.events.has_loaded(inner));
    page.close();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(Hostile, WindowsWithoutEndAreRefusedAndGoWithTheDisplay) {
    shown_page page({.url = m_peer.html("<body style='margin:0;background:#f00'>")});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_TRUE(page.wait_for_colour(k_red));
    const std::string inner = m_peer.html_of_other_origin("<body style='background:#0f0'>");
    page.run(
        "window.opened = 0; window.tried = 0; window.timer = setInterval(() => {"
        "  tried++; if (open('" +
        inner +
        "', 'name' + tried)) opened++;"
        "  if (tried == 60) window.hostApp.execute('tried', opened); }, 10)");
    ASSERT_TRUE(wait_for([&] { return page.calls.argument_of("tried").has_value(); }));
    const int opened = std::stoi(*page.calls.argument_of("tried"));
    EXPECT_GT(opened, 0);
    EXPECT_LE(opened, 8);
    page.close();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(Hostile, AWindowThatClosesItselfMakesRoomForAnother) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    const std::string inner = m_peer.html("<script>setTimeout(close, 1)</script>");
    page.run(
        "window.opened = 0; setInterval(() => {"
        "  if (open('" +
        inner +
        "')) opened++;"
        "  if (opened == 20) window.hostApp.execute('opened', opened); }, 60)");
    EXPECT_TRUE(wait_for([&] { return page.calls.count_of("opened") > 0; }))
        << PrintToString(page.ask("return opened"));
}

TEST_F(Hostile, APageThatClosesItselfEndsItsDisplayQuietly) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.close()");
    EXPECT_TRUE(wait_for([&] {
        return page->ExecuteJavascript(zString("1"), 0, std::function<void(std::string)>()) == -1;
    }));
    page->SetSize(10, 10);
    page->Repaint();
    page->LoadUrl(m_peer.html("<body>").c_str());
    EXPECT_FALSE(page->IsLoading());
    page.close();
}

// --- what pages ask the user for: nobody is there to answer, and nothing may wait for it

struct request_case {
    const char* name;
    const char* script;  // says "settled" with the outcome when it goes on
    const char* outcome;
};
void PrintTo(const request_case& c, std::ostream* out) { *out << c.name; }

#define PROMISED(call)                   \
    "Promise.resolve().then(() => " call \
    ").then(v => say('granted ' + v), e => say(e.name || 'refused'))"

const request_case k_requests[] = {
    {"Camera", PROMISED("navigator.mediaDevices.getUserMedia({video: true})"), "NotAllowedError"},
    {"Microphone", PROMISED("navigator.mediaDevices.getUserMedia({audio: true})"),
     "NotAllowedError"},
    {"Screen", PROMISED("navigator.mediaDevices.getDisplayMedia()"), "NotAllowedError"},
    {"Position",
     PROMISED("new Promise((y, n) => navigator.geolocation.getCurrentPosition(y, "
              "e => n({name: 'code ' + e.code})))"),
     "code 1"},
    {"Notifications", PROMISED("Notification.requestPermission()"), "granted denied"},
    {"Midi", PROMISED("navigator.requestMIDIAccess({sysex: true})"), "NotAllowedError"},
    {"ClipboardRead", PROMISED("navigator.clipboard.readText()"), "NotAllowedError"},
    {"Alert", "alert('hello'); say('went on')", "went on"},
    {"Confirm", "say(String(confirm('sure?')))", "false"},
    {"Prompt", "say(String(prompt('name?')))", "null"},
    {"Print", "print(); say('went on')", "went on"},
    {"FileDialog",
     "const f = document.createElement('input'); f.type = 'file'; f.click(); say('went on')",
     "went on"},
    {"FullScreen", PROMISED("document.documentElement.requestFullscreen()"), "TypeError"},
    {"PointerLock",
     PROMISED("(document.body.requestPointerLock() || Promise.reject({name: 'no promise'}))"),
     "WrongDocumentError"},
};

class Request : public Hostile, public testing::WithParamInterface<request_case> {};

TEST_P(Request, IsSettledWithoutAUser) {
    shown_page page({.url = m_peer.html("<!doctype html><body style='background:#0f0;margin:0'>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run(std::string("const say = text => window.hostApp.execute('settled', text);") +
             GetParam().script);
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("settled") > 0; }));
    EXPECT_EQ(page.calls.argument_of("settled"), GetParam().outcome);
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
    EXPECT_TRUE(page.wait_for_colour(k_green));
}
INSTANTIATE_TEST_SUITE_P(All, Request, testing::ValuesIn(k_requests), case_name<request_case>);

TEST_F(Hostile, APageThatAsksBeforeItGoesIsNotAsked) {
    shown_page page({.url = m_peer.html("<script>addEventListener('beforeunload', e => {"
                                        "e.preventDefault(); e.returnValue = 'stay'; });"
                                        "onbeforeunload = () => 'stay'</script>")});
    ASSERT_TRUE(page.wait_until_loaded());
    const std::string next = m_peer.html("<body>next");
    page->LoadUrl(next.c_str());
    ASSERT_TRUE(wait_for([&] { return page.events.has_loaded(next); }));
    page->LoadUrl(m_peer.html("<script>onbeforeunload = () => 'stay'</script>").c_str());
    ASSERT_TRUE(wait_for([&] { return page.events.loaded.size() == 3; }));
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
}

TEST_F(Hostile, APageThatAlertsForEverCloses) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('on', 1); while (true) { alert('again'); confirm('?'); }");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("on") == 1; }));
    run_loop_for(300);
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
}

TEST_F(Hostile, APasswordIsNotAskedFor) {
    const std::string url = m_peer.url("/locked");
    shown_page page({.url = url});
    ASSERT_TRUE(wait_for([&] { return page.events.has_loaded(url); }))
        << PrintToString(page.events.failed);
    EXPECT_EQ(page.ask("return document.body.innerText"), "locked");
}

// --- what pages do to the user's machine

class UsersMachine : public Hostile {
protected:
    void prepare() override {
        setenv("HOME", m_home.path().c_str(), 1);
        // A stand-in for the program that opens addresses: it leaves a mark.
        const std::string opener = m_home.child("xdg-open");
        std::ofstream(opener) << "#!/bin/sh\ntouch " << m_home.child("opened") << "\n";
        chmod(opener.c_str(), 0755);
        setenv("PATH", (m_home.path() + ":" + std::getenv("PATH")).c_str(), 1);
    }
    std::vector<std::string> files_named(const std::string& part) const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_home.path())) {
            const std::string name = entry.path().filename().string();
            if (name.find(part) != std::string::npos) found.push_back(entry.path().string());
        }
        return found;
    }

    temporary_folder m_home;
};

TEST_F(UsersMachine, ADownloadSavesNothing) {
    shown_page page({.url = m_peer.url("/download")});
    run_loop_for(500);
    page->LoadUrl(m_peer
                      .html("<a id=a download=show.bin href='data:text/plain,hello'>x</a>"
                            "<script>a.click(); location = '" +
                            m_peer.url("/download") + "'</script>")
                      .c_str());
    EXPECT_TRUE(wait_for(
        [&] { return traces().find("a download by the page was refused") != std::string::npos; }));
    run_loop_for(500);
    EXPECT_TRUE(files_named("show").empty()) << PrintToString(files_named("show"));
    EXPECT_TRUE(files_named("crdownload").empty()) << PrintToString(files_named("crdownload"));
    const std::string next = m_peer.html("<body>next");
    page->LoadUrl(next.c_str());
    EXPECT_TRUE(wait_for([&] {
        if (!page->IsLoading()) page->LoadNextUrl();
        return page.events.has_loaded(next);
    }));
}

TEST_F(UsersMachine, NoProgramIsStartedForAnAddress) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl("mailto:somebody@host.example");
    page.run("location.href = 'tel:1234'");
    page.run("location.href = 'made-up-scheme:anything'");
    page.run("open('mailto:somebody@host.example')");
    page.run("document.body.innerHTML = '<iframe src=\"mailto:x@host.example\"></iframe>'");
    run_loop_for(1500);
    EXPECT_TRUE(files_named("opened").empty());
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
}

}  // namespace
}  // namespace pennywort::runtime_test
