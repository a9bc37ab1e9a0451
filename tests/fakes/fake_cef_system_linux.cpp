// fake_cef_system_linux.cpp - Linux half of fake_cef_system.h. Windows half:
// fake_cef_system_win.cpp.
#include "tests/fakes/fake_cef_system.h"

#include <glib.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fake {

namespace {

std::atomic<long> g_spins{0};
std::atomic<bool> g_window_source_alive{false};

void child_ended(int) {}

// As the real runtime's: it keeps the wish to itself, and leaves the default in its place.
void swallow(int number) { signal(number, SIG_DFL); }

// The real runtime attaches two sources that are always ready, and with a window system one that
// carries its events.
gboolean pump_prepare(GSource*, gint* timeout) {
    ++g_spins;
    *timeout = 0;
    return TRUE;
}
gboolean pump_check(GSource*) { return TRUE; }
gboolean window_prepare(GSource*, gint* timeout) {
    *timeout = -1;
    return FALSE;
}
gboolean window_check(GSource*) { return FALSE; }
gboolean dispatch(GSource*, GSourceFunc, gpointer) { return G_SOURCE_CONTINUE; }
void window_finalize(GSource*) { g_window_source_alive = false; }

GSourceFuncs g_pump_functions = {pump_prepare, pump_check, dispatch, nullptr, nullptr, nullptr};
GSourceFuncs g_window_functions = {window_prepare,  window_check, dispatch,
                                   window_finalize, nullptr,      nullptr};

struct polling_source {
    GSource source;
    GPollFD descriptor;
};

void attach(GSourceFuncs& functions, int descriptor) {
    GSource* source = g_source_new(&functions, sizeof(polling_source));
    GPollFD& polled = reinterpret_cast<polling_source*>(source)->descriptor;
    polled = GPollFD{descriptor, G_IO_IN, 0};
    g_source_add_poll(source, &polled);
    g_source_attach(source, g_main_context_default());
    g_source_unref(source);
}

void replace_handlers() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGSEGV, &action, nullptr);
    action.sa_handler = swallow;
    for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
    action.sa_handler = child_ended;
    sigaction(SIGCHLD, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

class linux_effects final : public system_effects {
public:
    explicit linux_effects(bool replace_signal_handlers) {
        if (replace_signal_handlers) replace_handlers();
        for (int& descriptor : m_pumps) {
            descriptor = eventfd(0, EFD_CLOEXEC);
            attach(g_pump_functions, descriptor);
        }
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_window.data()) != 0) return;
        g_window_source_alive = true;
        attach(g_window_functions, m_window[0]);
    }
    long loop_spins() const override { return g_spins; }
    bool window_source_alive() const override { return g_window_source_alive; }

private:
    std::array<int, 2> m_pumps{};
    std::array<int, 2> m_window{};
};

std::string claim_of_this_process() {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    return std::string(host) + "-" + std::to_string(getpid());
}

bool is_alive(const std::string& owner) {
    const std::size_t dash = owner.rfind('-');
    if (dash == std::string::npos) return false;
    const long pid = std::strtol(owner.c_str() + dash + 1, nullptr, 10);
    return pid > 0 && (pid == getpid() || kill(static_cast<pid_t>(pid), 0) == 0);
}

}  // namespace

void system_effects::drop_handlers() {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, SIG_DFL);
}

std::unique_ptr<system_effects> system_effects::make(bool replace_signal_handlers) {
    return std::make_unique<linux_effects>(replace_signal_handlers);
}

std::vector<std::string> command_line_of(const cef_main_args_t& args) {
    return {args.argv, args.argv + args.argc};
}

std::int64_t monotonic_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

const char* profile_lock_name() { return "SingletonLock"; }

// The real runtime's form: a link whose target names the host and the process.
bool claim_profile(const std::string& lock_path) {
    std::error_code error;
    const auto owner = std::filesystem::read_symlink(lock_path, error);
    if (!error && is_alive(owner.string())) return false;
    std::filesystem::remove(lock_path, error);
    std::filesystem::create_symlink(claim_of_this_process(), lock_path, error);
    return !error;
}

void release_profile(const std::string& lock_path) {
    std::error_code error;
    std::filesystem::remove(lock_path, error);
}

}  // namespace fake
