// main_thread_timer_linux.cpp - Linux half of main_thread_timer.h. Windows half:
// main_thread_timer_win.cpp.
//
// A timerfd inside a GLib source, and not GLib's own timeout: it can be set from any thread without
// waking the loop for nothing, it keeps a period without drift, and it is not rounded to
// milliseconds.
#include "webdisplay/main_thread_timer.h"

#include <glib.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <utility>

#include "core/run/clock.h"
#include "loam/message_loop.h"
#include "loam/trace.h"

namespace pennywort::webdisplay {

namespace {

constexpr std::int64_t k_nobody_asked = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t k_ns_per_us = 1000;
constexpr std::int64_t k_ns_per_ms = 1'000'000;
constexpr std::int64_t k_ns_per_s = 1'000'000'000;
constexpr std::int64_t k_longest_delay_ns = 60'000'000'000;

// Of the clock that the timer counts by, too.
std::int64_t now_ns() {
    return std::chrono::nanoseconds(run::monotonic_clock::system().now().time_since_epoch())
        .count();
}

timespec as_timespec(std::int64_t ns) { return {ns / k_ns_per_s, ns % k_ns_per_s}; }

class linux_timer final : public main_thread_timer,
                          public std::enable_shared_from_this<linux_timer> {
public:
    explicit linux_timer(std::function<void()> tick)
        : m_tick(std::move(tick)),
          m_descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}

    ~linux_timer() override {
        linux_timer::stop();
        if (m_descriptor >= 0) ::close(m_descriptor);
    }

    bool is_usable() const { return m_descriptor >= 0; }

    void start_periodic(int period_ms) override {
        m_is_periodic = true;
        const timespec period = as_timespec(period_ms * k_ns_per_ms);
        const itimerspec setting{period, period};
        timerfd_settime(m_descriptor, 0, &setting, nullptr);
        attach();
    }

    void start_on_request(int idle_ms) override {
        m_idle_us = static_cast<gint64>(idle_ms) * 1000;
        attach();
        m_idle_at_us = g_get_monotonic_time() + m_idle_us;
    }

    void stop() override {
        if (m_source == nullptr) return;
        g_source_destroy(m_source);
        g_source_unref(m_source);
        m_source = nullptr;
    }

    void request_in(std::chrono::nanoseconds delay) override {
        if (m_is_periodic.load(std::memory_order_relaxed)) return;
        const std::int64_t delay_ns =
            std::clamp<std::int64_t>(delay.count(), 0, k_longest_delay_ns);
        const std::int64_t due = std::max(now_ns() + delay_ns, m_rest_until_ns.load());
        std::int64_t asked = m_due_ns.load();
        do {
            if (asked <= due) return;
        } while (!m_due_ns.compare_exchange_weak(asked, due));
        arm();
    }

    void rest(std::int64_t us) override { m_rest_until_ns = now_ns() + us * k_ns_per_us; }

private:
    // A GSource is allocated by GLib with room for what stands behind it.
    struct source_block {
        GSource base;
        linux_timer* timer;
    };

    // Two threads may ask at once, and the one with the later time may set the timer last: set it
    // again until it stands at what was asked for.
    void arm() {
        std::int64_t due = m_due_ns.load();
        while (due != k_nobody_asked) {
            // A time in the past fires at once, so an absolute time needs no special case for 0.
            const itimerspec setting{{0, 0}, as_timespec(due)};
            timerfd_settime(m_descriptor, TFD_TIMER_ABSTIME, &setting, nullptr);
            const std::int64_t asked = m_due_ns.load();
            if (asked == due) return;
            due = asked;
        }
    }

    static linux_timer& timer_of(GSource* source) {
        return *reinterpret_cast<source_block*>(source)->timer;
    }

    // The idle deadline stands here and not in the source's ready time: to set that wakes the loop,
    // so that every tick would cost a second turn of the loop for nothing.
    static gboolean prepare(GSource* source, gint* timeout_ms) {
        const gint64 idle_at_us = timer_of(source).m_idle_at_us;
        *timeout_ms = -1;
        if (idle_at_us == 0) return FALSE;
        const gint64 left_us = std::max<gint64>(idle_at_us - g_source_get_time(source), 0);
        *timeout_ms = static_cast<gint>((left_us + 999) / 1000);
        return left_us == 0;
    }

    // GLib looks at the descriptor itself.
    static gboolean check(GSource* source) {
        const gint64 idle_at_us = timer_of(source).m_idle_at_us;
        return idle_at_us != 0 && g_source_get_time(source) >= idle_at_us;
    }

    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        // The tick may end the pump that owns the timer.
        const auto timer = timer_of(source).shared_from_this();
        timer->on_due();
        return G_SOURCE_CONTINUE;
    }

    void attach() {
        static GSourceFuncs functions{prepare, check, dispatch, nullptr, nullptr, nullptr};
        stop();
        m_source = g_source_new(&functions, sizeof(source_block));
        reinterpret_cast<source_block*>(m_source)->timer = this;
        g_source_set_name(m_source, "cWebMainThreadTimerLoop");
        // The runtime may iterate the loop within its own work; the depth counter of the pump
        // decides what becomes of such a tick, as on Windows.
        g_source_set_can_recurse(m_source, TRUE);
        g_source_add_unix_fd(m_source, m_descriptor, G_IO_IN);
        g_source_attach(m_source, g_main_context_get_thread_default());
    }

    // A tick that came for another reason leaves a request for later as it is.
    void forget_if_due() {
        std::int64_t asked = m_due_ns.load();
        if (asked <= now_ns()) m_due_ns.compare_exchange_strong(asked, k_nobody_asked);
    }

    void on_due() {
        std::uint64_t expirations = 0;
        while (::read(m_descriptor, &expirations, sizeof expirations) < 0 && errno == EINTR) {
        }
        // Forgotten after the timer was read and before the work starts: a request made in between
        // is served by this tick, and one made during the work arms the timer anew.
        forget_if_due();
        m_tick();
        if (m_idle_us > 0) m_idle_at_us = g_get_monotonic_time() + m_idle_us;
    }

    const std::function<void()> m_tick;
    const int m_descriptor;
    GSource* m_source = nullptr;
    gint64 m_idle_us = 0;
    gint64 m_idle_at_us = 0;  // when a tick comes that nobody asked for; 0: never
    std::atomic<bool> m_is_periodic{false};
    std::atomic<std::int64_t> m_rest_until_ns{0};
    std::atomic<std::int64_t> m_due_ns{k_nobody_asked};
};

}  // namespace

std::shared_ptr<main_thread_timer> main_thread_timer::make(std::function<void()> tick) {
    // Settles which GLib context is this thread's own before anything is attached to it.
    zMessageLoop::Current();
    auto timer = std::make_shared<linux_timer>(std::move(tick));
    if (timer->is_usable()) return timer;
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowserManager: timerfd_create - failed (errno=%d)\n", errno);
    return nullptr;
}

}  // namespace pennywort::webdisplay
