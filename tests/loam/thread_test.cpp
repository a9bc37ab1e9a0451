// thread_test.cpp - zThread, zCritical, zSignal, zAtomic and zRefCount.
#include "loam/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "loam/atomic.h"
#include "loam/critical.h"
#include "loam/ref_count.h"
#include "loam/signal.h"
#include "tests/loam/bounds.h"

namespace {

class body : public zThreadMain {
public:
    explicit body(std::function<void(const std::string&)> work) : m_work(std::move(work)) {}
    zStatus Main(std::int32_t argc, const char* const* argv) override {
        m_work(argc == 1 ? argv[0] : "wrong arguments");
        return 0;
    }

private:
    std::function<void(const std::string&)> m_work;
};

TEST(Thread, NeedsABody) { EXPECT_EQ(zThread::Factory("none", nullptr, 0, 4), nullptr); }

TEST(Thread, RunsItsBodyOnceUnderItsName) {
    std::string name;
    int runs = 0;
    bool main_thread = true;
    body work([&](const std::string& own) {
        name = own;
        ++runs;
        main_thread = zThread::IsCurrentThreadMain();
    });
    const std::unique_ptr<zThread> thread(zThread::Factory("http server thread", &work, 0, 4));
    ASSERT_NE(thread, nullptr);
    thread->Join();
    thread->Join();
    EXPECT_FALSE(thread->IsRunning());
    EXPECT_EQ(name, "http server thread");
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(main_thread);
    EXPECT_TRUE(zThread::IsCurrentThreadMain());
}

TEST(Thread, ItsEndIsWaitedForByTheDestructor) {
    std::atomic<bool> ended{false};
    const std::unique_ptr<zSignal> go(zSignal::Factory());
    body work([&](const std::string&) {
        go->Wait(k_long_us);
        ended = true;
    });
    {
        const std::unique_ptr<zThread> thread(zThread::Factory("waits", &work, 0, 4));
        EXPECT_TRUE(thread->IsRunning());
        go->Set();
    }
    EXPECT_TRUE(ended);
}

TEST(Thread, AnExceptionEndsTheThreadOnly) {
    body work([](const std::string&) { throw std::runtime_error("out of the body"); });
    const std::unique_ptr<zThread> thread(zThread::Factory("throws", &work, 0, 4));
    thread->Join();
    EXPECT_FALSE(thread->IsRunning());
}

TEST(Thread, MayDeleteItselfFromItsBody) {
    const std::unique_ptr<zSignal> made(zSignal::Factory());
    const std::unique_ptr<zSignal> ended(zSignal::Factory());
    zThread* thread = nullptr;
    body work([&](const std::string&) {
        made->Wait(k_long_us);
        delete thread;
        ended->Set();
    });
    thread = zThread::Factory("deletes", &work, 0, 4);
    made->Set();
    EXPECT_EQ(ended->Wait(k_long_us), 0);
}

TEST(Critical, ItsOwnerMayEnterAgainAndNobodyElse) {
    const std::unique_ptr<zCritical> lock(zCritical::Factory(1));
    const auto free_for_others = [&] {
        bool taken = false;
        std::thread([&] {
            taken = lock->TryLock();
            if (taken) lock->Unlock();
        }).join();
        return taken;
    };
    {
        const zAutoCritical outer(lock.get());
        {
            const zAutoCritical inner(lock.get());
            EXPECT_TRUE(lock->TryLock());
            lock->Unlock();
        }
        EXPECT_FALSE(free_for_others()) << "the inner holder let go of the outer one's lock";
    }
    EXPECT_TRUE(free_for_others());
    const zAutoCritical nothing(nullptr);
}

TEST(Critical, KeepsThreadsApart) {
    const std::unique_ptr<zCritical> lock(zCritical::Factory(0));
    long count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 10000; ++n) {
                const zAutoCritical hold(lock.get());
                ++count;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count, 40000);
}

TEST(Signal, IsUsedUpByOneWait) {
    const std::unique_ptr<zSignal> signal(zSignal::Factory());
    EXPECT_LT(signal->Wait(0), 0);
    signal->Set();
    signal->Set();
    EXPECT_EQ(signal->Wait(0), 0);
    EXPECT_LT(signal->Wait(0), 0) << "set twice counted twice";
    signal->Set();
    signal->Reset();
    EXPECT_LT(signal->Wait(1000), 0);
}

TEST(Signal, LetsOneOfManyWaitersThroughPerSet) {
    const std::unique_ptr<zSignal> signal(zSignal::Factory());
    const std::unique_ptr<zSignal> passed(zSignal::Factory());
    std::atomic<int> through{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            if (signal->Wait(k_long_us) == 0) ++through;
            passed->Set();
        });
    }
    for (int i = 1; i <= 4; ++i) {
        signal->Set();
        ASSERT_EQ(passed->Wait(k_long_us), 0);
        EXPECT_EQ(through, i);
    }
    for (auto& thread : threads) thread.join();
}

// Whoever was woken may destroy the signal while Set is still returning.
TEST(Signal, MayBeDeletedByTheWaiterAtOnce) {
    for (int i = 0; i < 500; ++i) {
        auto signal = std::unique_ptr<zSignal>(zSignal::Factory());
        zSignal* raw = signal.get();
        std::thread setter([raw] { raw->Set(); });
        ASSERT_EQ(signal->Wait(k_long_us), 0);
        signal.reset();
        setter.join();
    }
}

TEST(Atomic, ReturnsTheValueThatItFound) {
    zAtomic value;
    EXPECT_EQ(value.CompareAndSet(0, 1), 0);
    EXPECT_EQ(value.CompareAndSet(0, 2), 1);
    EXPECT_EQ(value.Get(), 1);
    EXPECT_EQ(value.Increment(), 2);
    EXPECT_EQ(value.Decrement(), 1);
    value.Set(0x7fffffff);
    EXPECT_EQ(value.Increment(), static_cast<std::int32_t>(0x80000000));
}

TEST(Atomic, OneThreadWinsEachExchange) {
    zAtomic turn;
    std::atomic<int> wins{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (std::int32_t n = 0; n < 5000; ++n) wins += turn.CompareAndSet(n, n + 1) == n;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wins, turn.Get());
}

class counted_thing : public zRefCount {
public:
    explicit counted_thing(bool& gone) : m_gone(gone) {}
    bool alive_in_destructor = true;

protected:
    ~counted_thing() override {
        m_gone = true;
        EXPECT_FALSE(AddRefIfAlive()) << "a reference to what is being destroyed";
    }

private:
    bool& m_gone;
};

TEST(RefCount, GoesWithTheLastReference) {
    bool gone = false;
    auto* thing = new counted_thing(gone);
    EXPECT_EQ(thing->AddRef(), 2);
    EXPECT_TRUE(thing->AddRefIfAlive());
    EXPECT_EQ(thing->Release(), 2);
    EXPECT_EQ(thing->Release(), 1);
    EXPECT_FALSE(gone);
    EXPECT_EQ(thing->Release(), 0);
    EXPECT_TRUE(gone);
}

TEST(RefCount, CountsOverThreads) {
    bool gone = false;
    auto* thing = new counted_thing(gone);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        thing->AddRef();
        threads.emplace_back([thing] {
            for (int n = 0; n < 10000; ++n) {
                thing->AddRef();
                thing->Release();
            }
            thing->Release();
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(gone);
    EXPECT_EQ(thing->Release(), 0);
    EXPECT_TRUE(gone);
}

}  // namespace
