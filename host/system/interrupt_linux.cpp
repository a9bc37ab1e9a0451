// host/system/interrupt_linux.cpp - Linux half of host/system/interrupt.h. Windows half:
// host/system/interrupt_win.cpp.
#include "host/system/interrupt.h"

#include <signal.h>

#include <atomic>

namespace pennywort::host {

namespace {

constexpr int k_signals[] = {SIGINT, SIGTERM};

std::atomic<int> g_status{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait for a lock");

struct sigaction g_before[2];

void note(int number) {
    int none = 0;
    if (g_status.compare_exchange_strong(none, 128 + number)) return;
    ::signal(number, SIG_DFL);
    ::raise(number);
}

}  // namespace

interrupt_watch::interrupt_watch() {
    g_status = 0;
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    for (int i = 0; i < 2; ++i) ::sigaction(k_signals[i], &action, &g_before[i]);
}

interrupt_watch::~interrupt_watch() {
    for (int i = 0; i < 2; ++i) ::sigaction(k_signals[i], &g_before[i], nullptr);
}

int interrupt_watch::status() const { return g_status; }

}  // namespace pennywort::host
