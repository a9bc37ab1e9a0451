// faults_test.cpp - cBonjour where the daemon ends, where calls come back into their own object,
// and where there is more than fits.
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

class Faults : public FakeNetwork {};

// Calls the function as the library's function of that name begins, for the first time.
class first_call {
public:
    // `passed_over` calls come before it.
    first_call(std::string function, std::function<void()> act, int passed_over = 0)
        : m_function(std::move(function)), m_act(std::move(act)), m_left(passed_over) {
        fake_dnssd::set_hook(&first_call::call, this);
    }
    ~first_call() { fake_dnssd::set_hook(nullptr, nullptr); }
    first_call(const first_call&) = delete;
    first_call& operator=(const first_call&) = delete;

    bool has_come() const { return m_act == nullptr; }

private:
    static void call(const char* function, void* self) {
        auto& me = *static_cast<first_call*>(self);
        if (me.m_function != function || me.m_act == nullptr || me.m_left-- > 0) return;
        std::exchange(me.m_act, nullptr)();
    }

    std::string m_function;
    std::function<void()> m_act;
    int m_left;
};

// --- The daemon

TEST_F(Faults, ADaemonThatIsNotThereRefusesAll) {
    fake_dnssd::kill_daemon();
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), -1);
    fake_dnssd::start_daemon();
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), 0);
}

TEST_F(Faults, ADaemonThatEndsIsTracedOnceForEachAndLeavesTheLoopQuiet) {
    cBonjour bonjour;
    bonjour.Service_Register(k_http, 1, nullptr);
    bonjour.StartObserving(1, k_http, 0);
    const collected_traces traces;
    fake_dnssd::kill_daemon();
    for (int i = 0; i < 100; ++i) zMessageLoop::RunOnce(0);
    const std::string line = "cBonjour: DNSServiceProcessResult - failed (err=-65563)\n";
    EXPECT_EQ(traces.text(), line + line);
    EXPECT_EQ(bonjour.Service_Unregister(k_http, 1), 0);
    bonjour.StopObserving(1);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Faults, ADaemonThatEndsIsKnownUntilAllIsAskedAnew) {
    cBonjour bonjour;
    cBonjour other;
    bonjour.Service_Register(k_http, 1, nullptr);
    bonjour.StartObserving(1, k_http, 0);
    run_loop();
    EXPECT_FALSE(bonjour.HasLostDaemon());
    const collected_traces traces;
    fake_dnssd::kill_daemon();
    run_loop();
    EXPECT_TRUE(bonjour.HasLostDaemon());
    EXPECT_FALSE(other.HasLostDaemon()) << "it had nothing to lose";
    fake_dnssd::start_daemon();
    bonjour.StopObserving(1);
    EXPECT_TRUE(bonjour.HasLostDaemon()) << "the registration is dead still";
    bonjour.Service_Unregister(k_http, 1);
    EXPECT_FALSE(bonjour.HasLostDaemon());
    bonjour.Service_Register(k_http, 1, nullptr);
    run_loop();
    EXPECT_FALSE(bonjour.HasLostDaemon());
}

// Avahi says so in the browse's own words.
TEST_F(Faults, ABrowseThatTheDaemonGivesUpIsKnown) {
    cBonjour bonjour;
    bonjour.StartObserving(1, k_http, 0);
    const collected_traces traces;
    fake_dnssd::tell(k_http, {0, 0, -65537, nullptr, nullptr, nullptr});
    run_loop();
    EXPECT_TRUE(bonjour.HasLostDaemon());
    EXPECT_EQ(traces.text(), "cBonjour: nothing more comes (err=-65537)\n");
}

TEST_F(Faults, WhatTheLibrarySaidOfARefusalIsKept) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.LastError(), 0);
    fake_dnssd::fail("Register", -65548, 1);
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(bonjour.LastError(), -65548);
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    EXPECT_EQ(bonjour.LastError(), 0);
    fake_dnssd::fail("Browse", -65544, 1);
    EXPECT_EQ(bonjour.StartObservingOnce(1, k_http, 1), -1);
    EXPECT_EQ(bonjour.LastError(), -65544);
    EXPECT_EQ(bonjour.StartObserving(0, k_http, 0), -1);
    EXPECT_EQ(bonjour.LastError(), 0) << "the library was not asked";
}

TEST_F(Faults, ADaemonThatComesBackServesWhoAsksAnew) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObserving(ears.id(), k_http, 0);
    const collected_traces traces;
    fake_dnssd::kill_daemon();
    run_loop();
    fake_dnssd::start_daemon();
    bonjour.StopObserving(ears.id());
    EXPECT_EQ(bonjour.StartObserving(ears.id(), k_http, 0), 0);
    serve("Camera");
    tell("Camera");
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
}

TEST_F(Faults, TheDaemonMayEndAsALookUpBegins) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObserving(ears.id(), k_http, 0);
    serve("Camera");
    tell("Camera");
    const collected_traces traces;
    const first_call ends("Resolve", [] { fake_dnssd::kill_daemon(); });
    run_loop();
    EXPECT_TRUE(ends.has_come());
    EXPECT_EQ(ears.names(), "");
    EXPECT_EQ(fake_dnssd::live_references(), 1);
}

TEST_F(Faults, TheDaemonMayEndBeforeALookUpIsAnswered) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObserving(ears.id(), k_http, 0);
    tell("Camera");
    const collected_traces traces;
    discovery::event_calls_in_use().wait = [](int socket, int ms) {
        if (ms > 0) fake_dnssd::kill_daemon();
        return discovery::wait_for_arrival(socket, 0);
    };
    run_loop();
    EXPECT_EQ(ears.names(), "");
    EXPECT_EQ(fake_dnssd::live_references(), 1);
}

TEST_F(Faults, WithoutAPlaceForEventsNothingBeginsAndLaterAllDoes) {
    cBonjour bonjour;
    discovery::event_calls_in_use().make =
        [](discovery::socket_events::arrived) -> std::unique_ptr<discovery::socket_events> {
        return nullptr;
    };
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), -1);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
    discovery::event_calls_in_use().make = &discovery::socket_events::make;
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), 0);
}

// --- Calls that come back

TEST_F(Faults, AnObserverMayStopItself) {
    cBonjour bonjour;
    const std::int32_t code = zObserverHandler::NewCode();
    int heard = 0;
    const zObserverHandler handler(code, [&](const zRecord&, std::uint64_t) {
        ++heard;
        bonjour.StopObserving(code);
    });
    bonjour.StartObserving(code, k_http, 0);
    serve("Camera");
    tell("Camera");
    run_loop();
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Faults, AnObserverMayEndTheObject) {
    auto bonjour = std::make_optional<cBonjour>();
    const std::int32_t code = zObserverHandler::NewCode();
    const zObserverHandler handler(code, [&](const zRecord&, std::uint64_t) { bonjour.reset(); });
    bonjour->Service_Register(k_http, 1, nullptr);
    bonjour->StartObserving(code, k_http, 0);
    serve("Camera");
    tell("Camera");
    tell("Camera");
    run_loop();
    EXPECT_FALSE(bonjour.has_value());
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

// What the host may do in the middle of a look-up: a sink of its traces, for one, runs there.
struct act_case {
    const char* name;
    void (*act)(std::optional<cBonjour>& bonjour, std::int32_t code);
    const char* heard;
};
void PrintTo(const act_case& one, std::ostream* out) { *out << one.name; }

constexpr act_case k_acts[] = {
    {"Nothing", [](auto&, std::int32_t) {}, "+Camera"},
    {"StopObserving", [](auto& bonjour, std::int32_t code) { bonjour->StopObserving(code); }, ""},
    {"Unregister", [](auto& bonjour, std::int32_t) { bonjour->Service_Unregister(nullptr, 0); },
     "+Camera"},
    {"Register", [](auto& bonjour, std::int32_t) { bonjour->Service_Register(k_http, 2, nullptr); },
     "+Camera"},
    {"ObserveAgain",
     [](auto& bonjour, std::int32_t code) { bonjour->StartObserving(code, k_http, 0); },
     "+Camera +Camera"},
    {"ObserveAnew",
     [](auto& bonjour, std::int32_t code) {
         bonjour->StopObserving(code);
         bonjour->StartObserving(code, k_http, 0);
     },
     ""},
    {"End", [](auto& bonjour, std::int32_t) { bonjour.reset(); }, ""},
};

class InTheMiddle : public FakeNetwork,
                    public testing::WithParamInterface<std::tuple<act_case, const char*>> {};

TEST_P(InTheMiddle, TheHostMayCallItsObject) {
    const auto& [what, function] = GetParam();
    auto bonjour = std::make_optional<cBonjour>();
    listener ears;
    bonjour->Service_Register(k_http, 1, nullptr);
    bonjour->StartObserving(ears.id(), k_http, 0);
    serve("Camera");
    tell("Camera");
    const std::string name(function);
    std::optional<first_call> call;
    const auto act = [&, &chosen = what] { chosen.act(bonjour, ears.id()); };
    if (name == "Answer") {
        call.emplace("Resolve", [&] { call.emplace("ProcessResult", act); });
    } else {
        call.emplace(name, act);
    }
    run_loop();
    EXPECT_TRUE(call->has_come());
    call.reset();
    bonjour.reset();
    run_loop();
    // At the end of the look-up they have been told already.
    EXPECT_EQ(ears.names(), name == "Deallocate" ? "+Camera" : what.heard);
}

INSTANTIATE_TEST_SUITE_P(OfALookUp, InTheMiddle,
                         testing::Combine(testing::ValuesIn(k_acts),
                                          testing::Values("Resolve", "Answer", "Deallocate")),
                         [](const auto& each) {
                             return std::string(std::get<0>(each.param).name) + "At" +
                                    std::get<1>(each.param);
                         });

// Where services wait to be looked up, each in a turn of its own: when the first is begun, and when
// the second is, before the first is waited for.
class InATurn : public FakeNetwork,
                public testing::WithParamInterface<std::tuple<act_case, int>> {};

TEST_P(InATurn, TheHostMayCallItsObject) {
    auto bonjour = std::make_optional<cBonjour>();
    listener ears;
    bonjour->Service_Register(k_http, 1, nullptr);
    bonjour->StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    for (const char* const name : {"a", "b", "c"}) {
        serve(name);
        tell(name);
    }
    const collected_traces traces;
    const auto& [what, passed_over] = GetParam();
    const auto act = [&, &chosen = what] { chosen.act(bonjour, ears.id()); };
    const first_call call("Resolve", act, passed_over);
    run_loop();
    EXPECT_TRUE(call.has_come());
    EXPECT_EQ(ears.names(), what.heard);
}

constexpr act_case k_turn_acts[] = {
    {"Nothing", [](auto&, std::int32_t) {}, "+a +b +c"},
    {"StopObserving", [](auto& bonjour, std::int32_t code) { bonjour->StopObserving(code); }, ""},
    {"ObserveAnew",
     [](auto& bonjour, std::int32_t code) {
         bonjour->StopObserving(code);
         bonjour->StartObservingOnce(code, k_http, 0);
     },
     ""},
    {"RunTheLoop", [](auto&, std::int32_t) { run_loop(); }, "+a +b +c"},
    {"End", [](auto& bonjour, std::int32_t) { bonjour.reset(); }, ""},
    {"DaemonEnds", [](auto&, std::int32_t) { fake_dnssd::kill_daemon(); }, ""},
};
// The second one goes while it is asked for, ahead of its turn.
TEST_F(Faults, WhatHasGoneWhileItWasAskedForIsNotWaitedFor) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    for (const char* const name : {"a", "b", "c"}) {
        if (*name != 'b') serve(name);
        tell(name);
    }
    const auto go = [] {
        tell("b", false);
        run_loop();
    };
    const first_call call("Resolve", go, 1);
    const collected_traces traces;
    run_loop();
    EXPECT_EQ(ears.names(), "+a +c");
    EXPECT_EQ(waits(), 2);
    EXPECT_EQ(traces.text(), "");
}

// A sink of the traces of it, for instance. Nothing is read of what has ended.
TEST_F(Faults, AWaitThatFailsMayEndTheObject) {
    static std::optional<cBonjour> s_bonjour;
    s_bonjour.emplace();
    s_bonjour->StartObserving(1, k_http, 0);
    discovery::event_calls_in_use().wait = [](int, int) {
        s_bonjour.reset();
        return discovery::arrival::failed;
    };
    serve("Camera");
    tell("Camera");
    fake_dnssd::forget_calls();
    run_loop();
    EXPECT_FALSE(s_bonjour);
    EXPECT_EQ(std::string(fake_dnssd::calls()).find("ProcessResult"), std::string::npos)
        << fake_dnssd::calls();
}

// It is asked for ahead, goes, and comes back on another port, all before its turn.
TEST_F(Faults, WhatComesBackIsToldAsItIsNow) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    for (const char* const name : {"a", "b"}) {
        serve(name, 1);
        tell(name);
    }
    const auto move = [] {
        fake_dnssd::forget_service("b");
        tell("b", false);
        serve("b", 2);
        tell("b");
        run_loop();
    };
    const first_call call("Deallocate", move);
    run_loop();
    ASSERT_TRUE(call.has_come());
    EXPECT_EQ(ears.heard().back().AsString("name", ""), "b");
    EXPECT_EQ(ears.heard().back().AsInt32("port", 0), 2);
}

INSTANTIATE_TEST_SUITE_P(OfLookUps, InATurn,
                         testing::Combine(testing::ValuesIn(k_turn_acts), testing::Values(0, 1)),
                         [](const auto& each) {
                             return std::string(std::get<0>(each.param).name) + "AtNumber" +
                                    std::to_string(std::get<1>(each.param) + 1);
                         });

TEST_F(Faults, ATraceOfALookUpMayEndTheObject) {
    auto bonjour = std::make_optional<cBonjour>();
    bonjour->StartObserving(1, k_http, 0);
    tell("Camera");
    tell("Camera");
    int traced = 0;
    zTraceManager::Default()->SetSink([&](const char*) {
        ++traced;
        bonjour.reset();
    });
    run_loop();
    zTraceManager::Default()->SetSink({});
    EXPECT_EQ(traced, 1);
}

// --- Threads and loops

TEST_F(Faults, AHostWithoutALoopLosesNothingButTheEvents) {
    const listener ears;
    {
        cBonjour bonjour;
        bonjour.StartObserving(ears.id(), k_http, 0);
        serve("Camera");
        for (int i = 0; i < 1000; ++i) tell("Camera");
        EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    }
    run_loop();
    EXPECT_EQ(ears.names(), "");
}

TEST_F(Faults, WhatArrivesComesOnTheThreadThatAskedFirst) {
    cBonjour first, second;
    const listener ears;
    first.Service_Register(k_http, 1, nullptr);
    std::thread([&] {
        second.StartObserving(ears.id(), k_http, 0);
        serve("Camera");
        tell("Camera");
        run_loop();
        EXPECT_EQ(fake_dnssd::live_references(), 2) << "nothing was looked up there";
    }).join();
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
}

TEST_F(Faults, TheThreadThatAskedFirstMayEnd) {
    auto bonjour = std::make_optional<cBonjour>();
    std::thread([&] { EXPECT_EQ(bonjour->Service_Register(k_http, 1, nullptr), 0); }).join();
    {
        const collected_traces traces;
        EXPECT_EQ(bonjour->StartObserving(1, k_http, 0), -1);
        EXPECT_NE(traces.text(), "");
        EXPECT_EQ(fake_dnssd::live_references(), 1);
        fake_dnssd::kill_daemon();
        run_loop();
        fake_dnssd::start_daemon();
        EXPECT_EQ(bonjour->Service_Unregister(k_http, 1), 0);
    }
    EXPECT_EQ(bonjour->StartObserving(1, k_http, 0), 0) << "all was withdrawn: a new start";
    bonjour->StopObserving(1);
}

TEST_F(Faults, AnEventThatComesLateIsPassedOver) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObserving(ears.id(), k_http, 0);
    serve("Camera");
    tell("Camera");
    // Its place, and what the system may have in store for it, go to another one.
    bonjour.StopObserving(ears.id());
    bonjour.StartObserving(ears.id(), k_http, 0);
    run_loop();
    EXPECT_EQ(ears.names(), "");
    tell("Camera");
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
}

// --- Too much

TEST_F(Faults, Of256ReferencesTheLastIsSilent) {
    cBonjour bonjour;
    const listener ears, late;
    for (int port = 1; port <= 254; ++port) {
        ASSERT_EQ(bonjour.Service_Register("_x._tcp.", port, nullptr), 0);
    }
    EXPECT_EQ(bonjour.StartObserving(ears.id(), k_http, 0), 0) << "the 255th";
    EXPECT_EQ(bonjour.StartObservingOnce(late.id(), k_http, 0), 0) << "the 256th";
    serve("Camera");
    tell("Camera");
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
    EXPECT_EQ(late.names(), "");
    bonjour.StopObserving(late.id());
    EXPECT_EQ(bonjour.Service_Unregister("_x._tcp.", 254), 0);
    EXPECT_EQ(bonjour.StartObservingOnce(late.id(), k_http, 0), 0) << "there is room again";
    tell("Camera");
    run_loop();
    EXPECT_EQ(late.names(), "+Camera");
}

TEST_F(Faults, AThousandTypesAreBrowsed) {
    cBonjour bonjour;
    const listener ears;
    serve("Camera");
    for (int i = 0; i < 1000; ++i) {
        const std::string type = "_t" + std::to_string(i) + "._tcp.";
        ASSERT_EQ(bonjour.StartObserving(ears.id(), type.c_str(), 0), 0);
    }
    for (int i = 0; i < 1000; ++i) {
        const std::string type = "_t" + std::to_string(i) + "._tcp.";
        fake_dnssd::tell(type.c_str(), {2, 1, 0, "Camera", type.c_str(), "local."});
    }
    run_loop();
    EXPECT_EQ(ears.heard().size(), 255u);
    bonjour.StopObserving(ears.id());
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Faults, ManyStartsAndStopsLeaveNothing) {
    for (int i = 0; i < 100; ++i) {
        cBonjour bonjour;
        bonjour.Service_Register(k_http, 1, nullptr);
        bonjour.StartObserving(1, k_http, 0);
        run_loop();
    }
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

}  // namespace
}  // namespace pennywort::tests
