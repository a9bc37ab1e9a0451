// avahi_test_linux.cpp - cBonjour on real avahi daemons: each test has two hosts of its own, which
// tests/discovery/two_hosts makes. This program runs on host a; its peers run on host b.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "bonjour.h"
#include "loam/message_loop.h"
#include "loam/record.h"
#include "tests/discovery/listener.h"
#include "tests/support/collected_traces.h"
#include "tests/support/eventually.h"

extern char** environ;

namespace pennywort::tests {
namespace {

// Runs this thread's loop until the condition; false if that does not come.
bool loop_until(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + k_patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        zMessageLoop::RunOnce(10'000);
    }
    return true;
}

// A shell command, ended with its object; what it writes is read while the loop of this thread
// runs.
class shell {
public:
    explicit shell(const std::string& command) {
        int from_child[2] = {}, to_child[2] = {};
        EXPECT_EQ(::pipe2(from_child, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(to_child, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, to_child[0], 0);
        posix_spawn_file_actions_adddup2(&actions, from_child[1], 1);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        const std::string whole = "exec 2>&1; " + command;
        const char* const words[] = {"sh", "-c", whole.c_str(), nullptr};
        EXPECT_EQ(::posix_spawn(&m_process, "/bin/sh", &actions, &attributes,
                                const_cast<char**>(words), environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        ::close(from_child[1]);
        ::close(to_child[0]);
        m_out = from_child[0];
        m_in = to_child[1];
    }
    ~shell() {
        ::kill(-m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
        ::close(m_out);
        ::close(m_in);
    }
    shell(const shell&) = delete;
    shell& operator=(const shell&) = delete;

    // All that it has written.
    const std::string& text() {
        pollfd one{m_out, POLLIN, 0};
        char bytes[4096];
        while (!m_has_ended && ::poll(&one, 1, 0) > 0) {
            const auto count = ::read(m_out, bytes, sizeof bytes);
            m_has_ended = count <= 0;
            if (count > 0) m_text.append(bytes, static_cast<std::size_t>(count));
        }
        return m_text;
    }
    bool says(const std::string& part) {
        return loop_until([&] { return text().find(part) != std::string::npos || m_has_ended; }) &&
               m_text.find(part) != std::string::npos;
    }
    bool ends() {
        return loop_until([&] {
            text();
            return m_has_ended;
        });
    }
    // As Ctrl-C does.
    void interrupt() { EXPECT_EQ(::kill(-m_process, SIGINT), 0); }
    void tell(const std::string& line) {
        EXPECT_EQ(::write(m_in, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }

private:
    pid_t m_process = 0;
    int m_out = -1;
    int m_in = -1;
    bool m_has_ended = false;
    std::string m_text;
};

std::string peer(const std::string& what) {
    return "\"$TWO_HOSTS\" on b " DISCOVERY_PEER " " + what;
}
std::string avahi_browse() { return "\"$TWO_HOSTS\" on b avahi-browse -rpt _http._tcp"; }

// What a command writes until it ends.
std::string output_of(const std::string& command) {
    shell run(command);
    EXPECT_TRUE(run.ends());
    return run.text();
}
void daemon(const std::string& host, const std::string& what) {
    EXPECT_EQ(output_of("\"$TWO_HOSTS\" daemon " + host + " " + what), "");
}

TEST(Avahi, AServiceIsSeenOnTheOtherHostAndWithdrawn) {
    cBonjour bonjour;
    ASSERT_EQ(bonjour.Service_Register(k_http, 8080,
                                       "\x03"
                                       "a=1"),
              0);
    std::string seen;
    EXPECT_TRUE(loop_until([&] {
        seen = output_of(avahi_browse());
        return seen.find(
                   "=;cable;IPv4;host-a;Web Site;local;host-a.local;192.168.77.1;8080;\"a=1\"") !=
               std::string::npos;
    })) << seen;
    EXPECT_EQ(bonjour.Service_Unregister(k_http, 8080), 0);
    EXPECT_TRUE(loop_until([&] {
        seen = output_of(avahi_browse());
        return seen.find("host-a") == std::string::npos;
    })) << seen;
}

// a=\0\xFF, b without a value, c with an empty one
TEST(Avahi, BinaryAndEmptyItemsArriveAsTheyAre) {
    shell other(peer("publish _http._tcp. 8081 1 'Caméra 1' 04613d00ff016202633d"));
    ASSERT_TRUE(other.says("ready")) << other.text();
    cBonjour bonjour;
    const listener ears;
    ASSERT_EQ(bonjour.StartObservingOnce(ears.id(), k_http, 0), 0);
    ASSERT_TRUE(loop_until([&] { return ears.count("+Caméra 1") == 1; }));
    const zRecord& record = ears.heard()[0];
    EXPECT_EQ(record.AsString("host", ""), "host-b.local.");
    EXPECT_EQ(record.AsString("service", ""), k_http);
    EXPECT_EQ(record.AsInt32("port", 0), 8081);
    ASSERT_EQ(record.ChildCount(), 1u);
    std::uint32_t length = 0;
    const char* const value = record.Child(0)->AsText("a", &length);
    EXPECT_EQ(std::string(value, length), std::string("\0\xFF", 2));
    EXPECT_TRUE(record.Child(0)->Has("b"));
    EXPECT_EQ(record.Child(0)->AsString("b", "none"), "");
    EXPECT_EQ(record.Child(0)->AsString("c", "none"), "");
    EXPECT_EQ(record.Child(0)->VariableCount(), 3u);
}

TEST(Avahi, PlainComesForEachProtocolAndOnceComesOnce) {
    shell other(peer("publish _http._tcp. 1 1 Camera"));
    ASSERT_TRUE(other.says("ready")) << other.text();
    cBonjour bonjour;
    const listener plain, once;
    ASSERT_EQ(bonjour.StartObserving(plain.id(), k_http, 0), 0);
    ASSERT_EQ(bonjour.StartObservingOnce(once.id(), k_http, 0), 0);
    EXPECT_TRUE(loop_until([&] { return plain.count("+Camera") == 2; }));
    EXPECT_TRUE(loop_until([&] { return once.count("+Camera") == 1; }));
    other.tell("withdraw\n");
    const collected_traces traces;
    EXPECT_TRUE(loop_until([&] { return once.count("-Camera") == 1; }));
    // It no longer resolves: the plain browse says so in its traces, and nothing else.
    const std::string line = "cBonjour: Timeout waiting for browsing resolution.!\n";
    EXPECT_TRUE(loop_until([&] { return traces.text() == line + line; })) << traces.text();
    EXPECT_EQ(plain.count("-Camera"), 0);
    EXPECT_EQ(plain.count("+Camera"), 2);
    EXPECT_EQ(once.count("+Camera"), 1);
}

TEST(Avahi, TheSameNameOnTwoHostsBecomesTwo) {
    cBonjour bonjour;
    ASSERT_EQ(bonjour.Service_Advertise("Camera", k_http, 1, nullptr, 0), 0);
    shell other(peer("publish _http._tcp. 2 1 Camera"));
    ASSERT_TRUE(other.says("ready")) << other.text();
    const listener ears;
    ASSERT_EQ(bonjour.StartObservingOnce(ears.id(), k_http, 0), 0);
    EXPECT_TRUE(
        loop_until([&] { return ears.count("+Camera") == 1 && ears.count("+Camera #2") == 1; }));
}

TEST(Avahi, WithoutADaemonAllIsRefusedAndLaterWorks) {
    daemon("a", "stop");
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), -1);
    EXPECT_TRUE(cBonjour::SystemHasBonjour()) << "the library is there";
    daemon("a", "start");
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), 0);
}

TEST(Avahi, WithoutABusAllIsRefused) {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), -1);
}

// Turns of the loop that had something to do, of a hundred.
int busy_turns() {
    int busy = 0;
    for (int i = 0; i < 100; ++i) busy += zMessageLoop::RunOnce(1000) ? 1 : 0;
    return busy;
}

TEST(Avahi, ADaemonThatIsKilledLeavesTheLoopQuietAndServesAgain) {
    cBonjour bonjour;
    const listener ears;
    ASSERT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    ASSERT_EQ(bonjour.StartObserving(ears.id(), k_http, 0), 0);
    ASSERT_TRUE(loop_until([&] { return ears.count("+host-a") > 0; }));
    {
        const collected_traces traces;
        EXPECT_FALSE(bonjour.HasLostDaemon());
        daemon("a", "kill");
        EXPECT_TRUE(loop_until([&] { return bonjour.HasLostDaemon(); }));
        EXPECT_TRUE(loop_until([] { return busy_turns() == 0; })) << "the loop spins";
    }
    daemon("a", "start");
    EXPECT_EQ(busy_turns(), 0);
    bonjour.StopObserving(ears.id());
    EXPECT_EQ(bonjour.Service_Unregister(k_http, 1), 0);
    EXPECT_EQ(bonjour.Service_Register("_again._tcp.", 1, nullptr), 0);
    EXPECT_EQ(bonjour.StartObserving(ears.id(), "_again._tcp.", 0), 0);
    const auto before = ears.heard().size();
    EXPECT_TRUE(loop_until([&] { return ears.heard().size() > before; }));
}

TEST(Avahi, TheDaemonMayBeKilledAtAnyStep) {
    // Of a registration
    {
        cBonjour bonjour;
        ASSERT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
        daemon("a", "kill");
        EXPECT_EQ(bonjour.Service_Unregister(k_http, 1), 0) << "before anything arrived";
        daemon("a", "start");
    }
    // Of a browse
    {
        cBonjour bonjour;
        ASSERT_EQ(bonjour.StartObserving(1, k_http, 0), 0);
        daemon("a", "kill");
        bonjour.StopObserving(1);
        daemon("a", "start");
    }
    // With a change of the browse waiting: the look-up finds no daemon
    cBonjour bonjour;
    const listener ears;
    ASSERT_EQ(bonjour.StartObserving(ears.id(), k_http, 0), 0);
    shell other(peer("publish _http._tcp. 1 1 Camera"));
    ASSERT_TRUE(other.says("ready")) << other.text();
    // Without this thread's loop, so that what comes here waits.
    ASSERT_EQ(std::system("for i in $(seq 100); do avahi-browse -rpt _http._tcp | grep -q Camera &&"
                          " exec \"$TWO_HOSTS\" daemon a kill; sleep 0.2; done; exit 1"),
              0);
    const collected_traces traces;
    EXPECT_TRUE(loop_until([] { return busy_turns() == 0; }));
    EXPECT_EQ(ears.count("+Camera"), 0);
}

TEST(Avahi, NamesThatItCannotTakeAreRefused) {
    cBonjour bonjour;
    const std::string longest(63, 'n');
    EXPECT_EQ(bonjour.Service_Advertise(longest.c_str(), k_http, 1, nullptr, 0), 0);
    EXPECT_EQ(bonjour.Service_Advertise((longest + "n").c_str(), k_http, 1, nullptr, 0), -1);
    EXPECT_EQ(bonjour.Service_Advertise("caf\xE9", k_http, 1, nullptr, 0), -1);
    EXPECT_EQ(bonjour.Service_Register("_caf\xE9._tcp.", 1, nullptr), -1);
    EXPECT_EQ(bonjour.StartObserving(1, "_caf\xE9._tcp.", 0), -1);
    EXPECT_EQ(bonjour.Service_Register("no type", 1, nullptr), -1);
    EXPECT_EQ(bonjour.StartObserving(1, k_http, 1), -1) << "this machine alone: not with Avahi";
    const listener ears;
    ASSERT_EQ(bonjour.StartObservingOnce(ears.id(), k_http, 0), 0);
    EXPECT_TRUE(loop_until([&] { return ears.count("+" + longest) == 1; }));
}

TEST(Avahi, ATextRecordOf64KiBIsTakenAndHurtsNothing) {
    cBonjour bonjour;
    zString record;
    const std::string value(252, 'v');
    for (int i = 0; cBonjour::TXTAddItem(record, "k", value.data(), value.size()); ++i) {
    }
    EXPECT_EQ(bonjour.Service_Advertise("large", k_http, 1, record.CString(), record.Length()), 0)
        << "Avahi takes it, though no packet holds it";
    EXPECT_EQ(bonjour.Service_Advertise("fits", k_http, 1, record.CString(), 255 * 4), 0);
    const listener ears;
    ASSERT_EQ(bonjour.StartObservingOnce(ears.id(), k_http, 0), 0);
    EXPECT_TRUE(loop_until([&] { return ears.count("+fits") == 1; }));
}

// --- The program, as its user runs it

TEST(AvahiProgram, WhatOneAdvertisesTheOtherDiscovers) {
    shell advertiser(PENNYWORT_PROGRAM " advertise http 8080 path=/a --name 'Studio 2'");
    ASSERT_TRUE(advertiser.says("advertising _http._tcp. port 8080\n")) << advertiser.text();
    shell discoverer("\"$TWO_HOSTS\" on b " PENNYWORT_PROGRAM " discover http");
    EXPECT_TRUE(discoverer.says("found Studio 2 host-a.local:8080 path=/a\n")) << discoverer.text();
    // On a busy machine a second may be over before the program has asked anybody.
    std::string found = "0\n";
    for (int i = 0; i < 20 && found == "0\n"; ++i) {
        found = output_of("\"$TWO_HOSTS\" on b " PENNYWORT_PROGRAM
                          " discover _http._tcp --seconds 1 --json; echo $?");
    }
    EXPECT_EQ(found,
              R"({"event":"found","name":"Studio 2","type":"_http._tcp.","host":"host-a.local",)"
              R"("port":8080,"text":{"path":"/a"}})"
              "\n0\n");
    advertiser.interrupt();
    EXPECT_TRUE(discoverer.says("gone Studio 2 host-a.local:8080 path=/a\n")) << discoverer.text();
    EXPECT_TRUE(advertiser.ends());
    EXPECT_EQ(advertiser.text(), "advertising _http._tcp. port 8080\n");
}

TEST(AvahiProgram, WithoutADaemonSaysSo) {
    daemon("a", "stop");
    const std::string refusal =
        "pennywort: the DNS-SD daemon refuses; is it running (on Linux avahi-daemon)?\n1\n";
    EXPECT_EQ(output_of(PENNYWORT_PROGRAM " discover http; echo $?"), refusal);
    EXPECT_EQ(output_of(PENNYWORT_PROGRAM " advertise http 80; echo $?"), refusal);
}

TEST(AvahiProgram, ADaemonThatEndsIsAFailure) {
    shell advertiser(PENNYWORT_PROGRAM " advertise http 80; echo $?");
    ASSERT_TRUE(advertiser.says("advertising")) << advertiser.text();
    shell discoverer(PENNYWORT_PROGRAM " discover http; echo $?");
    ASSERT_TRUE(discoverer.says("found host-a ")) << discoverer.text();
    daemon("a", "kill");
    EXPECT_TRUE(discoverer.says("pennywort: the DNS-SD daemon has ended\n1\n"))
        << discoverer.text();
    EXPECT_TRUE(
        advertiser.says("pennywort: the DNS-SD daemon has ended or refuses: the service is no "
                        "longer advertised\n1\n"))
        << advertiser.text();
}

TEST(AvahiProgram, SaysWhyItIsRefused) {
    shell first(PENNYWORT_PROGRAM " advertise http 80 --name Twice");
    ASSERT_TRUE(first.says("advertising")) << first.text();
    const std::string second =
        output_of(PENNYWORT_PROGRAM " advertise http 81 --name Twice; echo $?");
    EXPECT_NE(second.find("give another name with --name\n1\n"), std::string::npos) << second;
    const std::string local = output_of(PENNYWORT_PROGRAM " discover http --local; echo $?");
    EXPECT_NE(local.find("Avahi's has no --local\n1\n"), std::string::npos) << local;
}

TEST(AvahiProgram, ADiscoveryEndsWithItsReader) {
    shell other(peer("publish _http._tcp. 1 2 Camera"));
    ASSERT_TRUE(other.says("ready")) << other.text();
    // A line for each service, and none after them.
    shell reader("{ " PENNYWORT_PROGRAM " discover http; echo $? >&2; } | head -n 2");
    EXPECT_TRUE(reader.ends());
    for (const char* line : {"found Camera0 host-b.local:1\n", "found Camera1 host-b.local:1\n"}) {
        EXPECT_NE(reader.text().find(line), std::string::npos) << reader.text();
    }
    EXPECT_TRUE(reader.text().ends_with("\n0\n")) << reader.text();
}

// With the real browser runtime.
TEST(AvahiLive, TheControlPageIsFoundWhereOthersReachIt) {
    shell live(PENNYWORT_PROGRAM " live about:blank --listen 0.0.0.0 --port 8123");
    ASSERT_TRUE(live.says("http://127.0.0.1:8123/")) << live.text();
    shell discoverer("\"$TWO_HOSTS\" on b " PENNYWORT_PROGRAM " discover http");
    EXPECT_TRUE(discoverer.says("found host-a host-a.local:8123 path=/\n")) << discoverer.text();
    live.interrupt();
    EXPECT_TRUE(discoverer.says("gone host-a host-a.local:8123 path=/\n")) << discoverer.text();
    EXPECT_TRUE(live.ends());
}

TEST(AvahiLive, TheControlPageIsFoundAgainWhenTheDaemonIsBack) {
    shell live(PENNYWORT_PROGRAM " live about:blank --listen 0.0.0.0 --port 8123");
    ASSERT_TRUE(live.says("http://127.0.0.1:8123/")) << live.text();
    daemon("a", "kill");
    EXPECT_TRUE(live.says("the DNS-SD daemon has ended: the control page is not advertised"))
        << live.text();
    daemon("a", "start");
    EXPECT_TRUE(live.says("the control page is advertised now\n")) << live.text();
    shell discoverer("\"$TWO_HOSTS\" on b " PENNYWORT_PROGRAM " discover http");
    EXPECT_TRUE(discoverer.says("found host-a host-a.local:8123 path=/\n")) << discoverer.text();
}

TEST(AvahiLive, TheControlPageIsUntoldWhereAskedOrOutOfReach) {
    shell local(PENNYWORT_PROGRAM " live about:blank --port 8123");
    ASSERT_TRUE(local.says("http://127.0.0.1:8123/")) << local.text();
    shell quiet(PENNYWORT_PROGRAM " live about:blank --listen 0.0.0.0 --port 8124 --no-advertise");
    ASSERT_TRUE(quiet.says("http://127.0.0.1:8124/")) << quiet.text();
    // One that is advertised now is found; those before it would have been.
    shell last(PENNYWORT_PROGRAM " advertise http 8125");
    shell discoverer("\"$TWO_HOSTS\" on b " PENNYWORT_PROGRAM " discover http");
    EXPECT_TRUE(discoverer.says(":8125\n")) << discoverer.text();
    EXPECT_EQ(discoverer.text().find(":8123"), std::string::npos) << discoverer.text();
    EXPECT_EQ(discoverer.text().find(":8124"), std::string::npos) << discoverer.text();
}

// What libdbus keeps for its next call would else be lost with each object.
TEST(Avahi, TheBusLibraryOutlivesTheObjectAndAvahisDoesNot) {
    const auto is_loaded = [](const char* name) {
        void* const found = ::dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
        return found != nullptr && ::dlclose(found) == 0;
    };
    ASSERT_FALSE(is_loaded("libdbus-1.so.3")) << "whatever loaded it before keeps it";
    ASSERT_TRUE(cBonjourLib().Exists());
    EXPECT_FALSE(is_loaded("libdns_sd.so.1"));
    EXPECT_TRUE(is_loaded("libdbus-1.so.3"));
}

TEST(Avahi, ManyStartsAndStopsLeaveNothingBehind) {
    const auto entries = [](const char* folder) {
        const std::filesystem::directory_iterator all(folder);
        return std::distance(begin(all), end(all));
    };
    const auto once = [] {
        cBonjour bonjour;
        EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
        EXPECT_EQ(bonjour.StartObserving(1, k_http, 0), 0);
        zMessageLoop::RunOnce(0);
    };
    once();
    const auto descriptors = entries("/proc/self/fd"), threads = entries("/proc/self/task");
    for (int i = 0; i < 100; ++i) once();
    EXPECT_LE(entries("/proc/self/fd"), descriptors);
    // A thread that has been joined stands there a moment longer.
    EXPECT_TRUE(eventually([&] { return entries("/proc/self/task") <= threads; }));
}

}  // namespace
}  // namespace pennywort::tests
