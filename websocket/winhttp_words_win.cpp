// websocket/winhttp_words_win.cpp - see winhttp_words.h for the contract. Linux has no WinHTTP.
#include <windows.h>
#include <winhttp.h>

#include "websocket/fault_words.h"
#include "websocket/winhttp_words.h"

namespace pennywort::websocket {

namespace {

// A server that refuses and a network that leads nowhere are one error to WinHTTP.
const char* known_words(DWORD error) {
    switch (error) {
        case ERROR_WINHTTP_NAME_NOT_RESOLVED:
            return k_unknown_host;
        case ERROR_WINHTTP_SECURE_CHANNEL_ERROR:
            return k_no_tls;
        case ERROR_WINHTTP_SECURE_FAILURE:
            return k_bad_certificate;
        case ERROR_WINHTTP_TIMEOUT:
            return k_silent;
        case ERROR_WINHTTP_CONNECTION_ERROR:
            return k_no_goodbye;
        default:
            return k_no_connection;
    }
}

}  // namespace

std::string words_of_winhttp(unsigned long error) {
    if (error == NO_ERROR) return {};
    return known_words(error) + (" (error " + std::to_string(error) + " of WinHTTP)");
}

}  // namespace pennywort::websocket
