// process_test_linux.cpp - what the runtime's start must leave as it was in the process: signal
// handlers, the default main context; and the user's own browser. There is no Windows half: nothing
// of this exists there.
#include <glib.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "tests/webdisplay/fake_runtime_test.h"
#include "tests/webdisplay/test_process.h"

namespace {

using ProcessTest = FakeRuntimeTest;
using manager = cWebDisplayCEFBrowserManager;

void host_handler(int) {}
void host_action(int, siginfo_t*, void*) {}

struct sigaction action_of(int number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action;
}

TEST_F(ProcessTest, TheHostsSignalHandlersAreAsTheyWere) {
    struct sigaction crash {};
    crash.sa_sigaction = host_action;
    crash.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaddset(&crash.sa_mask, SIGUSR1);
    struct sigaction child {};
    child.sa_handler = host_handler;
    child.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigaction(SIGSEGV, &crash, nullptr);
    sigaction(SIGCHLD, &child, nullptr);
    sigaction(SIGPIPE, &child, nullptr);
    start();
    const struct sigaction now = action_of(SIGSEGV);
    EXPECT_EQ(now.sa_sigaction, host_action);
    EXPECT_EQ(now.sa_flags & (SA_SIGINFO | SA_NODEFER), SA_SIGINFO | SA_NODEFER);
    EXPECT_TRUE(sigismember(&now.sa_mask, SIGUSR1));
    EXPECT_EQ(action_of(SIGCHLD).sa_handler, host_handler);
    EXPECT_TRUE(action_of(SIGCHLD).sa_flags & SA_NOCLDSTOP);
    EXPECT_EQ(action_of(SIGPIPE).sa_handler, host_handler);
    signal(SIGSEGV, SIG_DFL);
}

TEST_F(ProcessTest, HandlersThatTheHostDidNotSetAreTheDefaultOnes) {
    signal(SIGCHLD, SIG_DFL);
    start();
    EXPECT_EQ(action_of(SIGCHLD).sa_handler, SIG_DFL);
}

int g_wishes_heard = 0;
void hear_wish(int) { ++g_wishes_heard; }

// The runtime hears them with handlers of its own while it starts, and does nothing.
TEST_F(ProcessTest, AWishToEndThatComesDuringTheStartReachesTheHost) {
    for (int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, hear_wish);
    script().during_start = [] {
        for (int number : {SIGINT, SIGTERM, SIGHUP}) raise(number);
        EXPECT_EQ(g_wishes_heard, 0) << "the fake does not do as the runtime does";
    };
    start();
    EXPECT_EQ(g_wishes_heard, 3);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) EXPECT_EQ(action_of(number).sa_handler, hear_wish);
}

// Without its handlers the host would end at once, its file half written.
TEST_F(ProcessTest, AWishToEndThatComesBeforeTheRuntimesHandlersReachesTheHost) {
    for (int number : {SIGINT, SIGTERM}) signal(number, hear_wish);
    signal(SIGHUP, SIG_IGN);
    script().after_switches = [] {
        for (int number : {SIGINT, SIGTERM, SIGHUP}) raise(number);
    };
    start();
    EXPECT_EQ(g_wishes_heard, 2);
}

bool holds_back(int number) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, number) == 1;
}

// A host whose own thread waits for a signal holds it back on the others. The runtime lets each
// through as its start begins, and the threads that it makes would take them.
TEST_F(ProcessTest, TheSignalsThatTheHostHoldsBackAreHeldBackWhileTheRuntimeStarts) {
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    bool was_held = false;
    bool is_another_held = true;
    script().during_start = [&] {
        was_held = holds_back(SIGTERM);
        is_another_held = holds_back(SIGINT);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
    };
    start();
    EXPECT_TRUE(was_held);
    EXPECT_FALSE(is_another_held);
    EXPECT_TRUE(holds_back(SIGTERM));
    EXPECT_FALSE(holds_back(SIGINT));
    pthread_sigmask(SIG_UNBLOCK, &held, nullptr);
}

TEST_F(ProcessTest, AHostHearsNoWishThatNobodyHas) {
    signal(SIGINT, hear_wish);
    signal(SIGHUP, SIG_IGN);
    script().during_start = [] { raise(SIGHUP); };
    start();
    EXPECT_EQ(g_wishes_heard, 0);
    EXPECT_EQ(action_of(SIGHUP).sa_handler, SIG_IGN);
    EXPECT_EQ(action_of(SIGTERM).sa_handler, SIG_DFL);
}

TEST_F(ProcessTest, AfterAFailedStartNoWishIsMadeUp) {
    signal(SIGINT, hear_wish);
    // That far the runtime has put back the default, and nothing of its own.
    script().init_exit_code = 1;
    script().during_start = [] { signal(SIGINT, SIG_DFL); };
    EXPECT_FALSE(manager::Startup(""));
    EXPECT_EQ(g_wishes_heard, 0);
    EXPECT_EQ(action_of(SIGINT).sa_handler, hear_wish);
}

// A helper process that goes away in the middle of a write would end the host otherwise.
TEST_F(ProcessTest, ABrokenPipeStaysIgnored) {
    signal(SIGPIPE, SIG_DFL);
    start();
    EXPECT_EQ(action_of(SIGPIPE).sa_handler, SIG_IGN);
}

TEST_F(ProcessTest, AfterAFailedStartTheHandlersAreAsTheyWereToo) {
    script().init_exit_code = 1;
    signal(SIGCHLD, host_handler);
    EXPECT_FALSE(manager::Startup(""));
    EXPECT_EQ(action_of(SIGCHLD).sa_handler, host_handler);
}

TEST_F(ProcessTest, AHostThatIteratesTheDefaultContextDoesNotSpin) {
    start();
    const long before = fake().loop_spins();
    for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, TRUE);
    EXPECT_EQ(fake().loop_spins(), before);
    EXPECT_TRUE(fake().window_source_alive()) << "windows need theirs";
}

TEST_F(ProcessTest, TheHostsOwnSourcesStay) {
    int ticks = 0;
    const guint own = g_timeout_add(
        1,
        [](gpointer count) -> gboolean {
            ++*static_cast<int*>(count);
            return G_SOURCE_CONTINUE;
        },
        &ticks);
    start();
    EXPECT_TRUE(loop_until([&] { return ticks > 3; }));
    EXPECT_TRUE(g_source_remove(own));
}

TEST_F(ProcessTest, AHostThatOnlyIteratesItsDefaultContextSeesItsPages) {
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    const auto shown = [&] { return s.seen.heard("loaded http://a/") && !s.seen.frames.empty(); };
    for (int i = 0; i < 5000 && !shown(); ++i) g_main_context_iteration(nullptr, TRUE);
    EXPECT_TRUE(shown());
}

// A display thread of its own, with the context that the host pushed for it.
TEST_F(ProcessTest, ADisplayThreadMayHaveAContextOfItsOwn) {
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    start();
    screen s(page("http://a/"));
    ASSERT_TRUE(s->Open());
    for (int i = 0; i < 5000 && s.seen.frames.empty(); ++i) g_main_context_iteration(context, TRUE);
    EXPECT_FALSE(s.seen.frames.empty());
    s.release();
    shut_down();
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
}

// --- links that the user clicks

class OpenerTest : public FakeRuntimeTest {
protected:
    void SetUp() override {
        FakeRuntimeTest::SetUp();
        if (HasFatalFailure()) return;
        install_opener();
        start();
        show(m_screen);
    }
    void TearDown() override {
        m_screen.release();
        FakeRuntimeTest::TearDown();
    }
    // In place of the user's: notes its arguments, one per line.
    void install_opener() const {
        const auto opener = m_folder / "xdg-open";
        std::ofstream(opener) << "#!/bin/sh\nfor argument; do echo \"$argument\"; done >> '"
                              << (m_folder / "part").string() << "'\nmv '"
                              << (m_folder / "part").string() << "' '"
                              << (m_folder / "opened").string() << "'\n";
        std::filesystem::permissions(opener, std::filesystem::perms::owner_all);
        test_process::set_variable("PATH", m_folder.string() + ":/usr/bin:/bin");
    }
    bool opened_by_page(const std::string& url, bool gesture) {
        int id = -1;
        fake().post([&] { id = fake().open_popup(1, url, gesture); });
        EXPECT_TRUE(loop_until([&] { return id >= 0; }));
        return id > 0;
    }
    std::string opened_by_system() const {
        std::string line, all;
        for (std::ifstream file(m_folder / "opened"); std::getline(file, line);) all += line + "|";
        return all;
    }
    bool system_opens_something() const {
        return loop_until([&] { return std::filesystem::exists(m_folder / "opened"); });
    }

    screen m_screen{page("http://a/")};
};

TEST_F(OpenerTest, AClickedLinkToANewWindowOpensInTheUsersBrowserInstead) {
    EXPECT_FALSE(opened_by_page("http://elsewhere/?a=1&b=2", true));
    ASSERT_TRUE(system_opens_something());
    EXPECT_EQ(opened_by_system(), "http://elsewhere/?a=1&b=2|");
}

TEST_F(OpenerTest, NoShellSeesTheLink) {
    const std::string url = "http://x/$(touch " + (m_folder / "owned").string() + ")'\";`id`";
    EXPECT_FALSE(opened_by_page(url, true));
    ASSERT_TRUE(system_opens_something());
    EXPECT_EQ(opened_by_system(), url + "|");
    EXPECT_FALSE(std::filesystem::exists(m_folder / "owned"));
}

TEST_F(OpenerTest, AWindowWithoutAClickDoesNotReachTheUser) {
    EXPECT_TRUE(opened_by_page("http://elsewhere/", false));
    settle();
    EXPECT_FALSE(std::filesystem::exists(m_folder / "opened"));
}

TEST_F(OpenerTest, ALinkThatLooksLikeAnOptionIsNotOpened) {
    EXPECT_FALSE(opened_by_page("--help", true));
    EXPECT_FALSE(opened_by_page("", true));
    EXPECT_FALSE(opened_by_page("http://after/", true));
    ASSERT_TRUE(system_opens_something());
    EXPECT_EQ(opened_by_system(), "http://after/|");
}

}  // namespace
