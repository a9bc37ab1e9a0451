// observe_test.cpp - cBonjour: observers hear of services.
#include <algorithm>
#include <string>

#include "discovery/dnssd_name.h"
#include "discovery/known_services.h"
#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

class Observe : public FakeNetwork {};

// With one that hears of all services of a type.
class Observers : public FakeNetwork {
protected:
    void SetUp() override {
        FakeNetwork::SetUp();
        m_bonjour = std::make_unique<cBonjour>();
        ASSERT_EQ(m_bonjour->StartObserving(m_ears.id(), k_http, 0), 0);
    }
    void TearDown() override {
        m_bonjour.reset();
        FakeNetwork::TearDown();
    }

    std::unique_ptr<cBonjour> m_bonjour;
    listener m_ears;
};

TEST_F(Observe, AskForTheTypeOnAllInterfacesOrHere) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), 0);
    EXPECT_EQ(bonjour.StartObserving(1, "_ftp._tcp.", 3), 0);
    EXPECT_EQ(bonjour.StartObserving(1, "_nfs._udp.", 2), 0);
    EXPECT_STREQ(fake_dnssd::calls(),
                 "Browse flags=0 interface=0 type=_http._tcp. domain=(null)\n"
                 "Browse flags=0 interface=-1 type=_ftp._tcp. domain=(null)\n"
                 "Browse flags=0 interface=0 type=_nfs._udp. domain=(null)\n");
}

struct type_case {
    const char* name;
    const char* type;
    long want;
};
void PrintTo(const type_case& one, std::ostream* out) { *out << one.name; }

constexpr type_case k_types[] = {
    {"Tcp", "_http._tcp.", 0},
    {"Udp", "_nfs._udp.", 0},
    {"WithADomain", "_http._tcp.local.", 0},
    {"AnywhereBehind", "_a.b.c._udp.d", 0},
    {"NoLastDot", "_http._tcp", -1},
    {"NoUnderscore", "http._tcp.", -1},
    {"OtherProtocol", "_http._sctp.", -1},
    {"Empty", "", -1},
    {"Null", nullptr, -1},
};

class ObserveType : public FakeNetwork, public testing::WithParamInterface<type_case> {};

TEST_P(ObserveType, IsJudged) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.StartObserving(1, GetParam().type, 0), GetParam().want);
    EXPECT_EQ(bonjour.StartObservingOnce(1, GetParam().type, 0), GetParam().want);
    EXPECT_EQ(fake_dnssd::live_references(), GetParam().want == 0 ? 2 : 0);
}

INSTANTIATE_TEST_SUITE_P(All, ObserveType, testing::ValuesIn(k_types),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(Observe, NobodyIsNoObserver) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.StartObserving(0, k_http, 0), -1);
    // Its 32 bits are 0, on every system.
    EXPECT_EQ(bonjour.StartObserving(static_cast<long>(std::int64_t{1} << 32), k_http, 0), -1);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Observers, HearOfAServiceWithAllThatIsKnown) {
    serve("Camera", 8080);
    ASSERT_TRUE(tell("Camera"));
    run_loop();
    ASSERT_EQ(m_ears.heard().size(), 1u);
    const zRecord& record = m_ears.heard()[0];
    EXPECT_EQ(record.AsInt32(k_what, 0), k_found);
    EXPECT_EQ(record.AsString("host", ""), "studio.local.");
    EXPECT_EQ(record.AsString("service", ""), k_http);
    EXPECT_EQ(record.AsInt32("port", 0), 8080);
    EXPECT_EQ(record.AsString("name", ""), "Camera");
    EXPECT_EQ(record.VariableCount(), 5u);
    EXPECT_EQ(record.VariableID(0), k_what);
    EXPECT_EQ(record.ChildCount(), 0u) << "a record of no TXT has no child";
    EXPECT_EQ(count_of("Resolve flags=0 interface=2 name=Camera type=_http._tcp. domain=local.\n"),
              1);
}

TEST_F(Observe, HearTheTypeAsItWasAskedFor) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObserving(ears.id(), "_http._tcp.local.", 0);
    serve("Camera");
    fake_dnssd::tell("_http._tcp.local.", {2, 1, 0, "Camera", k_http, "local."});
    run_loop();
    ASSERT_EQ(ears.heard().size(), 1u);
    EXPECT_EQ(ears.heard()[0].AsString("service", ""), "_http._tcp.local.");
}

TEST_F(Observers, HearAPortOfAllItsBits) {
    serve("Camera", 0xFF01);
    tell("Camera");
    run_loop();
    ASSERT_EQ(m_ears.heard().size(), 1u);
    EXPECT_EQ(m_ears.heard()[0].AsInt32("port", 0), 0xFF01);
}

TEST_F(Observers, HearEveryItemOfTheTextRecord) {
    serve("Camera", 1,
          std::string("\x04"
                      "a=\0\xFF"
                      "\x01"
                      "b"
                      "\x02"
                      "c="
                      "\x02"
                      "=d"
                      "\x00"
                      "\x03"
                      "e=1"
                      "\x03"
                      "e=2",
                      22));
    tell("Camera");
    run_loop();
    ASSERT_EQ(m_ears.heard().size(), 1u);
    ASSERT_EQ(m_ears.heard()[0].ChildCount(), 1u);
    const zRecord& items = *m_ears.heard()[0].Child(0);
    std::uint32_t length = 0;
    const char* const value = items.AsText("a", &length);
    EXPECT_EQ(std::string(value, length), std::string("\0\xFF", 2));
    EXPECT_EQ(items.AsString("b", "none"), "");
    EXPECT_EQ(items.AsString("c", "none"), "");
    EXPECT_TRUE(items.Has(""));
    EXPECT_EQ(items.AsString("e", "none"), "2") << "a key given twice has its last value";
    EXPECT_STREQ(items.VariableName(0), "a");
}

TEST_F(Observers, HearTheLongestKey) {
    serve("Camera", 1, "\xFF" + std::string(255, 'k'));
    tell("Camera");
    run_loop();
    ASSERT_EQ(m_ears.heard().size(), 1u);
    EXPECT_EQ(m_ears.heard()[0].Child(0)->VariableCount(), 1u);
    EXPECT_STREQ(m_ears.heard()[0].Child(0)->VariableName(0), std::string(255, 'k').c_str());
}

// The library walks to each item from the front of what it is shown.
TEST_F(Observers, HearALongRecordWholeWithoutAWalkThroughAllOfIt) {
    std::string txt(1000, '\0');
    for (int i = 100; i < 400; ++i) txt += "\x05" + std::to_string(i) + "=v";
    serve("Camera", 1, txt + "\x05" + "cut");
    tell("Camera");
    run_loop();
    ASSERT_EQ(m_ears.heard().size(), 1u);
    const zRecord& items = *m_ears.heard()[0].Child(0);
    EXPECT_EQ(items.VariableCount(), 301u) << "one has no key";
    for (int i = 100; i < 400; ++i) {
        EXPECT_EQ(items.AsString(std::to_string(i).c_str(), ""), "v") << i;
    }
    EXPECT_LE(fake_dnssd::highest_item(), 64);
}

TEST_F(Observers, HearWhatIsBehindAnItemThatCannotBeRead) {
    serve("Camera", 1,
          "\x03"
          "a=1"
          "\x03"
          "b=2");
    fake_dnssd::fail("Item", -65539, 1);
    tell("Camera");
    run_loop();
    ASSERT_EQ(m_ears.heard().size(), 1u);
    const zRecord& items = *m_ears.heard()[0].Child(0);
    EXPECT_TRUE(items.Has("")) << "it is an item all the same";
    EXPECT_EQ(items.AsString("b", "none"), "2");
    EXPECT_EQ(items.VariableCount(), 2u);
}

TEST_F(Observers, LookAtOneBitOfTheFlags) {
    serve("Camera");
    for (const std::uint32_t flags : {3u, 1u, 0x40000002u}) {
        fake_dnssd::tell(k_http, {flags, 1, 0, "Camera", k_http, "local."});
    }
    run_loop();
    EXPECT_EQ(m_ears.names(), "+Camera -Camera +Camera");
}

TEST_F(Observers, HearARecordOf65535BytesAndOneThatIsCut) {
    std::string record;
    for (int i = 0; record.size() + 256 <= 65535; ++i) {
        std::string item = "k" + std::to_string(i) + "=";
        record += "\xFF" + item.append(255 - item.size(), 'v');
    }
    serve("Large", 1, record);
    serve("Cut", 1,
          std::string("\x03"
                      "a=1"
                      "\x09"
                      "b=",
                      7));
    tell("Large");
    tell("Cut");
    run_loop();
    ASSERT_EQ(m_ears.names(), "+Large +Cut");
    EXPECT_EQ(m_ears.heard()[0].Child(0)->VariableCount(), 255u);
    EXPECT_EQ(m_ears.heard()[1].Child(0)->VariableCount(), 1u);
}

TEST_F(Observe, OneBrowseServesAllObserversOfAType) {
    cBonjour bonjour;
    listener one, other;
    bonjour.StartObserving(one.id(), k_http, 0);
    bonjour.StartObserving(other.id(), k_http, 0);
    bonjour.StartObserving(other.id(), k_http, 0);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    serve("Camera");
    tell("Camera");
    run_loop();
    EXPECT_EQ(one.names(), "+Camera");
    EXPECT_EQ(other.names(), "+Camera +Camera") << "twice for one that asked twice";
    bonjour.StopObserving(one.id());
    EXPECT_EQ(fake_dnssd::live_references(), 1) << "the browse stays for the other";
    bonjour.StopObserving(other.id());
    EXPECT_EQ(fake_dnssd::live_references(), 1) << "it asked twice";
    bonjour.StopObserving(other.id());
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Observe, AShorterTypeJoinsTheBrowseOfALongerOne) {
    cBonjour bonjour;
    bonjour.StartObserving(1, "_http._tcp.local.", 0);
    bonjour.StartObserving(2, k_http, 0);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    bonjour.StopObserving(1);
    bonjour.StartObserving(1, "_http._tcp.local.", 0);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    bonjour.StartObserving(3, "_http._tcp.local.example.", 0);
    EXPECT_EQ(fake_dnssd::live_references(), 2);
}

TEST_F(Observe, StoppingEndsAllTypesOfAnObserver) {
    cBonjour bonjour;
    bonjour.StartObserving(1, k_http, 0);
    bonjour.StartObserving(1, "_ftp._tcp.", 0);
    bonjour.StartObserving(2, "_ftp._tcp.", 0);
    bonjour.StopObserving(3);
    EXPECT_EQ(fake_dnssd::live_references(), 2);
    bonjour.StopObserving(1);
    EXPECT_EQ(fake_dnssd::live_references(), 1);
}

TEST_F(Observers, AServiceThatIsGoneIsHeardIfItStillAnswers) {
    serve("Camera");
    tell("Camera", false);
    run_loop();
    EXPECT_EQ(m_ears.names(), "-Camera");
}

TEST_F(Observers, ALookUpThatGetsNoAnswerIsTracedAndUnheard) {
    const collected_traces traces;
    tell("Camera", false);
    run_loop();
    EXPECT_EQ(m_ears.names(), "");
    EXPECT_EQ(traces.text(), "cBonjour: Timeout waiting for browsing resolution.!\n");
    EXPECT_EQ(fake_dnssd::live_references(), 1) << "the look-up was not given back";
}

TEST_F(Observe, ALookUpWaitsTwoSecondsAtMost) {
    static int s_asked_for;
    s_asked_for = 0;
    discovery::event_calls_in_use().wait = [](int socket, int ms) {
        s_asked_for = std::max(s_asked_for, ms);
        return discovery::wait_for_arrival(socket, 0);
    };
    cBonjour bonjour;
    bonjour.StartObserving(1, k_http, 0);
    const collected_traces traces;
    tell("Camera");
    run_loop();
    EXPECT_EQ(s_asked_for, 2000);
}

// Where the first result may be for the library alone, the answer is waited for; elsewhere one
// result is all that is asked for.
TEST_F(Observers, AnAnswerMayBeBehindOtherResults) {
    serve("Camera");
    fake_dnssd::delay_answers(3);
    const collected_traces traces;
    tell("Camera");
    run_loop();
    const bool is_one_all = discovery::is_first_result_the_answer();
    EXPECT_EQ(m_ears.names(), is_one_all ? "" : "+Camera");
    EXPECT_EQ(count_of("ProcessResult"), is_one_all ? 2 : 5);
    EXPECT_EQ(traces.text(), "");
}

TEST_F(Observers, ALookUpThatCannotBeWaitedForIsTracedAndUnheard) {
    serve("Camera");
    fake_dnssd::break_next_socket();
    const collected_traces traces;
    tell("Camera");
    run_loop();
    EXPECT_EQ(m_ears.names(), "");
    // Behind what the system's own call says, if it was asked.
    const std::string line = "cBonjour: Failure attempting to wait for browsing resolution.!\n";
    EXPECT_TRUE(traces.text().ends_with(line)) << traces.text();
}

TEST_F(Observers, ALookUpThatCannotBeginIsUnheard) {
    serve("Camera");
    fake_dnssd::fail("Resolve", -65537, 1);
    tell("Camera");
    run_loop();
    EXPECT_EQ(m_ears.names(), "");
    EXPECT_EQ(fake_dnssd::live_references(), 1);
}

TEST_F(Observe, AnAnswerThatIsAFailureIsTakenAsItIs) {
    cBonjour bonjour;
    listener plain, once;
    bonjour.StartObserving(plain.id(), k_http, 0);
    bonjour.StartObservingOnce(once.id(), k_http, 0);
    fake_dnssd::set_resolve_error(-65537);
    tell("Camera");
    run_loop();
    ASSERT_EQ(plain.names(), "+Camera");
    EXPECT_EQ(plain.heard()[0].AsString("host", "none"), "");
    EXPECT_EQ(once.names(), "");
}

TEST_F(Observers, ABrowseThatFailsTellsNothing) {
    serve("Camera");
    fake_dnssd::tell(k_http, {2, 1, -65537, "Camera", k_http, "local."});
    run_loop();
    EXPECT_EQ(m_ears.names(), "");
    EXPECT_EQ(count_of("Resolve"), 0);
}

TEST_F(Observers, WhatIsIncompleteIsNotLookedUp) {
    m_bonjour->StartObservingOnce(m_ears.id(), k_http, 0);
    fake_dnssd::tell(k_http, {2, 1, 0, nullptr, k_http, "local."});
    fake_dnssd::tell(k_http, {2, 1, 0, "Camera", nullptr, "local."});
    fake_dnssd::tell(k_http, {2, 1, 0, "Camera", k_http, nullptr});
    run_loop();
    EXPECT_EQ(count_of("Resolve"), 0);
    EXPECT_EQ(count_of("ProcessResult"), 6);
}

TEST_F(Observe, OnceMeansOnceAndGoneMeansGone) {
    cBonjour bonjour;
    listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    serve("Camera", 80,
          "\x03"
          "a=1");
    for (const std::uint32_t interface_index : {1, 2, 2}) tell("Camera", true, interface_index);
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
    EXPECT_EQ(count_of("Resolve"), 1);
    ears.forget();
    fake_dnssd::forget_service("Camera");
    tell("Camera", false, 2);
    tell("Camera", false, 1);
    run_loop();
    EXPECT_EQ(ears.names(), "") << "it is still there on one of them";
    tell("Camera", false, 2);
    run_loop();
    ASSERT_EQ(ears.names(), "-Camera");
    EXPECT_EQ(count_of("Resolve"), 1) << "what has gone is not looked up";
    const zRecord& record = ears.heard()[0];
    EXPECT_EQ(record.AsString("host", ""), "studio.local.");
    EXPECT_EQ(record.AsInt32("port", 0), 80);
    EXPECT_EQ(record.Child(0)->AsString("a", ""), "1");
    tell("Camera", false, 2);
    run_loop();
    EXPECT_EQ(ears.heard().size(), 1u) << "gone twice";
}

TEST_F(Observe, OnceIsTriedAgainWhereALookUpFailed) {
    cBonjour bonjour;
    listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    const collected_traces traces;
    tell("Camera", true, 1);
    run_loop();
    EXPECT_EQ(ears.names(), "");
    serve("Camera");
    tell("Camera", true, 2);
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
    ears.forget();
    tell("Other", true, 1);
    tell("Other", false, 1);
    run_loop();
    EXPECT_EQ(ears.names(), "") << "nobody heard that it came";
}

// A library may tell of many services in one result, and each that is silent takes 2 s. The next
// one is asked for meanwhile.
TEST_F(Observe, OnceWaitsForOneServiceATurnOfTheLoop) {
    cBonjour bonjour;
    bonjour.StartObservingOnce(1, k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    for (const char* const name : {"a", "b", "c", "d", "e"}) tell(name);
    const collected_traces traces;
    int before = 0;
    while (zMessageLoop::RunOnce(0)) {
        EXPECT_LE(waits(), before + 1);
        before = waits();
        if (before > 0) {
            EXPECT_EQ(count_of("Resolve"), std::min(before + 1, 5));
        }
    }
    EXPECT_EQ(before, 5);
    EXPECT_EQ(count_of("Resolve"), 5);
    EXPECT_EQ(count_of("ProcessResult"), 1);
}

TEST_F(Observe, WhatIsGoneBeforeItsTurnIsNotLookedUp) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    serve("Camera");
    serve("Other");
    tell("Camera");
    tell("Other");
    tell("Camera", false);
    run_loop();
    EXPECT_EQ(ears.names(), "+Other");
    EXPECT_EQ(count_of("Resolve"), 1);
}

TEST_F(Observe, OnceASilentServiceThatComesAndGoesHoldsUpNoOther) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    serve("Camera");
    for (int i = 0; i < 100; ++i) {
        tell("silent");
        tell("silent", false);
    }
    tell("silent");
    tell("Camera");
    const collected_traces traces;
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera");
    EXPECT_EQ(count_of("Resolve"), 2);
}

TEST_F(Observe, OnceTooManyServicesAreTracedOnce) {
    cBonjour bonjour;
    const listener ears;
    bonjour.StartObservingOnce(ears.id(), k_http, 0);
    fake_dnssd::tell_all_in_one_result();
    const auto most = static_cast<int>(discovery::k_max_known_services);
    for (int i = 0; i < most + 2; ++i) tell(std::to_string(i).c_str());
    const collected_traces traces;
    while (count_of("ProcessResult") == 0) ASSERT_TRUE(zMessageLoop::RunOnce(0));
    // On Windows the first look-ups may come in the same turn, and say what came of them.
    const std::string line = "cBonjour: too many services of type _http._tcp.\n";
    EXPECT_TRUE(traces.text().starts_with(line)) << traces.text();
    EXPECT_EQ(traces.text().find(line, line.size()), std::string::npos);
}

TEST_F(Observe, WhatWaitsForItsTurnGoesWithItsObserver) {
    for (const bool is_ended : {false, true}) {
        auto bonjour = std::make_unique<cBonjour>();
        bonjour->StartObservingOnce(1, k_http, 0);
        fake_dnssd::forget_calls();
        fake_dnssd::tell_all_in_one_result();
        serve("Camera");
        for (const char* const name : {"Camera", "b", "c"}) tell(name);
        while (count_of("Resolve") == 0) ASSERT_TRUE(zMessageLoop::RunOnce(0));
        bonjour->StopObserving(1);
        if (is_ended) {
            bonjour.reset();
        } else {
            bonjour->StartObservingOnce(1, k_http, 0);
        }
        run_loop();
        EXPECT_EQ(count_of("Resolve"), 2) << "the second was begun while the first was waited for";
    }
}

TEST_F(Observe, EachIsReportedOnEachInterface) {
    cBonjour bonjour;
    const listener ears;
    ASSERT_EQ(bonjour.StartObservingEach(ears.id(), k_http, 0), 0);
    serve("Camera", 80);
    for (const std::uint32_t interface_index : {1, 2, 2}) tell("Camera", true, interface_index);
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera +Camera");
    fake_dnssd::forget_service("Camera");
    tell("Camera", false, 1);
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera +Camera -Camera");
    EXPECT_EQ(ears.heard().back().AsInt32("port", 0), 80) << "it is not looked up any more";
    tell("Camera", false, 2);
    run_loop();
    EXPECT_EQ(ears.heard().size(), 3u) << "it is still there by another protocol";
    tell("Camera", false, 2);
    run_loop();
    EXPECT_EQ(ears.names(), "+Camera +Camera -Camera -Camera");
}

TEST_F(Observe, TheThreeWaysKeepApart) {
    cBonjour bonjour;
    bonjour.StartObserving(1, k_http, 0);
    bonjour.StartObservingOnce(1, k_http, 0);
    bonjour.StartObservingEach(1, k_http, 0);
    bonjour.StartObservingEach(2, k_http, 0);
    EXPECT_EQ(fake_dnssd::live_references(), 3);
}

TEST_F(Observe, OnceAndPlainKeepApart) {
    cBonjour bonjour;
    listener plain, once;
    bonjour.StartObservingOnce(once.id(), k_http, 0);
    bonjour.StartObserving(plain.id(), k_http, 0);
    EXPECT_EQ(fake_dnssd::live_references(), 2);
    serve("Camera");
    tell("Camera", true, 1);
    tell("Camera", true, 2);
    run_loop();
    EXPECT_EQ(once.names(), "+Camera");
    EXPECT_EQ(plain.names(), "+Camera +Camera");
    bonjour.StopObserving(once.id());
    EXPECT_EQ(fake_dnssd::live_references(), 1);
    tell("Camera", false, 1);
    run_loop();
    EXPECT_EQ(plain.names(), "+Camera +Camera -Camera");
    EXPECT_EQ(once.names(), "+Camera");
}

TEST(SystemHasBonjour, WhereItsLibraryIsThere) { EXPECT_TRUE(cBonjour::SystemHasBonjour()); }

}  // namespace
}  // namespace pennywort::tests
