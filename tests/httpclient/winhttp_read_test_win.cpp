// winhttp_read_test_win.cpp - what comes of a read by WinHTTP that brings nothing, or fails.
#include <gtest/gtest.h>
#include <windows.h>

#include "httpclient/winhttp_calls_win.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"

namespace {

namespace winhttp_calls = pennywort::httpclient::winhttp_calls;

class WinHttpReadTest : public SessionTest {
protected:
    ~WinHttpReadTest() override { winhttp_calls::read_data = &WinHttpReadData; }

    const scripted_peer m_peer{[](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello");
    }};
};

// What was announced counts, so that the reading comes to its end.
TEST_F(WinHttpReadTest, ThatBringsNothingGoesOn) {
    winhttp_calls::read_data = [](HINTERNET request, void* into, DWORD size, DWORD* received) {
        const BOOL result = WinHttpReadData(request, into, size, received);
        *received = 0;
        return result;
    };
    EXPECT_EQ(get(m_peer.url()), 0);
    std::uint32_t code = 0;
    EXPECT_EQ(status(&code), 0);
    EXPECT_EQ(code, 200u);
    EXPECT_EQ(body(), "hello");
}

TEST_F(WinHttpReadTest, ThatFailsEndsTheReading) {
    winhttp_calls::read_data = [](HINTERNET, void*, DWORD, DWORD*) -> BOOL {
        SetLastError(ERROR_WINHTTP_CONNECTION_ERROR);
        return FALSE;
    };
    EXPECT_EQ(get(m_peer.url()), 0);
    EXPECT_EQ(body(), "");
    EXPECT_EQ(m_session->Request_Error(), static_cast<long>(ERROR_WINHTTP_CONNECTION_ERROR));
}

}  // namespace
