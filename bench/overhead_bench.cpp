// overhead_bench.cpp - what lies between the runtime's paint callback and the host's renderer.
//
// The callback struct is called as the runtime calls it: the render handler is asked for at every
// frame, and the paint callback owns the reference to the browser that it is given. No runtime is
// needed. A copy of the pixels or an allocation is reported as an error, since there must be none.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "bench/allocation_count.h"
#include "loam/record.h"
#include "webdisplay/webdisplay_browser_client.h"

namespace {

using steady = std::chrono::steady_clock;
using pennywort::bench::allocations;
using pennywort::webdisplay::webdisplay_browser_client;

// A browser of the runtime, as far as a frame needs one; it belongs to the benchmark.
struct runtime_browser {
    cef_browser_t c{};
    long references = 0;

    runtime_browser() {
        c.base.size = sizeof c;
        c.base.add_ref = [](cef_base_ref_counted_t* self) { ++of(self)->references; };
        c.base.release = [](cef_base_ref_counted_t* self) {
            return --of(self)->references == 0 ? 1 : 0;
        };
        c.is_popup = [](cef_browser_t*) { return 0; };
        c.get_identifier = [](cef_browser_t*) { return 1; };
    }
    static runtime_browser* of(void* self) { return static_cast<runtime_browser*>(self); }
    // A reference for a callback, which drops it.
    cef_browser_t* lent() {
        ++references;
        return &c;
    }
};

class last_frame final : public cBrowserVideoRendererInterface {
public:
    void GetSize(long& width, long& height) const override { width = height = 16; }
    void BrowserPainted(const void* pixels, long, long, bool) override {
        m_arrived = steady::now();
        m_pixels = pixels;
        ++m_frames;
    }
    const void* pixels() const { return m_pixels; }
    long frames() const { return m_frames; }
    steady::time_point arrived() const { return m_arrived; }

private:
    steady::time_point m_arrived;
    const void* m_pixels = nullptr;
    long m_frames = 0;
};

// A display with its client, such as Open makes them.
struct painted_display {
    runtime_browser browser;
    last_frame renderer;
    cWebDisplayBrowser* display = cWebDisplayCEFBrowserManager::CreateBrowser(zRecord(), 60);
    webdisplay_browser_client* client =
        new webdisplay_browser_client(static_cast<cWebDisplayCEFBrowser*>(display), "",
                                      std::shared_ptr<zSignal>(zSignal::Factory()));
    cef_client_t* c_client = static_cast<pennywort::cef::CefClient*>(client)->counted_client();

    painted_display() {
        client->set_alive();
        display->SetVideoRenderer(&renderer);
    }
    painted_display(const painted_display&) = delete;
    painted_display& operator=(const painted_display&) = delete;
    ~painted_display() {
        client->detach();
        c_client->base.release(&c_client->base);
        client->Release();
        display->Release();
    }

    void paint(const std::vector<std::uint32_t>& pixels, int width, int height) {
        const cef_rect_t dirty{0, 0, width, height};
        cef_render_handler_t* handler = c_client->get_render_handler(c_client);
        handler->on_paint(handler, browser.lent(), PET_VIEW, 1, &dirty, pixels.data(), width,
                          height);
        handler->base.release(&handler->base);
    }
};

struct size_case {
    int width;
    int height;
};
constexpr size_case k_sizes[] = {{1280, 720}, {1920, 1080}, {3840, 2160}};

void check(benchmark::State& state, const painted_display& display, const void* sent,
           std::uint64_t allocated) {
    if (display.renderer.pixels() != sent) state.SkipWithError("the pixels were copied");
    if (allocated != 0) state.SkipWithError("frames cost allocations");
    if (display.renderer.frames() == 0) state.SkipWithError("no frame reached the renderer");
    if (display.browser.references != 0) state.SkipWithError("a reference was not dropped");
    state.counters["allocations"] = static_cast<double>(allocated);
}

// Runs `one_frame(display, pixels, size)` for each round on a display that has painted before.
template <class OneFrame>
void measure(benchmark::State& state, const OneFrame& one_frame) {
    const size_case size = k_sizes[state.range(0)];
    const std::vector<std::uint32_t> pixels(static_cast<std::size_t>(size.width) * size.height);
    painted_display display;
    display.paint(pixels, size.width, size.height);
    const std::uint64_t before = allocations();
    std::uint64_t after = before;
    for (auto _ : state) {
        one_frame(display, pixels, size);
        after = allocations();
    }
    check(state, display, pixels.data(), after - before);
}

// The callback whole, from the question for the handler to the release of it.
void paint_callback(benchmark::State& state) {
    measure(state, [](painted_display& display, const auto& pixels, size_case size) {
        display.paint(pixels, size.width, size.height);
    });
}

// The way to the renderer only, with the two readings of the clock in it.
void callback_to_renderer(benchmark::State& state) {
    measure(state, [&](painted_display& display, const auto& pixels, size_case size) {
        const auto called = steady::now();
        display.paint(pixels, size.width, size.height);
        const std::chrono::duration<double> way = display.renderer.arrived() - called;
        state.SetIterationTime(way.count());
    });
}

BENCHMARK(paint_callback)->DenseRange(0, 2);
BENCHMARK(callback_to_renderer)->DenseRange(0, 2)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
