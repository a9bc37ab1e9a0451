// firewall_manager_win.h - the question to the firewall manager, apart from how one gets it, so
// that a test can stand in for the manager. Of port_query_win.cpp.
#pragma once

#include <windows.h>
// After windows.h, whose types it needs.
#include <netfw.h>

#include <optional>
#include <string>

#include "firewall/port_query.h"

namespace pennywort::firewall {

// Room for a program's path and the 0 behind it. One that is longer is not asked for: hosts rely on
// this bound.
inline constexpr DWORD k_path_units = 256;

// Why the manager cannot be asked, when GetModuleFileNameW returned this length and left this
// error; nothing where it can. A path that was cut would be another program's.
std::optional<std::string> fault_of_path(DWORD length, DWORD error);

port_answer ask_manager(INetFwMgr& manager, const wchar_t* program, long port, ip_family family);

}  // namespace pennywort::firewall
