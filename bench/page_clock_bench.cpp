// page_clock_bench.cpp - how fast a page goes by a clock of its own, and whether two runs are
// equal: one line of --sums for each frame, the number of the frame and a sum of its picture.
#include <cstdio>
#include <string>

#include "bench/bench_host.h"
#include "loam/message_loop.h"
#include "loam/record.h"

namespace {

using namespace pennywort::bench;

constexpr char k_usage[] =
    "page_clock_bench URL [--frames N] [--size WxH] [--fps N] [--sums FILE] [--seconds S] "
    "[--displays N] [--pacing timer|request] [--host-clock 0|1] [--loop library|system]";
constexpr std::size_t k_ahead = 2;  // frames that are asked for before the one before has ended
constexpr double k_longest_wait_ms = 60'000;
constexpr double k_us_per_s = 1e6;

class film final : public cBrowserVideoRendererInterface, public cBrowserPageCallbackHandler {
public:
    film(const host_options& options, int frames, std::FILE* sums)
        : m_options(options), m_frames(frames), m_sums(sums) {
        zRecord settings;
        settings.SetInt32("web_width", options.width);
        settings.SetInt32("web_height", options.height);
        settings.SetString("web_url", options.url);
        settings.SetBool("web_page_clock", true);
        settings.SetDouble("web_page_day", 1'700'000'000);
        m_browser = cWebDisplayCEFBrowserManager::CreateBrowser(settings, options.fps);
        m_browser->SetVideoRenderer(this);
        m_browser->SetPageCallbackReceiver(this);
    }
    film(const film&) = delete;
    film& operator=(const film&) = delete;
    ~film() override {
        m_browser->SetVideoRenderer(nullptr);
        m_browser->SetPageCallbackReceiver(nullptr);
        m_browser->Close();
        m_browser->Release();
    }

    // Whether all frames came. They are counted from the moment at which the page stood.
    bool take() {
        if (!m_browser->Open() || !wait([this] { return m_is_loaded; })) return false;
        const auto begin = steady::now();
        for (std::size_t n = 0; n < k_ahead; ++n) ask();
        const bool came = wait([this] { return m_ended >= m_frames; });
        m_seconds = ms_between(begin, steady::now()) / 1000;
        return came && m_failed == 0;
    }
    void report() const {
        std::printf(
            "{\"frames\":%d,\"seconds\":%.2f,\"frames_s\":%.1f,\"painted\":%d,\"unchanged\":%d,"
            "\"failed\":%d}\n",
            m_ended, m_seconds, m_ended / m_seconds, m_painted, m_unchanged, m_failed);
    }

private:
    void GetSize(long& width, long& height) const override {
        width = m_options.width;
        height = m_options.height;
    }
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override {
        if (isPopup || m_sums == nullptr) return;
        const auto* words = static_cast<const std::uint64_t*>(pixels);
        m_sum = 1469598103934665603ull;
        for (long i = 0; i < width * height / 2; ++i) m_sum = (m_sum ^ words[i]) * 1099511628211ull;
    }
    void PageLoaded(const zString&) override { m_is_loaded = true; }

    // One more frame than counted: it tells how the last one ended.
    void ask() {
        if (m_asked > m_frames) return;
        const double moment = m_asked++ * k_us_per_s / m_options.fps;
        m_browser->AdvancePage(static_cast<std::int64_t>(moment + 0.5),
                               [this](cWebDisplayPageFrame how) { ended(how); });
    }
    void ended(cWebDisplayPageFrame how) {
        if (how == cWebDisplayPageFrame::Failed) ++m_failed;
        if (m_ended == m_frames) return;
        ++(how == cWebDisplayPageFrame::Painted ? m_painted : m_unchanged);
        if (m_sums != nullptr) {
            std::fprintf(m_sums, "%d %016llx\n", m_ended, static_cast<unsigned long long>(m_sum));
        }
        ++m_ended;
        if (m_failed == 0) ask();
    }
    template <class Condition>
    bool wait(Condition is_over) const {
        auto since = steady::now();
        for (int before = m_ended; !is_over() && m_failed == 0;) {
            zMessageLoop::RunOnce(10'000);
            if (m_ended != before) since = steady::now();
            before = m_ended;
            if (ms_between(since, steady::now()) > k_longest_wait_ms) return false;
        }
        return m_failed == 0;
    }

    const host_options m_options;
    const int m_frames;
    std::FILE* const m_sums;
    cWebDisplayBrowser* m_browser = nullptr;
    bool m_is_loaded = false;
    int m_asked = 0;
    int m_ended = 0;
    int m_painted = 0;
    int m_unchanged = 0;
    int m_failed = 0;
    double m_seconds = 1;
    std::uint64_t m_sum = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const arguments given(argc, argv, 1, k_usage);
    const host_options options = host_options::from(given, k_usage);
    const std::string path = given.text("--sums", "");
    std::FILE* const sums = path.empty() ? nullptr : std::fopen(path.c_str(), "w");
    cWebDisplayCEFBrowserManager::EnablePageClock(7);
    bool is_done = start_runtime(options.pacing);
    if (is_done) {
        film one(options, given.whole("--frames", 250), sums);
        is_done = one.take();
        one.report();
    }
    cWebDisplayCEFBrowserManager::Shutdown();
    if (sums != nullptr && std::fclose(sums) != 0) is_done = false;
    return is_done ? 0 : 1;
}
