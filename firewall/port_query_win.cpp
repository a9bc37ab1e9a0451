// port_query_win.cpp - Windows half of port_query.h. Linux half: port_query_linux.cpp.
#include "firewall/port_query.h"

#include <windows.h>
// After windows.h, whose types it needs.
#include <objbase.h>

#include <cstdio>
#include <memory>

#include "firewall/firewall_manager_win.h"
#include "loam/trace.h"

namespace pennywort::firewall {

namespace {

constexpr CLSID k_manager_class = {
    0x304CE942, 0x6E39, 0x40D8, {0x94, 0x3A, 0xB9, 0x13, 0xC4, 0x0C, 0x9C, 0xD4}};
constexpr IID k_manager_interface = {
    0xF7898AF5, 0xCAC4, 0x4632, {0xA2, 0xEC, 0xDA, 0x06, 0xE5, 0x11, 0x1A, 0xF2}};

// Starts of this thread that its COM counts. Where the host has set COM up in another way, the end
// must not take one of the host's own away.
thread_local int t_counted_starts = 0;

struct release_object {
    void operator()(IUnknown* object) const { object->Release(); }
};
using manager_pointer = std::unique_ptr<INetFwMgr, release_object>;

struct free_text {
    void operator()(wchar_t* text) const { SysFreeString(text); }
};
using com_text = std::unique_ptr<wchar_t, free_text>;

std::string call_text(const char* call, HRESULT result) {
    char text[64];
    std::snprintf(text, sizeof text, "%s failed (0x%08lx)", call,
                  static_cast<unsigned long>(result));
    return text;
}

NET_FW_IP_VERSION version_of(ip_family family) {
    switch (family) {
        case ip_family::ip4:
            return NET_FW_IP_VERSION_V4;
        case ip_family::ip6:
            return NET_FW_IP_VERSION_V6;
        case ip_family::any:
            break;
    }
    return NET_FW_IP_VERSION_ANY;
}

port_answer unknown(std::string why) { return {port_state::unknown, std::move(why)}; }

}  // namespace

void start_thread() {
    const HRESULT result = CoInitialize(nullptr);
    if (SUCCEEDED(result)) {
        ++t_counted_starts;
        return;
    }
    zTraceManager::Default()->TraceNote("cFirewall: CoInitialize - failed (err=0x%08lx)\n",
                                        static_cast<unsigned long>(result));
}

void end_thread() {
    if (t_counted_starts == 0) return;
    --t_counted_starts;
    CoUninitialize();
}

// Only a clear no blocks a port. What the manager says of the addresses that it lets in makes no
// difference. Both variants hold truths, which nobody has to clear.
port_answer ask_manager(INetFwMgr& manager, const wchar_t* program, long port, ip_family family) {
    const com_text name(SysAllocString(program));
    if (name == nullptr) return unknown("SysAllocString failed");
    VARIANT allowed;
    VARIANT restricted;
    VariantInit(&allowed);
    VariantInit(&restricted);
    // A manager that says nothing has not said no.
    allowed.boolVal = VARIANT_TRUE;
    const HRESULT result = manager.IsPortAllowed(name.get(), version_of(family), port, nullptr,
                                                 NET_FW_IP_PROTOCOL_TCP, &allowed, &restricted);
    if (result != S_OK) return unknown(call_text("INetFwMgr::IsPortAllowed", result));
    if (allowed.boolVal != VARIANT_FALSE) return {port_state::open, {}};
    return {port_state::blocked, "Windows Firewall lets nothing in for this program"};
}

std::optional<std::string> fault_of_path(DWORD length, DWORD error) {
    if (length == 0) return "GetModuleFileNameW failed (" + std::to_string(error) + ")";
    if (length >= k_path_units) return "this program's path is longer than 255 characters";
    return std::nullopt;
}

port_answer ask(long port, ip_family family) {
    void* made = nullptr;
    const HRESULT result = CoCreateInstance(k_manager_class, nullptr, CLSCTX_INPROC_SERVER,
                                            k_manager_interface, &made);
    const manager_pointer manager(static_cast<INetFwMgr*>(made));
    if (FAILED(result)) return unknown(call_text("CoCreateInstance", result));
    if (manager == nullptr) return unknown("CoCreateInstance made nothing");
    wchar_t program[k_path_units];
    const DWORD length = GetModuleFileNameW(GetModuleHandleA(nullptr), program, k_path_units);
    const DWORD error = GetLastError();
    if (const auto fault = fault_of_path(length, error)) return unknown(*fault);
    return ask_manager(*manager, program, port, family);
}

}  // namespace pennywort::firewall
