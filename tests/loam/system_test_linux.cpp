// system_test_linux.cpp - what can only be seen through Linux: a full disk, threads that cannot be
// made, and what is left of a hundred starts.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "loam/boot.h"
#include "loam/file_stream.h"
#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/thread.h"
#include "tests/support/eventually.h"

namespace {

class named_body : public zThreadMain {
public:
    zStatus Main(std::int32_t, const char* const*) override { return prctl(PR_GET_NAME, name); }
    char name[16] = {};
};

TEST(FullDisk, IsAFailureThatSaysHowMuchWentOut) {
    zFileStream file("/dev/full", zFileStream::k_append, true);
    ASSERT_TRUE(file.IsOpen());
    std::uint32_t written = 9;
    EXPECT_LT(file.Write("text", 4, &written), 0);
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(file.IsOpen()) << "a failure leaves the object usable";
}

// While it lives, the system has no descriptor for this process.
class no_descriptors {
public:
    no_descriptors() {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit now = m_before;
        now.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &now);
    }
    ~no_descriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    no_descriptors(const no_descriptors&) = delete;
    no_descriptors& operator=(const no_descriptors&) = delete;

private:
    rlimit m_before{};
};

// The library below would end the process.
void use_loop_without_descriptors() {
    {
        const no_descriptors none;
        const auto loop = zMessageLoop::Current();
        EXPECT_EQ(loop->Post([] {}), -1);
        EXPECT_FALSE(zMessageLoop::RunOnce(0));
    }
    bool has_run = false;
    EXPECT_EQ(zMessageLoop::Current()->Post([&] { has_run = true; }), 0);
    zMessageLoop::RunOnce(0);
    EXPECT_TRUE(has_run) << "the next use has made the loop";
}

TEST(NoDescriptors, AThreadsFirstLoopTakesNothing) {
    zMessageLoop::Current();
    std::thread(use_loop_without_descriptors).join();
}

// In a process of its own, where nothing has made the loop yet.
TEST(NoDescriptorsDeathTest, TheFirstLoopOfTheProcessTakesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            use_loop_without_descriptors();
            std::_Exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ThreadName, IsCutToWhatTheSystemShows) {
    named_body body;
    const std::unique_ptr<zThread> thread(zThread::Factory("http server thread", &body, 0, 4));
    thread->Join();
    EXPECT_STREQ(body.name, "http server thr");
}

// Sets the stack that new threads get by default, and sets it back.
class default_stack {
public:
    explicit default_stack(std::size_t bytes) {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t huge = m_before;
        pthread_attr_setstacksize(&huge, bytes);
        pthread_setattr_default_np(&huge);
    }
    ~default_stack() { pthread_setattr_default_np(&m_before); }

private:
    pthread_attr_t m_before{};
};

TEST(ThreadFactory, IsNullWhenTheSystemGivesNoThread) {
    named_body body;
    {
        const default_stack more_than_there_is(std::size_t{1} << 47);
        EXPECT_EQ(zThread::Factory("none", &body, 0, 4), nullptr);
    }
    const std::unique_ptr<zThread> thread(zThread::Factory("again", &body, 0, 4));
    ASSERT_NE(thread, nullptr);
    thread->Join();
    EXPECT_STREQ(body.name, "again");
}

std::size_t entries(const char* folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
}

void one_round() {
    zBoot::StartModules();
    std::promise<std::shared_ptr<zMessageLoop>> made;
    std::thread other([&] {
        const zObserverHandler observer(zObserverHandler::NewCode(),
                                        [](const zRecord&, std::uint64_t) {});
        made.set_value(zMessageLoop::Current());
        zMessageLoop::Run();
    });
    made.get_future().get()->RequestQuit();
    other.join();
    zBoot::StopModules();
}

TEST(Leaks, AHundredRoundsLeaveNoThreadAndNoDescriptor) {
    one_round();
    const std::size_t threads = entries("/proc/self/task");
    const std::size_t descriptors = entries("/proc/self/fd");
    for (int i = 0; i < 100; ++i) one_round();
    // A thread that has been joined stands there a moment longer.
    EXPECT_TRUE(
        pennywort::tests::eventually([&] { return entries("/proc/self/task") <= threads; }));
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
}

}  // namespace
