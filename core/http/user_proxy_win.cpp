// user_proxy_win.cpp - Windows half of user_proxy.h. Linux half: user_proxy_linux.cpp.
#include <windows.h>
#include <winhttp.h>

#include <memory>

#include "core/http/user_proxy.h"
#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::http {

namespace {

// A text that the system has allocated and wants back.
using system_text = std::unique_ptr<wchar_t, decltype(&::GlobalFree)>;

std::string copy_of(const system_text& text) {
    return text == nullptr ? std::string() : loam::utf8_text(text.get());
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
    const system_text servers(config.lpszProxy, ::GlobalFree);
    const system_text bypass(config.lpszProxyBypass, ::GlobalFree);
    const system_text auto_config(config.lpszAutoConfigUrl, ::GlobalFree);
    user_proxy found;
    found.is_auto_detected = config.fAutoDetect != FALSE;
    found.servers = copy_of(servers);
    found.bypass = copy_of(bypass);
    found.auto_config_url = copy_of(auto_config);
    return found;
}

}  // namespace pennywort::http
