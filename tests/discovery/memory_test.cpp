// memory_test.cpp - cBonjour with each allocation failing in turn.
#include "tests/support/failing_memory.h"

#include <new>
#include <optional>
#include <string>

#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

class Memory : public FakeNetwork {
protected:
    // Without a sink, a message of a failure would be written into memory of its own.
    Memory() {
        zTraceManager::Default()->SetSink([](const char*) {});
    }
    ~Memory() override { zTraceManager::Default()->SetSink({}); }
};

TEST_F(Memory, AnObjectMadeWithoutItIsOneWithoutDNSSD) {
    long status = 0;
    const int failures = with_each_allocation_failing(
        [&] {
            cBonjour bonjour;
            status = bonjour.Service_Register(k_http, 1,
                                              "\x01"
                                              "a");
        },
        [&] {
            EXPECT_TRUE(status == 0 || status == -1);
            EXPECT_EQ(fake_dnssd::live_references(), 0);
        });
    EXPECT_GT(failures, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Memory, ARegistrationIsThereOrNot) {
    cBonjour bonjour;
    long status = 0;
    int references = 0;
    const int failures = with_each_allocation_failing(
        [&] {
            status = bonjour.Service_Advertise("a name that is longer than a short text", k_http, 1,
                                               "\x01"
                                               "a",
                                               2);
            references = fake_dnssd::live_references();
            bonjour.Service_Unregister(k_http, 1);
        },
        [&] {
            EXPECT_EQ(references, status == 0 ? 1 : 0);
            EXPECT_EQ(fake_dnssd::live_references(), 0);
        });
    EXPECT_GT(failures, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Memory, AnObserverIsThereOrNot) {
    cBonjour bonjour;
    long status = 0;
    int references = 0;
    for (const bool is_once : {false, true}) {
        const int failures = with_each_allocation_failing(
            [&] {
                status = is_once ? bonjour.StartObservingOnce(7, k_http, 0)
                                 : bonjour.StartObserving(7, k_http, 0);
                references = fake_dnssd::live_references();
                bonjour.StopObserving(7);
            },
            [&] {
                EXPECT_EQ(references, status == 0 ? 1 : 0);
                EXPECT_EQ(fake_dnssd::live_references(), 0);
            });
        EXPECT_GT(failures, 0);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(Memory, AServiceIsHeardOrNot) {
    for (const bool is_once : {false, true}) {
        cBonjour bonjour;
        listener ears;
        bonjour.StartObserving(ears.id(), "_other._tcp.", 0);
        is_once ? bonjour.StartObservingOnce(ears.id(), k_http, 0)
                : bonjour.StartObserving(ears.id(), k_http, 0);
        serve("Camera", 1,
              "\x03"
              "a=1"
              "\x03"
              "b=2");
        const int failures = with_each_allocation_failing(
            [&] {
                // The loop itself takes memory, and says so.
                for (const bool is_added : {true, false}) {
                    tell("Camera", is_added);
                    try {
                        run_loop();
                    } catch (const std::bad_alloc&) {
                    }
                }
            },
            [&] {
                run_loop();
                EXPECT_LE(ears.heard().size(), 2u);
                EXPECT_EQ(fake_dnssd::live_references(), 2);
                ears.forget();
            });
        EXPECT_GT(failures, 0);
        tell("Camera");
        run_loop();
        tell("Camera", false);
        run_loop();
        EXPECT_EQ(ears.names(), "+Camera -Camera") << "a failure has left something behind";
    }
}

// One of them is asked for while another one is waited for.
TEST_F(Memory, SeveralServicesAtOnceLeaveNoReference) {
    cBonjour bonjour;
    listener ears;
    bonjour.StartObservingEach(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    for (const char* const name : {"a", "b", "c"}) serve(name);
    const int failures = with_each_allocation_failing(
        [&] {
            for (const bool is_added : {true, false}) {
                for (const char* const name : {"a", "b", "c"}) tell(name, is_added);
                try {
                    run_loop();
                } catch (const std::bad_alloc&) {
                }
            }
        },
        [&] {
            run_loop();
            EXPECT_LE(ears.heard().size(), 6u);
            EXPECT_EQ(fake_dnssd::live_references(), 1);
            ears.forget();
        });
    EXPECT_GT(failures, 0);
}

// Whoever hears of it may want no more of the object.
TEST_F(Memory, ATraceOfAFailureMayEndTheObject) {
    std::optional<cBonjour> bonjour;
    listener ears;
    const std::string names[] = {std::string(40, 'a'), std::string(40, 'b')};
    for (const std::string& name : names) serve(name.c_str());
    const auto begin = [&] {
        bonjour.emplace();
        bonjour->StartObservingOnce(ears.id(), k_http, 0);
        for (const std::string& name : names) tell(name.c_str());
    };
    begin();
    zTraceManager::Default()->SetSink([&](const char*) { bonjour.reset(); });
    const int failures = with_each_allocation_failing(
        [&] {
            try {
                run_loop();
            } catch (const std::bad_alloc&) {
            }
        },
        [&] {
            run_loop();
            bonjour.reset();
            EXPECT_EQ(fake_dnssd::live_references(), 0);
            ears.forget();
            begin();
        });
    EXPECT_GT(failures, 0);
    zTraceManager::Default()->SetSink([](const char*) {});
}

// From any place on there is none at all: each failure that is traced is followed by the next one.
TEST_F(Memory, LookUpsEndWhereThereIsNoneForGood) {
    constexpr int k_endless = 1000;
    static int s_failures;
    cBonjour bonjour;
    listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    const std::string names[] = {std::string(40, 'a'), std::string(40, 'b')};
    for (const std::string& name : names) serve(name.c_str());
    zTraceManager::Default()->SetSink([](const char*) {
        if (++s_failures < k_endless) fail_memory_after(0);
    });
    for (int count = 0; count < 150; ++count) {
        s_failures = 0;
        for (const bool is_added : {true, false}) {
            for (const std::string& name : names) tell(name.c_str(), is_added);
            fail_memory_after(count);
            try {
                run_loop();
            } catch (const std::bad_alloc&) {
            }
            stop_failing_memory();
        }
        ASSERT_LT(s_failures, k_endless) << count;
        run_loop();
        stop_failing_memory();
    }
    EXPECT_EQ(fake_dnssd::live_references(), 1);
}

}  // namespace
}  // namespace pennywort::tests
