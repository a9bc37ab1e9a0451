// runtime_system_linux.cpp - Linux half of runtime_system.h. Windows half: runtime_system_win.cpp.
#include "webdisplay/cef/runtime_system.h"

#include <dlfcn.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

namespace pennywort::cef {

namespace {

std::array<struct sigaction, 32> current_handlers() {
    std::array<struct sigaction, 32> handlers{};
    for (int number = 1; number < static_cast<int>(handlers.size()); ++number) {
        sigaction(number, nullptr, &handlers[number]);
    }
    return handlers;
}

bool is_default(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

constexpr int k_wishes_to_end[] = {SIGINT, SIGTERM, SIGHUP};

// The wish to end the process. While it starts, the runtime hears these with handlers of its own,
// each of which keeps the wish to itself and leaves the default in its place; only by that it is
// found out. The host, which has a handler, gets to hear it after all.
bool was_swallowed(int number, const struct sigaction& host, const struct sigaction& found) {
    const bool asks_to_end =
        std::ranges::find(k_wishes_to_end, number) != std::end(k_wishes_to_end);
    const bool host_listens = !is_default(host) && host.sa_handler != SIG_IGN;
    return asks_to_end && host_listens && is_default(found);
}

// A default SIGPIPE would end the process when a helper process of the runtime goes away in the
// middle of a write, so the runtime's choice to ignore it stays. Anything the host set goes back.
void restore_handlers(const std::array<struct sigaction, 32>& handlers, bool is_started) {
    for (int number = 1; number < static_cast<int>(handlers.size()); ++number) {
        if (number == SIGKILL || number == SIGSTOP) continue;
        if (number == SIGPIPE && handlers[SIGPIPE].sa_handler == SIG_DFL) continue;
        struct sigaction found {};
        sigaction(number, &handlers[number], &found);
        if (is_started && was_swallowed(number, handlers[number], found)) kill(getpid(), number);
    }
}

bool is_of_runtime(const GSource* source) {
    const auto* functions = source->source_funcs;
    Dl_info info{};
    if (functions == nullptr || functions->prepare == nullptr) return false;
    if (!dladdr(reinterpret_cast<void*>(functions->prepare), &info) || info.dli_fname == nullptr)
        return false;
    const char* name = std::strrchr(info.dli_fname, '/');
    return std::strcmp(name != nullptr ? name + 1 : info.dli_fname, library_name()) == 0;
}

// The source that carries X events polls the connection to the X server, a socket. It must stay:
// without it a windowed page gets no input. The runtime's own pump polls a pipe or nothing.
bool polls_a_socket(const GSource* source) {
    for (const GSList* entry = source->poll_fds; entry; entry = entry->next) {
        struct stat status {};
        const int descriptor = static_cast<const GPollFD*>(entry->data)->fd;
        if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) return true;
    }
    return false;
}

guint next_source_id() {
    GSource* probe = g_idle_source_new();
    const guint id = g_source_attach(probe, g_main_context_default());
    g_source_destroy(probe);
    g_source_unref(probe);
    return id;
}

// With our own pump the runtime's two event sources serve nothing, but they are always ready, and
// so a host that iterates the default context would use a whole core for them.
void destroy_pump_sources(guint first, guint last) {
    for (guint id = first + 1; id < last; ++id) {
        GSource* source = g_main_context_find_source_by_id(g_main_context_default(), id);
        if (source && is_of_runtime(source) && !polls_a_socket(source)) g_source_destroy(source);
    }
}

sigset_t current_mask() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

// The runtime sets this variable on a thread of its own while it starts. A new variable moves the
// whole environment, and whoever reads it on another thread at that moment reads what was freed;
// one that is there already is replaced in its place.
void settle_environment() { setenv("FC_FONTATIONS", "1", 0); }

class linux_startup_guard final : public startup_guard {
public:
    void hear_meanwhile() override {
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
        for (const int number : k_wishes_to_end) sigaction(number, &m_handlers[number], nullptr);
    }

    void restore(bool is_started) override {
        restore_handlers(m_handlers, is_started);
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
        destroy_pump_sources(m_first_source, next_source_id());
    }

private:
    std::array<struct sigaction, 32> m_handlers = current_handlers();
    sigset_t m_mask = current_mask();
    guint m_first_source = next_source_id();
};

}  // namespace

const char* library_name() noexcept { return "libcef.so"; }

const char* how_to_install() noexcept { return "with scripts/get-runtime"; }

bool uses_external_pump() noexcept { return true; }

std::string real_file(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    const std::unique_ptr<char, void (*)(void*)> freed(resolved, std::free);
    return resolved != nullptr ? resolved : "";
}

cef_main_args_t main_args() noexcept {
    static char name[] = "pennywort";
    static char* arguments[] = {name, nullptr};
    return cef_main_args_t{1, arguments};
}

cef_main_args_t main_args(int argc, char** argv) noexcept { return cef_main_args_t{argc, argv}; }

std::unique_ptr<startup_guard> startup_guard::make() {
    settle_environment();
    return std::make_unique<linux_startup_guard>();
}

}  // namespace pennywort::cef
