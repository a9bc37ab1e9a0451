// user_proxy_win.cpp - Windows half of user_proxy.h. Linux half: user_proxy_linux.cpp.
#include <windows.h>
#include <winhttp.h>

#include "httpclient/user_proxy.h"
#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::httpclient {

namespace {

// Copies a text that the system has allocated, and gives it back.
std::string taken(wchar_t* text) {
    if (text == nullptr) return {};
    const std::unique_ptr<wchar_t, decltype(&::GlobalFree)> owner(text, ::GlobalFree);
    return loam::utf8_text(text);
}

}  // namespace

std::optional<user_proxy> read_user_proxy() {
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
    if (::WinHttpGetIEProxyConfigForCurrentUser(&config) == FALSE) {
        const DWORD error = ::GetLastError();
        // A user who has configured nothing is no fault.
        if (error != ERROR_FILE_NOT_FOUND) {
            zTraceManager::Default()->TraceNote(
                "cHttpSession_winhttp: WinHttpGetIEProxyConfigForCurrentUser failed (err=%lu)\n",
                error);
        }
        return std::nullopt;
    }
    user_proxy found;
    found.is_auto_detected = config.fAutoDetect != FALSE;
    found.servers = taken(config.lpszProxy);
    found.bypass = taken(config.lpszProxyBypass);
    found.auto_config_url = taken(config.lpszAutoConfigUrl);
    return found;
}

}  // namespace pennywort::httpclient
