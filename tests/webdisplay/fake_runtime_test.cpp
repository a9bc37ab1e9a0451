// fake_runtime_test.cpp - see the header.
#include "tests/webdisplay/fake_runtime_test.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "loam/message_loop.h"
#include "tests/webdisplay/test_process.h"

namespace {

std::thread::id g_display_thread;

std::filesystem::path new_folder() {
    std::random_device random;
    // Short, because the path of a socket below it has to fit into 107 bytes.
    const std::string name = "test-" + std::to_string(random());
    const auto folder = std::filesystem::temp_directory_path() / name;
    std::filesystem::create_directories(folder);
    return folder;
}

}  // namespace

void recorder::note_thread() {
    if (std::this_thread::get_id() != g_display_thread) all_on_display_thread = false;
}

void recorder::BrowserPainted(const void* pixels, long width, long height, bool isPopup) {
    note_thread();
    frame painted{width, height, isPopup, 0};
    std::memcpy(&painted.number, pixels, sizeof painted.number);
    frames.push_back(painted);
    if (on_frame) on_frame();
}

void recorder::PageLoadFailed(const zString& url, const zString& error) {
    note_thread();
    events.push_back(std::string("failed ") + url.CString() + ": " + error.CString());
    if (on_event) on_event(events.back());
}

void recorder::PageLoaded(const zString& url) {
    note_thread();
    events.push_back(std::string("loaded ") + url.CString());
    if (on_event) on_event(events.back());
}

bool recorder::PageRequest(const zString& url) {
    note_thread();
    requests.emplace_back(url.CString());
    if (on_request) on_request(requests.back());
    return allow_requests;
}

void recorder::JavascriptCallback(const zString& name, const zString& argument, zString& result) {
    note_thread();
    commands.push_back(std::string(name.View()) + "(" + std::string(argument.View()) + ")");
    result = command_answer;
    if (on_command) on_command();
}

bool recorder::heard(const std::string& event) const {
    return std::find(events.begin(), events.end(), event) != events.end();
}

screen::screen(const zRecord& settings, double frame_rate)
    : m_display(cWebDisplayCEFBrowserManager::CreateBrowser(settings, frame_rate)) {
    m_display->SetVideoRenderer(&seen);
    m_display->SetPageCallbackReceiver(&seen);
    m_display->SetJavascriptCallbackReceiver(&seen);
}

screen::~screen() { release(); }

void screen::release() {
    if (!m_display) return;
    m_display->SetVideoRenderer(nullptr);
    m_display->SetPageCallbackReceiver(nullptr);
    m_display->SetJavascriptCallbackReceiver(nullptr);
    m_display->Release();
    m_display = nullptr;
}

FakeRuntimeTest::FakeRuntimeTest() = default;
FakeRuntimeTest::~FakeRuntimeTest() = default;

const std::string& FakeRuntimeTest::fake_folder() {
    static const std::string folder = FAKE_RUNTIME_FOLDER;
    return folder;
}

void FakeRuntimeTest::SetUp() {
    static int tests = 0;
    ASSERT_EQ(tests++, 0) << "run one of these tests per process, as ctest does";
    g_display_thread = std::this_thread::get_id();
    m_folder = new_folder();
    test_process::set_variable("CEF_ROOT", fake_folder());
    test_process::use_folders((m_folder / "config").string(), m_folder.string());
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) test_process::clear_variable(name);
}

void FakeRuntimeTest::TearDown() {
    shut_down();
    EXPECT_EQ(fake().violations(), m_expected_violations);
    EXPECT_EQ(fake().leaks(), "");
    EXPECT_EQ(fake().held(), "");
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

void FakeRuntimeTest::start() {
    zString failure;
    const bool started = cWebDisplayCEFBrowserManager::Startup("");
    cWebDisplayCEFBrowserManager::GetStartupFailure(failure);
    ASSERT_TRUE(started) << failure.CString();
}

void FakeRuntimeTest::shut_down() { cWebDisplayCEFBrowserManager::Shutdown(); }

bool FakeRuntimeTest::loop_until(const std::function<bool()>& done) {
    constexpr int k_most_rounds = 6000;
    constexpr std::uint32_t k_round_us = 10000;
    for (int round = 0; round < k_most_rounds; ++round) {
        if (done()) return true;
        zMessageLoop::RunOnce(k_round_us);
    }
    return done();
}

void FakeRuntimeTest::loop_works(int works) {
    const long last = fake().works() + works;
    ASSERT_TRUE(loop_until([last] { return fake().works() >= last; }));
}

void FakeRuntimeTest::settle() {
    for (int hop = 0; hop < 4; ++hop) {
        fake().settle_io();
        loop_works(1);
    }
}

void FakeRuntimeTest::loop_a_while() {
    for (int i = 0; i < 20; ++i) zMessageLoop::RunOnce(20000);
}

zRecord FakeRuntimeTest::page(const char* url, int width, int height) {
    zRecord settings;
    settings.SetCString("web_url", url);
    settings.SetInt32("web_width", width);
    settings.SetInt32("web_height", height);
    return settings;
}

void FakeRuntimeTest::show(screen& shown) {
    const std::size_t before = shown.seen.events.size();
    ASSERT_TRUE(shown->Open());
    ASSERT_TRUE(
        loop_until([&] { return shown.seen.events.size() > before && !shown->IsLoading(); }));
    settle();
}

std::vector<std::string> FakeRuntimeTest::scripts_of(int browser) {
    std::vector<std::string> codes;
    for (const auto& ran : fake().scripts()) {
        if (ran.browser == browser && ran.main_frame) codes.push_back(ran.code);
    }
    return codes;
}

int FakeRuntimeTest::count_of(const std::vector<std::string>& list, const std::string& entry) {
    return static_cast<int>(std::count(list.begin(), list.end(), entry));
}
