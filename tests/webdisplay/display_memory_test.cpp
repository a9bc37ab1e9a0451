// display_memory_test.cpp - the life of a display with each allocation failing in turn: whatever is
// lost of it, the browser closes and the next display works.
#include <new>

#include "tests/support/failing_memory.h"
#include "tests/webdisplay/fake_runtime_test.h"
#include "webdisplay/live_browsers.h"
#include "webdisplay/message_pump.h"

namespace {

namespace live_browsers = pennywort::webdisplay::live_browsers;
using pennywort::webdisplay::message_pump;

class DisplayMemoryTest : public FakeRuntimeTest {
protected:
    // Lets all that waits happen, without waiting for time to pass.
    static void drive() {
        for (int step = 0; step < 8; ++step) {
            message_pump::work_once();
            fake().settle_io();
        }
    }

    // Opens, loads twice, paints, runs a script that has a result, and closes.
    void live() {
        cWebDisplayBrowser* display = cWebDisplayCEFBrowserManager::CreateBrowser(m_settings, 25);
        if (display == nullptr) return;
        display->SetVideoRenderer(&m_seen);
        display->SetPageCallbackReceiver(&m_seen);
        display->SetJavascriptCallbackReceiver(&m_seen);
        display->Open();
        drive();
        display->LoadUrl("http://b/which-is-no-short-text-that-fits-into-a-string/");
        drive();
        display->ExecuteJavascript(m_script, 1000UL, m_on_result);
        drive();
        display->Repaint();
        cWebDisplayPageStatus status;
        display->GetPageStatus(status);
        drive();
        display->SetVideoRenderer(nullptr);
        display->SetPageCallbackReceiver(nullptr);
        display->SetJavascriptCallbackReceiver(nullptr);
        display->Close();
        display->Release();
    }

    // What the page does of itself; whether that finds memory is no affair of the display.
    static void answer_script(int browser, const std::string& code) {
        try {
            const std::size_t at = code.find("wait-result:");
            if (at == std::string::npos) return;
            const std::string id = code.substr(at + 12, code.find('\'', at) - at - 12);
            const std::string command = "thinternal-javascript-wait-result:" + id;
            fake().message(browser, "execute",
                           {std::u16string(command.begin(), command.end()), std::u16string(u"1")});
        } catch (const std::bad_alloc&) {
        }
    }

    static int open_browsers() {
        int open = 0;
        for (int i = 1; i <= fake().browser_count(); ++i) open += fake().browser(i).closed ? 0 : 1;
        return open;
    }

    zRecord m_settings = page("http://a/which-is-no-short-text-that-fits-into-a-string/");
    zString m_script{"return 1"};
    std::function<void(std::string)> m_on_result = [this](const std::string&) { ++m_results; };
    int m_results = 0;
    recorder m_seen;
};

TEST_F(DisplayMemoryTest, ABrowserClosesWhateverMemoryItsDisplayLacked) {
    start();
    script().on_script = answer_script;
    const int failed =
        with_each_allocation_failing([this] { live(); },
                                     [] {
                                         drive();
                                         ASSERT_EQ(open_browsers(), 0);
                                         live_browsers::forget_all();  // the memory of the list too
                                     });
    EXPECT_GT(failed, 50);
    EXPECT_GT(m_results, 0);
    screen next(page("http://c/"));
    show(next);
    EXPECT_TRUE(next.seen.heard("loaded http://c/"));
}

}  // namespace
