// loam/loop_state_linux.cpp - Linux half of loam/loop_state.h, over GLib's main contexts. Windows
// half: loop_state_win.cpp.
//
// One source per context carries all posted work, woken by setting its ready time. A post costs no
// source of its own that way.
#include <glib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <utility>
#include <vector>

#include "loam/ended_loop.h"
#include "loam/loop_state.h"
#include "loam/message_loop.h"
#include "loam/posted_work.h"
#include "loam/thread_state.h"

namespace loam {
namespace {

using clock = std::chrono::steady_clock;

// The source belongs to the loop: it is destroyed, on the loop's thread, before the queue that it
// points to.
struct work_source {
    GSource base;
    posted_work* work;
};

gboolean dispatch_work(GSource* source, GSourceFunc, gpointer) {
    reinterpret_cast<work_source*>(source)->work->run_some();
    return G_SOURCE_CONTINUE;
}

GSourceFuncs k_work_functions = {nullptr, nullptr, dispatch_work, nullptr, nullptr, nullptr};

// The descriptors and the deadline of a context for one turn of it.
struct context_turn {
    std::vector<GPollFD> descriptors;
    int timeout_ms = -1;
};

context_turn query(GMainContext* context, int priority) {
    context_turn turn;
    int count = g_main_context_query(context, priority, &turn.timeout_ms, nullptr, 0);
    // Another thread may add a descriptor between the two questions.
    while (count > static_cast<int>(turn.descriptors.size())) {
        turn.descriptors.resize(static_cast<std::size_t>(count));
        count = g_main_context_query(context, priority, &turn.timeout_ms, turn.descriptors.data(),
                                     static_cast<int>(turn.descriptors.size()));
    }
    turn.descriptors.resize(static_cast<std::size_t>(count));
    return turn;
}

timespec timespec_of(clock::duration time) {
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
    return {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
}

// GLib's own poll counts in milliseconds, which would make the shortest wait of a host a whole one.
void wait_for(GMainContext* context, context_turn& turn, clock::duration at_most) {
    const auto count = static_cast<nfds_t>(turn.descriptors.size());
    auto wait = std::max(at_most, clock::duration::zero());
    if (turn.timeout_ms >= 0) {
        wait = std::min<clock::duration>(wait, std::chrono::milliseconds(turn.timeout_ms));
    }
    const GPollFunc poll_of_host = g_main_context_get_poll_func(context);
    if (poll_of_host != g_poll) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
        poll_of_host(turn.descriptors.data(), static_cast<guint>(count), static_cast<int>(ms));
        return;
    }
    static_assert(sizeof(GPollFD) == sizeof(pollfd), "GLib hands its descriptors to poll as well");
    const timespec time = timespec_of(wait);
    ::ppoll(reinterpret_cast<pollfd*>(turn.descriptors.data()), count, &time, nullptr);
}

// One turn of a context that the calling thread owns. Whether anything was dispatched.
bool turn_once(GMainContext* context, clock::duration at_most) {
    int priority = 0;
    g_main_context_prepare(context, &priority);
    context_turn turn = query(context, priority);
    wait_for(context, turn, at_most);
    const bool is_ready = g_main_context_check(context, priority, turn.descriptors.data(),
                                               static_cast<int>(turn.descriptors.size())) != 0;
    if (is_ready) g_main_context_dispatch(context);
    return is_ready;
}

class glib_loop final : public loop_state {
public:
    explicit glib_loop(GMainContext* context)
        : m_work([this] { g_source_set_ready_time(m_source, 0); },
                 [this] { g_source_set_ready_time(m_source, -1); }),
          m_context(g_main_context_ref(context)),
          m_source(g_source_new(&k_work_functions, sizeof(work_source))) {
        reinterpret_cast<work_source*>(m_source)->work = &m_work;
        g_source_set_name(m_source, "loam posted work");
        g_source_set_can_recurse(m_source, TRUE);
        g_source_set_ready_time(m_source, -1);
        g_source_attach(m_source, m_context);
    }

    ~glib_loop() override {
        end();
        g_source_unref(m_source);
        g_main_context_unref(m_context);
    }

    static std::shared_ptr<zMessageLoop> make_handle(const std::shared_ptr<glib_loop>& loop) {
        return handle_of(loop);
    }

    GMainContext* context() const { return m_context; }

    void run() override {
        while (!m_is_quit_asked.exchange(false)) g_main_context_iteration(m_context, TRUE);
    }

    bool run_once(std::uint32_t microseconds) override {
        const auto end = clock::now() + std::chrono::microseconds(microseconds);
        if (!g_main_context_acquire(m_context)) {
            // Another thread iterates this context just now; to return at once would make the
            // caller spin.
            sleep_micro(microseconds);
            return false;
        }
        bool has_done = turn_once(m_context, end - clock::now());
        // A turn may end early with nothing to do, when another thread has added a source.
        while (!has_done && clock::now() < end) has_done = turn_once(m_context, end - clock::now());
        g_main_context_release(m_context);
        return has_done;
    }

    zStatus post(std::function<void()> work) override {
        return m_work.post(std::move(work)) ? 0 : -1;
    }

    void request_quit() override {
        m_is_quit_asked.store(true);
        g_main_context_wakeup(m_context);
    }

    // On the loop's thread, when it ends or has no more use for this context. A second call does
    // nothing.
    void end() {
        m_work.close();
        g_source_destroy(m_source);
    }

    bool is_idle() { return m_work.is_idle(); }

private:
    posted_work m_work;  // first: what it throws for want of memory must leave no source behind
    GMainContext* const m_context;
    GSource* const m_source;
    std::atomic<bool> m_is_quit_asked{false};
};

// A context needs a descriptor to be woken by, and GLib ends the process where there is none.
bool is_descriptor_left() {
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor >= 0) ::close(descriptor);
    return descriptor >= 0;
}

// The one of the process, which GLib makes when it is asked for first. Null where it cannot.
GMainContext* shared_context() {
    static std::atomic<bool> s_is_made{false};
    if (!s_is_made && !is_descriptor_left()) return nullptr;
    s_is_made = true;
    return g_main_context_default();
}

// Has no destructor, unlike the loops, so that it can be asked after they have gone.
thread_local bool t_has_thread_ended = false;

// The loops of one thread: one per context that it has used, which is hardly ever more than one.
class thread_loops {
public:
    ~thread_loops() {
        t_has_thread_ended = true;
        for (const entry& one : m_entries) one.loop->end();
        m_entries.clear();
        if (m_own_context == nullptr) return;
        // Unless the host has left a context of its own above it.
        if (g_main_context_get_thread_default() == m_own_context) {
            g_main_context_pop_thread_default(m_own_context);
        }
        g_main_context_unref(m_own_context);
    }

    std::shared_ptr<zMessageLoop> current() {
        GMainContext* context = context_of_thread();
        if (context == nullptr) return ended_loop::make_handle();
        for (const entry& one : m_entries) {
            if (one.loop->context() == context) return one.handle;
        }
        forget_unused();
        auto loop = std::make_shared<glib_loop>(context);
        m_entries.push_back({loop, glib_loop::make_handle(loop)});
        return m_entries.back().handle;
    }

private:
    struct entry {
        std::shared_ptr<glib_loop> loop;
        std::shared_ptr<zMessageLoop> handle;
    };

    // Null where the system has no descriptor left for one.
    GMainContext* context_of_thread() {
        if (GMainContext* pushed = g_main_context_get_thread_default()) return pushed;
        GMainContext* const shared = shared_context();
        if (shared == nullptr) return nullptr;
        if (is_main_thread() || g_main_context_is_owner(shared)) return shared;
        if (m_own_context == nullptr && !is_descriptor_left()) return nullptr;
        if (m_own_context == nullptr) m_own_context = g_main_context_new();
        g_main_context_push_thread_default(m_own_context);
        return m_own_context;
    }

    // A host that pushes a new context for every job must not leave a loop behind for each.
    void forget_unused() {
        std::erase_if(m_entries, [](const entry& one) {
            const bool unused = one.handle.use_count() == 1 && one.loop->is_idle();
            if (unused) one.loop->end();
            return unused;
        });
    }

    std::vector<entry> m_entries;
    GMainContext* m_own_context = nullptr;
};

}  // namespace

std::shared_ptr<zMessageLoop> loop_state::current() {
    if (t_has_thread_ended) return ended_loop::make_handle();
    static thread_local thread_loops loops;
    return loops.current();
}

}  // namespace loam
