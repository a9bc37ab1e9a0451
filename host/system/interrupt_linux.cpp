// host/system/interrupt_linux.cpp - Linux half of host/system/interrupt.h. Windows half:
// host/system/interrupt_win.cpp.
#include "host/system/interrupt.h"

#include <signal.h>

#include <atomic>
#include <cstddef>
#include <iterator>

namespace pennywort::host {

namespace {

constexpr int k_signals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr std::size_t k_count = std::size(k_signals);

std::atomic<int> g_status{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait for a lock");

struct sigaction g_before[k_count];

// A terminal that is lost says so twice, by the system and by the shell in it.
void note(int number) {
    int none = 0;
    if (g_status.compare_exchange_strong(none, 128 + number) || number == SIGHUP) return;
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
    for (std::size_t i = 0; i < k_count; ++i) ::sigaction(k_signals[i], &action, &g_before[i]);
    // Whoever has started us to outlive the terminal, as nohup does, means it.
    auto& lost_terminal = g_before[k_count - 1];
    if (lost_terminal.sa_handler == SIG_IGN) ::sigaction(SIGHUP, &lost_terminal, nullptr);
}

interrupt_watch::~interrupt_watch() {
    for (std::size_t i = 0; i < k_count; ++i) ::sigaction(k_signals[i], &g_before[i], nullptr);
}

int interrupt_watch::status() const { return g_status; }

}  // namespace pennywort::host
