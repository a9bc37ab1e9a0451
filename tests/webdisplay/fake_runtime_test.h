// fake_runtime_test.h - the ground of tests that run displays on the fake browser runtime.
//
// A runtime can be started once in a process, so each test needs a process of its own, which ctest
// gives it. A test ends with the runtime shut down, and fails if a rule of the runtime's interface
// was broken or anything of it was left behind.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/fakes/fake_cef.h"
#include "webdisplay.h"

// All three receivers of a host in one, writing down what they hear.
class recorder : public cBrowserVideoRendererInterface,
                 public cBrowserPageCallbackHandler,
                 public cBrowserJavascriptCallbackHandler {
public:
    struct frame {
        long width = 0, height = 0;
        bool is_popup = false;
        std::uint32_t number = 0;  // what the fake wrote into the first pixel
    };

    void GetSize(long& width, long& height) const override { width = height = 1; }
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override;
    void PageLoadFailed(const zString& url, const zString& error) override;
    void PageLoaded(const zString& url) override;
    bool PageRequest(const zString& url) override;
    void JavascriptCallback(const zString& name, const zString& argument, zString& result) override;

    bool heard(const std::string& event) const;

    std::vector<frame> frames;
    std::vector<std::string> events;    // "loaded URL", "failed URL: ERROR"
    std::vector<std::string> requests;  // URLs asked about
    std::vector<std::string> commands;  // "name(argument)"
    bool allow_requests = true;
    std::string command_answer;
    bool all_on_display_thread = true;
    std::function<void()> on_frame;
    std::function<void(const std::string& url)> on_request;  // before the answer
    std::function<void(const std::string& event)> on_event;
    std::function<void()> on_command;

private:
    void note_thread();
};

// A display with a recorder as its receivers, for the length of a scope.
class screen {
public:
    explicit screen(const zRecord& settings, double frame_rate = 25);
    screen(const screen&) = delete;
    screen& operator=(const screen&) = delete;
    ~screen();
    // Removes the receivers and gives the reference back.
    void release();

    cWebDisplayBrowser* operator->() const { return m_display; }
    cWebDisplayBrowser* get() const { return m_display; }
    cWebDisplayCEFBrowser& engine() const {
        return static_cast<cWebDisplayCEFBrowser&>(*m_display);
    }

    recorder seen;

private:
    cWebDisplayBrowser* m_display;
};

class FakeRuntimeTest : public testing::Test {
protected:
    FakeRuntimeTest();
    ~FakeRuntimeTest() override;
    void SetUp() override;
    void TearDown() override;

    static fake_cef& fake() { return *fake_cef_control(); }
    static fake_cef_script& script() { return fake().script(); }
    static const std::string& fake_folder();

    // Starts the runtime on this thread.
    void start();
    void shut_down();
    // Runs this thread's message loop until `done`; false if that does not come in a long time.
    static bool loop_until(const std::function<bool()>& done);
    // Runs it for so many more steps of the runtime.
    static void loop_works(int works);
    // Runs it until nothing more happens: the IO thread has answered and its answers have come.
    static void settle();
    // Runs it through some twenty steps of its own, which a timer of 15 ms has many ticks in.
    static void loop_a_while();

    static zRecord page(const char* url, int width = 64, int height = 36);
    // Opens a display and waits until its page has loaded.
    static void show(screen& shown);
    // Scripts that ran in the browser's main frame, in order.
    static std::vector<std::string> scripts_of(int browser);
    static int count_of(const std::vector<std::string>& list, const std::string& entry);

    // Rules that this test means to break, as they stand in violations().
    std::vector<std::string> m_expected_violations;
    std::filesystem::path m_folder;  // for this test, removed at its end
};
