// socket_events_linux.cpp - Linux half of socket_events.h. Windows half: socket_events_win.cpp.
//
// A GLib source for each socket, on the context that zMessageLoop uses on the thread, so that any
// loop of the host's which iterates that context serves.
#include "discovery/socket_events.h"

#include <glib.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "core/run/deadline.h"
#include "loam/message_loop.h"
#include "loam/trace.h"

namespace pennywort::discovery {

namespace {

// Says to whoever asks later whether the thread that it stands for is still there.
class thread_mark {
public:
    ~thread_mark() { m_has_ended->store(true); }
    static std::shared_ptr<const std::atomic<bool>> of_this_thread() {
        static thread_local const thread_mark s_mark;
        return s_mark.m_has_ended;
    }

private:
    std::shared_ptr<std::atomic<bool>> m_has_ended = std::make_shared<std::atomic<bool>>(false);
};

GMainContext* context_of_thread() {
    // Settles which context is this thread's own.
    zMessageLoop::Current();
    GMainContext* const own = g_main_context_get_thread_default();
    return own != nullptr ? own : g_main_context_default();
}

class glib_events final : public socket_events {
public:
    explicit glib_events(arrived call)
        : m_call(std::make_shared<const arrived>(std::move(call))),
          m_has_thread_ended(thread_mark::of_this_thread()),
          m_context(g_main_context_ref(context_of_thread())) {}

    ~glib_events() override {
        for (const watched& one : m_watched) end(one.source);
        g_main_context_unref(m_context);
    }

    bool watch(int socket, int number) override {
        if (m_has_thread_ended->load()) {
            zTraceManager::Default()->TraceNote(
                "cBonjour: the thread that registered or observed first has ended\n");
            return false;
        }
        if (socket < 0) return false;
        if (number < 0) return true;
        m_watched.reserve(m_watched.size() + 1);
        GSource* const source = make_source(number);
        g_source_add_unix_fd(source, socket, G_IO_IN);
        m_watched.push_back({socket, source});
        g_source_attach(source, m_context);
        return true;
    }

    void unwatch(int socket) override {
        std::erase_if(m_watched, [socket](const watched& one) {
            if (one.socket == socket) end(one.source);
            return one.socket == socket;
        });
    }

private:
    struct watched {
        int socket;
        GSource* source;
    };
    // A GSource is allocated by GLib with room for what stands behind it.
    struct source_block {
        GSource base;
        std::shared_ptr<const arrived>* call;
        int number;
    };

    static void end(GSource* source) {
        g_source_destroy(source);
        g_source_unref(source);
    }

    GSource* make_source(int number) const {
        static GSourceFuncs functions{nullptr, nullptr, dispatch, finalize, nullptr, nullptr};
        auto call = std::make_unique<std::shared_ptr<const arrived>>(m_call);
        GSource* const source = g_source_new(&functions, sizeof(source_block));
        auto* const block = reinterpret_cast<source_block*>(source);
        block->call = call.release();
        block->number = number;
        g_source_set_name(source, "cBonjour");
        return source;
    }

    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        const auto* const block = reinterpret_cast<source_block*>(source);
        // The call may end this source, and what it calls with it.
        const std::shared_ptr<const arrived> call = *block->call;
        return (*call)(block->number) ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
    }

    static void finalize(GSource* source) { delete reinterpret_cast<source_block*>(source)->call; }

    const std::shared_ptr<const arrived> m_call;
    const std::shared_ptr<const std::atomic<bool>> m_has_thread_ended;
    GMainContext* const m_context;
    std::vector<watched> m_watched;
};

}  // namespace

std::unique_ptr<socket_events> socket_events::make(arrived call) {
    return std::make_unique<glib_events>(std::move(call));
}

// poll and not select, which takes no descriptor above 1023.
arrival wait_for_arrival(int socket, int timeout_ms) {
    if (socket < 0) return arrival::failed;
    const run::deadline end{std::chrono::milliseconds(timeout_ms)};
    pollfd one{socket, POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&one, 1, end.left_ms());
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) {
        const int error = errno;
        zTraceManager::Default()->TraceNote("cBonjour: poll failed (err=%d)\n", error);
    }
    if (ready == 0) return arrival::timed_out;
    return ready < 0 || (one.revents & POLLNVAL) != 0 ? arrival::failed : arrival::there;
}

}  // namespace pennywort::discovery
