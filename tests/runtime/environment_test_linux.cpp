// environment_test_linux.cpp - what the runtime does to the rest of the process: environment,
// signal handlers, child processes of the host, event sources of its loop.
#include <dlfcn.h>
#include <glib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "harness.h"
#include "loam/time.h"

namespace {

using setenv_function = int(const char*, const char*, int);

std::mutex g_set_lock;
std::string g_set_elsewhere;    // by threads other than the first
std::string g_added_elsewhere;  // of those, the ones that were not there

using sigaction_function = int(int, const struct sigaction*, struct sigaction*);

// The handler in whose place the runtime has set one of its own when the user presses Ctrl-C, at
// once; nothing as long as no user waits for that.
std::atomic<sighandler_t> g_handler_before{nullptr};

}  // namespace

// Stands before the C library's for the whole process, the runtime included. A variable that a
// second thread adds moves the environment under everybody who reads it.
extern "C" __attribute__((visibility("default"))) int setenv(const char* name, const char* value,
                                                             int replace) noexcept {
    static auto* const real = reinterpret_cast<setenv_function*>(dlsym(RTLD_NEXT, "setenv"));
    if (gettid() != getpid()) {
        const std::lock_guard<std::mutex> guard(g_set_lock);
        g_set_elsewhere += std::string(name) + " ";
        if (!std::getenv(name)) g_added_elsewhere += std::string(name) + " ";
    }
    return real(name, value, replace);
}

// So does this one: between the runtime's handler and the host's own again there is too little time
// for another thread to be sure of it.
extern "C" __attribute__((visibility("default"))) int sigaction(int number,
                                                                const struct sigaction* wanted,
                                                                struct sigaction* before) noexcept {
    static auto* const real = reinterpret_cast<sigaction_function*>(dlsym(RTLD_NEXT, "sigaction"));
    const int result = real(number, wanted, before);
    sighandler_t hosts = g_handler_before;
    const bool is_foreign = number == SIGINT && wanted != nullptr && wanted->sa_handler != hosts &&
                            wanted->sa_handler != SIG_DFL && wanted->sa_handler != SIG_IGN;
    if (hosts == nullptr || !is_foreign) return result;
    if (g_handler_before.compare_exchange_strong(hosts, nullptr)) kill(getpid(), SIGINT);
    return result;
}

namespace pennywort::runtime_test {
namespace {

class Process : public RuntimeTest {};

TEST_F(Process, NoOtherThreadAddsToTheEnvironment) {
    shown_page page({.url = page_url("<!doctype html><body>text needs fonts")});
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 0; }));
    // This one is set there by the runtime, sooner or later: its calls do come by here.
    EXPECT_TRUE(wait_for([] {
        const std::lock_guard<std::mutex> guard(g_set_lock);
        return g_set_elsewhere.find("FC_FONTATIONS") != std::string::npos;
    }));
    const std::lock_guard<std::mutex> guard(g_set_lock);
    EXPECT_EQ(g_added_elsewhere, "") << "of " << g_set_elsewhere;
}

// The processes that the renderers are split off from among them, and those that draw and fetch.
TEST_F(Process, EveryHelperHasTheSwitches) {
    shown_page page({.url = page_url("<!doctype html><body>text")});
    ASSERT_TRUE(page.wait_until_loaded());
    std::vector<std::string> types;
    for (const process& helper : processes_below()) {
        if (helper.type.empty()) continue;
        types.push_back(helper.type);
        for (const char* wanted :
             {" --ppapi-out-of-process ", " --enable-system-flash ", " --disk-cache-size=25000000 ",
              " --autoplay-policy=no-user-gesture-required "}) {
            EXPECT_NE((helper.command_line + " ").find(wanted), std::string::npos)
                << wanted << testing::PrintToString(helper);
        }
    }
    for (const char* type : {"zygote", "renderer", "utility"}) {
        EXPECT_NE(std::find(types.begin(), types.end(), type), types.end()) << type;
    }
}

// --- signals

constexpr int k_host_signals[] = {SIGSEGV, SIGBUS, SIGFPE,  SIGILL,  SIGABRT, SIGCHLD, SIGTERM,
                                  SIGINT,  SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM};

// No other child of these tests ends like that. By its number it could not be told: the signal may
// come on a thread of the runtime before fork has answered.
constexpr int k_child_code = 7;
std::atomic<bool> g_child_ended{false};

void host_handler(int number, siginfo_t*, void*) {
    if (number != SIGCHLD) return;
    // As small hosts do: whatever has ended is taken.
    int status = 0;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (WIFEXITED(status) && WEXITSTATUS(status) == k_child_code) g_child_ended = true;
    }
}

class Signals : public RuntimeTest {
protected:
    void prepare() override {
        for (const int number : k_host_signals) {
            struct sigaction action {};
            action.sa_sigaction = host_handler;
            action.sa_flags = SA_SIGINFO | SA_RESTART | SA_NODEFER;
            sigaddset(&action.sa_mask, SIGUSR2);
            sigaction(number, &action, nullptr);
        }
    }

    static void expect_handlers_of_the_host(const char* when) {
        for (const int number : k_host_signals) {
            struct sigaction now {};
            sigaction(number, nullptr, &now);
            EXPECT_EQ(now.sa_sigaction, &host_handler) << strsignal(number) << " " << when;
            EXPECT_EQ(now.sa_flags & (SA_SIGINFO | SA_RESTART | SA_NODEFER),
                      SA_SIGINFO | SA_RESTART | SA_NODEFER)
                << strsignal(number) << " " << when;
            EXPECT_TRUE(sigismember(&now.sa_mask, SIGUSR2)) << strsignal(number) << " " << when;
        }
    }
};

TEST_F(Signals, TheHostsHandlersStand) {
    expect_handlers_of_the_host("after the start");
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    page.close();
    expect_handlers_of_the_host("after a page");
    cWebDisplayCEFBrowserManager::Shutdown();
    expect_handlers_of_the_host("after the end");
}

TEST_F(Signals, TheHostStillHearsOfItsOwnChildren) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    if (fork() == 0) _exit(k_child_code);
    EXPECT_TRUE(wait_for([] { return g_child_ended.load(); }));
    // The handler took the runtime's children too, if any ended; pages go on.
    const long frames = page.frames.count();
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > frames + 5; }));
}

std::atomic<int> g_wishes_heard{0};

// Ctrl-C as soon as the runtime listens in the host's place.
class EndDuringStart : public RuntimeTest {
protected:
    void prepare() override {
        const sighandler_t hear = [](int) { ++g_wishes_heard; };
        signal(SIGINT, hear);
        g_handler_before = hear;
    }
};

TEST_F(EndDuringStart, ReachesTheHostAndPagesGoOnUntilItEnds) {
    ASSERT_EQ(g_handler_before, nullptr) << "the runtime had no handler of its own";
    EXPECT_TRUE(wait_for([] { return g_wishes_heard > 0; }));
    EXPECT_EQ(g_wishes_heard, 1);
    shown_page page({.url = animated_url()});
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
}

class DefaultSignals : public RuntimeTest {};

TEST_F(DefaultSignals, AHostWithoutHandlersGetsNone) {
    for (const int number : k_host_signals) {
        // The runtime's pipes would end the process by this one.
        if (number == SIGPIPE) continue;
        struct sigaction now {};
        sigaction(number, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL) << strsignal(number);
    }
    struct sigaction broken_pipe {};
    sigaction(SIGPIPE, nullptr, &broken_pipe);
    EXPECT_EQ(broken_pipe.sa_handler, SIG_IGN);
}

// --- the loop of the host

bool is_of_runtime(const void* function) {
    Dl_info info{};
    return function && dladdr(function, &info) && info.dli_fname &&
           std::strstr(info.dli_fname, "libcef");
}

// Sources of the runtime in the default context, the one that GTK, Qt and GStreamer hosts iterate.
int runtime_sources() {
    constexpr guint k_far_above_any = 1000;
    int count = 0;
    for (guint id = 1; id < k_far_above_any; ++id) {
        const GSource* source = g_main_context_find_source_by_id(g_main_context_default(), id);
        if (!source || !source->source_funcs) continue;
        if (is_of_runtime(reinterpret_cast<const void*>(source->source_funcs->prepare)) ||
            is_of_runtime(reinterpret_cast<const void*>(source->source_funcs->dispatch))) {
            ++count;
        }
    }
    return count;
}

class GlibHost : public RuntimeTest {};

TEST_F(GlibHost, TheRuntimeLeavesNoSourceThatWouldSpinTheLoop) {
    EXPECT_EQ(runtime_sources(), 0);
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    EXPECT_EQ(runtime_sources(), 0);
}

TEST_F(GlibHost, FramesComeWhereTheHostRunsItsOwnLoop) {
    shown_page page({.url = animated_url()});
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    page.frames.on_frame = [&] {
        if (page.frames.count() == 30) g_main_loop_quit(loop);
    };
    // Quits a loop that no frame would end.
    g_timeout_add_seconds(
        60,
        [](void* data) -> gboolean {
            return g_main_loop_quit(static_cast<GMainLoop*>(data)), FALSE;
        },
        loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    EXPECT_GE(page.frames.count(), 30);
}

// Reports only: a figure says nothing on a busy machine.
TEST_F(GlibHost, WhatAStaticPageCosts) {
    shown_page page({.url = colour_url("#0f0")});
    ASSERT_TRUE(page.wait_for_colour(k_green));
    run_loop_for(500);
    const double cpu = cpu_seconds();
    const std::int64_t start = zTime::MicroNow();
    while (zTime::MicroNow() < start + 3'000'000) g_main_context_iteration(nullptr, TRUE);
    const double seconds = static_cast<double>(zTime::MicroNow() - start) / 1e6;
    const double share = (cpu_seconds() - cpu) / seconds;
    RecordProperty("share_of_a_core", std::to_string(share));
    std::printf("a static page costs %.3f of a core in this process\n", share);
    EXPECT_EQ(page.frames.centre(), k_green);
}

// --- the gate

TEST_F(GlibHost, ALoopThatIsHeldOffForASecondGoesOnAfterwards) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    bool open = false;
    int asked = 0;
    cWebDisplayCEFBrowserManager::SetCanRunCefMessageLoopFn([&] { return ++asked, open; });
    const long held = page.frames.count();
    run_loop_for(1000);
    EXPECT_EQ(page.frames.count(), held);
    EXPECT_GT(asked, 1);
    open = true;
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > held + 5; })) << page.frames.count();
    open = false;
    cWebDisplayCEFBrowserManager::SetCanRunCefMessageLoopFn({});
    const long free = page.frames.count();
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > free + 5; })) << page.frames.count();
}

TEST_F(GlibHost, ADisplayClosesWhileTheLoopIsHeldOff) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    cWebDisplayCEFBrowserManager::SetCanRunCefMessageLoopFn([] { return false; });
    page.close();
    EXPECT_TRUE(wait_for([] { return processes_below("renderer").size() <= 1; }));
}

}  // namespace
}  // namespace pennywort::runtime_test
