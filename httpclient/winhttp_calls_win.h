// winhttp_calls_win.h - the call of the system's that http_transport_win.cpp makes through a
// pointer, so that a test can have it bring less than was announced: no server makes it do so.
#pragma once

#include <windows.h>
#include <winhttp.h>

namespace pennywort::httpclient::winhttp_calls {

// Written by tests only, while no request is under way.
extern decltype(&WinHttpReadData) read_data;

}  // namespace pennywort::httpclient::winhttp_calls
