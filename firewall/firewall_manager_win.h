// firewall_manager_win.h - the question to the firewall manager, apart from how one gets it, so
// that a test can stand in for the manager. Of port_query_win.cpp.
#pragma once

#include <windows.h>
// After windows.h, whose types it needs.
#include <netfw.h>

#include "firewall/port_query.h"

namespace pennywort::firewall {

port_answer ask_manager(INetFwMgr& manager, const wchar_t* program, long port, ip_family family);

}  // namespace pennywort::firewall
