// host/system/interrupt_linux.cpp - Linux half of host/system/interrupt.h. Windows half:
// host/system/interrupt_win.cpp.
#include "host/system/interrupt.h"

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <iterator>
#include <thread>

namespace pennywort::host {

namespace {

constexpr int k_signals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr std::size_t k_count = std::size(k_signals);

std::atomic<int> g_status{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait for a lock");

struct sigaction g_before[k_count];
sigset_t g_mask_before;
std::thread g_listener;
std::atomic<bool> g_is_over{false};  // the listener is to end

sigset_t wishes_to_end() {
    sigset_t all;
    ::sigemptyset(&all);
    for (const int number : k_signals) ::sigaddset(&all, number);
    return all;
}

// It may be held back on this thread.
void die_of(int number) {
    ::signal(number, SIG_DFL);
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, number);
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    ::raise(number);
}

// A terminal that is lost says so twice, by the system and by the shell in it.
void note(int number) {
    int none = 0;
    if (g_status.compare_exchange_strong(none, 128 + number) || number == SIGHUP) return;
    die_of(number);
}

// Whoever has started us to outlive the terminal, as nohup does, means it.
bool outlives_terminal() { return g_before[k_count - 1].sa_handler == SIG_IGN; }

void hear(int number) {
    if (number != SIGHUP || !outlives_terminal()) note(number);
}

void listen() {
    const sigset_t all = wishes_to_end();
    int number = 0;
    while (::sigwait(&all, &number) == 0 && !g_is_over) hear(number);
}

// What has come meanwhile would end the program as soon as it is let through.
void hear_the_last() {
    const sigset_t all = wishes_to_end();
    constexpr timespec k_at_once{};
    for (int number = 0; number >= 0 || errno == EINTR;) {
        number = ::sigtimedwait(&all, nullptr, &k_at_once);
        if (number > 0) hear(number);
    }
}

void set_handlers() {
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < k_count; ++i) ::sigaction(k_signals[i], &action, &g_before[i]);
    if (outlives_terminal()) ::sigaction(SIGHUP, &g_before[k_count - 1], nullptr);
}

void set_handlers_back() {
    for (std::size_t i = 0; i < k_count; ++i) ::sigaction(k_signals[i], &g_before[i], nullptr);
}

}  // namespace

// Where a library sets handlers of its own, as the browser runtime does while it starts, ours hears
// nothing. So this thread, and those that it makes from now on, hold the signals back, and one that
// does nothing else takes them: no handler is asked then. Ours is for threads that were there
// before, and for those of a library that lets the signals through.
interrupt_watch::interrupt_watch() {
    g_status = 0;
    g_is_over = false;
    set_handlers();
    const sigset_t all = wishes_to_end();
    ::pthread_sigmask(SIG_BLOCK, &all, &g_mask_before);
    try {
        g_listener = std::thread(listen);
    } catch (...) {
        ::pthread_sigmask(SIG_SETMASK, &g_mask_before, nullptr);
        set_handlers_back();
        throw;
    }
}

interrupt_watch::~interrupt_watch() {
    g_is_over = true;
    ::pthread_kill(g_listener.native_handle(), SIGINT);
    g_listener.join();
    hear_the_last();
    set_handlers_back();
    ::pthread_sigmask(SIG_SETMASK, &g_mask_before, nullptr);
}

int interrupt_watch::status() const { return g_status; }

}  // namespace pennywort::host
