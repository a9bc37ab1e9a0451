// libcurl_memory_test_linux.cpp - requests during which libcurl gets no memory, at any moment: what
// it does then must end in a code of ours. Linux only: elsewhere there is no libcurl.
#include <curl/curl.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"

namespace {

constexpr int k_never = -1;
thread_local int allocations_left = k_never;
thread_local bool has_failed = false;

bool is_refused() {
    if (allocations_left == k_never) return false;
    if (allocations_left-- != 0) return false;
    has_failed = true;
    return true;
}

void* get_bytes(std::size_t size) { return is_refused() ? nullptr : std::malloc(size); }
void give_back(void* bytes) { std::free(bytes); }
void* get_other_size(void* bytes, std::size_t size) {
    return is_refused() ? nullptr : std::realloc(bytes, size);
}
char* copy_text(const char* text) { return is_refused() ? nullptr : ::strdup(text); }
void* get_zeros(std::size_t count, std::size_t size) {
    return is_refused() ? nullptr : std::calloc(count, size);
}

// Before anything else in the process calls it: the first set-up stays.
const CURLcode k_set_up = ::curl_global_init_mem(CURL_GLOBAL_DEFAULT, get_bytes, give_back,
                                                 get_other_size, copy_text, get_zeros);

class LibcurlMemoryTest : public SessionTest {
protected:
    // Returns the number of failures that a request can have.
    int fail_each(std::uint32_t verb, const std::string& url, const std::string& sent) {
        for (int count = 0; count < 100'000; ++count) {
            has_failed = false;
            allocations_left = count;
            const long result = request(verb, url, sent);
            allocations_left = k_never;
            EXPECT_LE(result, 0);
            const bool is_fine = result == 0 && status() == 0;
            EXPECT_TRUE(!is_fine || body() == "hello");
            EXPECT_NE(m_session->Request_Error(), cHttpSession::k_error_bad_url) << count;
            if (!has_failed) return count;
        }
        return 0;
    }
};

TEST_F(LibcurlMemoryTest, RunsOutAtAnyPlaceOfARequest) {
    ASSERT_EQ(k_set_up, CURLE_OK);
    const std::string sent = "body";
    // It closes after each response, so that each request connects.
    const scripted_peer peer([&](peer_connection& connection) {
        const std::string head = connection.receive_head();
        if (head.rfind("POST", 0) == 0) connection.receive(sent.size());
        connection.send(answer_with("hello", "Connection: close\r\n"));
    });
    EXPECT_GT(fail_each(cHttpSession::k_get, peer.url(), ""), 20);
    EXPECT_GT(fail_each(cHttpSession::k_post, peer.url(), sent), 20);
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "hello");
}

// A line keeps its proxy for later requests: one that lost it would ask the host itself, and there
// is none.
TEST_F(LibcurlMemoryTest, ALineWithoutItsProxyIsNotKept) {
    const scripted_peer proxy([](peer_connection& connection) {
        connection.receive_head();
        connection.send(answer_with("hello", "Connection: close\r\n"));
    });
    ::setenv("http_proxy", proxy.url("").c_str(), 1);
    ASSERT_EQ(get("http://127.1.0.0:1/"), 0);
    // The session knows it now; libcurl must not find it by itself.
    ::unsetenv("http_proxy");
    int failures = 0;
    for (has_failed = true; has_failed; ++failures) {
        ASSERT_LT(failures, 10'000);
        // Each has a line of its own.
        const std::string url = "http://127.1." + std::to_string(failures / 250) + "." +
                                std::to_string(failures % 250 + 1) + ":1/";
        has_failed = false;
        allocations_left = failures;
        request(cHttpSession::k_get, url);
        allocations_left = k_never;
        ASSERT_EQ(get(url), 0) << failures;
        ASSERT_EQ(body(), "hello") << failures;
    }
    EXPECT_GT(failures, 20);
}

}  // namespace
