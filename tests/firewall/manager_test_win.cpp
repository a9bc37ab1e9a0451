// manager_test_win.cpp - the question to a firewall manager that the test plays, and COM's part.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "firewall.h"
#include "firewall/firewall_manager_win.h"
#include "tests/support/collected_traces.h"

namespace pennywort::tests {
namespace {

using firewall::port_state;

// An interface of COM has no virtual destructor, since nobody destroys an object by it.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Everything but the one question is refused.
class fake_manager final : public INetFwMgr {
public:
    HRESULT result = S_OK;
    bool sets_answer = true;
    VARIANT_BOOL allowed = VARIANT_TRUE;
    VARIANT_BOOL restricted = VARIANT_FALSE;
    std::wstring asked_program;
    LONG asked_port = 0;
    int asked_version = -1;
    int asked_protocol = -1;
    bool asked_for_an_address = true;

    HRESULT STDMETHODCALLTYPE IsPortAllowed(BSTR program, NET_FW_IP_VERSION version, LONG port,
                                            BSTR address, NET_FW_IP_PROTOCOL protocol,
                                            VARIANT* allowed_out,
                                            VARIANT* restricted_out) override {
        asked_program = program;
        asked_version = version;
        asked_port = port;
        asked_protocol = protocol;
        asked_for_an_address = address != nullptr;
        if (sets_answer) {
            set(*allowed_out, allowed);
            set(*restricted_out, restricted);
        }
        return result;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_LocalPolicy(INetFwPolicy**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_CurrentProfileType(NET_FW_PROFILE_TYPE*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE RestoreDefaults() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsIcmpTypeAllowed(NET_FW_IP_VERSION, BSTR, BYTE, VARIANT*,
                                                VARIANT*) override {
        return E_NOTIMPL;
    }

private:
    static void set(VARIANT& to, VARIANT_BOOL value) {
        to.vt = VT_BOOL;
        to.boolVal = value;
    }
};

port_state state_from(fake_manager& manager) {
    return firewall::ask_manager(manager, L"C:\\programs\\host.exe", 8080, firewall::ip_family::any)
        .state;
}

TEST(Manager, IsAskedForThisProgramAnyAddressAndTcp) {
    fake_manager manager;
    state_from(manager);
    EXPECT_EQ(manager.asked_program, L"C:\\programs\\host.exe");
    EXPECT_EQ(manager.asked_port, 8080);
    EXPECT_EQ(manager.asked_version, 2);
    EXPECT_EQ(manager.asked_protocol, 6);
    EXPECT_FALSE(manager.asked_for_an_address);
}

TEST(Manager, IsAskedForTheProtocol) {
    fake_manager manager;
    firewall::ask_manager(manager, L"host.exe", 8080, firewall::ip_family::ip4);
    EXPECT_EQ(manager.asked_version, 0);
    firewall::ask_manager(manager, L"host.exe", 8080, firewall::ip_family::ip6);
    EXPECT_EQ(manager.asked_version, 1);
}

TEST(Manager, OnlyItsClearNoBlocksAPort) {
    fake_manager manager;
    EXPECT_EQ(state_from(manager), port_state::open);
    manager.restricted = VARIANT_TRUE;
    EXPECT_EQ(state_from(manager), port_state::open) << "to some addresses";
    manager.allowed = VARIANT_FALSE;
    EXPECT_EQ(state_from(manager), port_state::blocked);
    manager.restricted = VARIANT_FALSE;
    EXPECT_EQ(state_from(manager), port_state::blocked);
}

TEST(Manager, EveryOtherResultTellsNothing) {
    for (const HRESULT result : {S_FALSE, E_FAIL, E_NOTIMPL, E_INVALIDARG, E_ACCESSDENIED,
                                 HRESULT_FROM_WIN32(ERROR_SERVICE_NOT_ACTIVE)}) {
        fake_manager manager;
        manager.allowed = VARIANT_FALSE;
        manager.result = result;
        EXPECT_EQ(state_from(manager), port_state::unknown) << std::hex << result;
    }
}

TEST(Manager, IsNotAskedAboutAPathThatIsCutOrNone) {
    EXPECT_EQ(firewall::fault_of_path(255, 0), std::nullopt);
    EXPECT_EQ(firewall::fault_of_path(256, 122),
              "this program's path is longer than 255 characters");
    EXPECT_EQ(firewall::fault_of_path(0, 5), "GetModuleFileNameW failed (5)");
}

TEST(Manager, AnAnswerThatWasNotGivenIsNoNo) {
    fake_manager manager;
    manager.sets_answer = false;
    EXPECT_EQ(state_from(manager), port_state::open);
}

TEST(Manager, WhyItCannotTellIsTraced) {
    std::string traced;
    std::thread([&] {
        const collected_traces traces;
        cFirewall::IsTCPPortFirewalled(8080);
        traced = traces.text();
    }).join();
    EXPECT_EQ(traced,
              "cFirewall: port 8080 counts as not blocked: "
              "CoCreateInstance failed (0x800401f0)\n");
}

TEST(Manager, IsNotMadeOnAThreadWithoutCom) {
    cFirewallAnswer answer = cFirewallAnswer::Blocked;
    zString why;
    std::thread([&] { answer = cFirewall::QueryTCPPort(8080, why); }).join();
    EXPECT_EQ(answer, cFirewallAnswer::Unknown);
    EXPECT_EQ(std::string(why.CString()), "CoCreateInstance failed (0x800401f0)");
}

std::string why_of_query() {
    zString why;
    cFirewall::QueryTCPPort(8080, why);
    return why.CString();
}

// What the real one says is the machine's matter; that it was made and asked is ours.
TEST(Manager, IsMadeOnAThreadThatHasStarted) {
    std::string why;
    std::thread([&] {
        cFirewall::Startup();
        why = why_of_query();
        cFirewall::Shutdown();
    }).join();
    EXPECT_NE(why.find("CoCreateInstance"), 0u) << why;
    EXPECT_NE(why.find("GetModuleFileNameW"), 0u) << why;
}

TEST(Manager, IsNotMadeAfterTheLastEnd) {
    std::string after_one_end;
    std::string after_both;
    std::thread([&] {
        cFirewall::Startup();
        cFirewall::Startup();
        cFirewall::Shutdown();
        after_one_end = why_of_query();
        cFirewall::Shutdown();
        after_both = why_of_query();
    }).join();
    EXPECT_NE(after_one_end.find("CoCreateInstance"), 0u) << after_one_end;
    EXPECT_EQ(after_both, "CoCreateInstance failed (0x800401f0)");
}

// A host's own COM, of the other kind, outlives our start and end.
TEST(Manager, LeavesTheHostsComAlone) {
    std::string traced;
    HRESULT still_there = E_FAIL;
    std::thread([&] {
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        const collected_traces traces;
        cFirewall::Startup();
        cFirewall::Shutdown();
        traced = traces.text();
        still_there = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        CoUninitialize();
        CoUninitialize();
    }).join();
    EXPECT_EQ(traced, "cFirewall: CoInitialize - failed (err=0x80010106)\n");
    EXPECT_EQ(still_there, S_FALSE) << "it was already there";
}

}  // namespace
}  // namespace pennywort::tests
