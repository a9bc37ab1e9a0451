// examples/hundred_frames.cpp - the smallest host: opens a page, takes 100 frames of it and ends.
//
//   hundred_frames [URL]
#include <cstdint>
#include <cstdio>

#include "loam/message_loop.h"
#include "loam/record.h"
#include "loam/string.h"
#include "webdisplay.h"

namespace {

constexpr long k_width = 1280;
constexpr long k_height = 720;
constexpr int k_frames = 100;
constexpr double k_frame_rate = 50;

constexpr const char* k_page =
    "data:text/html,<body style='background:navy;color:white;font:bold 20vh sans-serif'>"
    "<script>setInterval(() => document.body.textContent = Date.now() % 100000, 10)</script>";

// A mixer would upload the pixels as a texture here. They are gone when the call returns.
class frame_taker : public cBrowserVideoRendererInterface {
public:
    void GetSize(long& width, long& height) const override {
        width = k_width;
        height = k_height;
    }

    void BrowserPainted(const void* pixels, long width, long height, bool) override {
        const auto* bgra = static_cast<const std::uint8_t*>(pixels);
        const auto* middle = bgra + (height / 2 * width + width / 2) * 4;
        std::printf("frame %3d  %ldx%ld  in the middle: blue %3d green %3d red %3d alpha %3d\n",
                    ++m_count, width, height, middle[0], middle[1], middle[2], middle[3]);
        if (m_count == k_frames) zMessageLoop::Quit();
    }

private:
    int m_count = 0;
};

// Says when there is nothing to wait for. The page of an error is a page too, and paints frames.
class page_listener : public cBrowserPageCallbackHandler {
public:
    void PageLoadFailed(const zString& url, const zString& error) override {
        std::fprintf(stderr, "%s: %s\n", url.CString(), error.CString());
    }
};

bool start_runtime() {
    using manager = cWebDisplayCEFBrowserManager;
    manager::SetPacing(cWebDisplayPacing::OnRequest);
    manager::AddCommandLineSwitch("ozone-platform", "headless");  // needs no X server
    manager::AddCommandLineSwitch("disable-gpu-compositing", nullptr);
    if (manager::Startup("")) return true;
    zString reason;
    manager::GetStartupFailure(reason);
    std::fprintf(stderr, "%s\n", reason.CString());
    return false;
}

void show(const char* url) {
    zRecord settings;
    settings.SetInt32("web_width", k_width);
    settings.SetInt32("web_height", k_height);
    settings.SetString("web_url", url);

    frame_taker frames;
    page_listener listener;
    cWebDisplayBrowser* display =
        cWebDisplayCEFBrowserManager::CreateBrowser(settings, k_frame_rate);
    display->SetVideoRenderer(&frames);
    display->SetPageCallbackReceiver(&listener);
    if (display->Open()) zMessageLoop::Run();

    display->SetVideoRenderer(nullptr);
    display->SetPageCallbackReceiver(nullptr);
    display->Close();
    display->Release();
}

}  // namespace

int main(int argc, char** argv) {
    const bool has_started = start_runtime();
    if (has_started) show(argc > 1 ? argv[1] : k_page);
    cWebDisplayCEFBrowserManager::Shutdown();
    return has_started ? 0 : 1;
}
