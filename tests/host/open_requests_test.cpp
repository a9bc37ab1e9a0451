// What a page has asked for and has not got.
#include "host/render/open_requests.h"

#include <gtest/gtest.h>

#include <string>

namespace pennywort::host {
namespace {

constexpr const char* k_asked = "Network.requestWillBeSent";

std::string request(const std::string& number, const std::string& url) {
    return R"({"requestId":")" + number + R"(","request":{"url":")" + url + R"("}})";
}

std::string end_of(const std::string& number) { return R"({"requestId":")" + number + R"("})"; }

TEST(OpenRequests, AreNamedByTheOldest) {
    open_requests open;
    EXPECT_EQ(open.oldest(), "");
    open.hear(k_asked, request("1", "http://a/first"));
    open.hear(k_asked, request("2", "http://a/second"));
    open.hear(k_asked, request("3", "http://a/third"));
    EXPECT_EQ(open.oldest(), "http://a/first");
    open.hear("Network.loadingFinished", end_of("1"));
    EXPECT_EQ(open.oldest(), "http://a/second");
    open.hear("Network.loadingFailed", end_of("2"));
    EXPECT_EQ(open.oldest(), "http://a/third");
    open.page_begins();
    EXPECT_EQ(open.oldest(), "");
}

TEST(OpenRequests, ThatAreRedirectedAreOneEach) {
    open_requests open;
    open.hear(k_asked, request("1", "http://a/from"));
    open.hear(k_asked, request("1", "http://a/to"));
    EXPECT_EQ(open.oldest(), "http://a/from") << "by the name that the page has for it";
    open.hear("Network.loadingFinished", end_of("1"));
    EXPECT_EQ(open.oldest(), "");
}

TEST(OpenRequests, MindNoOtherTexts) {
    open_requests open;
    for (const char* text : {"", "{", "[]", "null", "{\"requestId\":7}", "{\"request\":[]}"}) {
        open.hear("Network.loadingFinished", text);
        open.hear("Page.frameNavigated", text);
        open.hear(k_asked, text);
        open.page_begins();
    }
    open.hear(k_asked, request("1", "data:," + std::string(1 << 17, 'a')));
    EXPECT_EQ(open.oldest(), "");
    open.hear(k_asked, request("2", "http://a/" + std::string(1000, 'a')));
    EXPECT_EQ(open.oldest().size(), 500u);
}

TEST(OpenRequests, AreSoManyAtMost) {
    open_requests open;
    for (int n = 0; n < 2000; ++n) open.hear(k_asked, request(std::to_string(n), "http://a/"));
    for (int n = 0; n < 1000; ++n) open.hear("Network.loadingFinished", end_of(std::to_string(n)));
    EXPECT_EQ(open.oldest(), "");
}

}  // namespace
}  // namespace pennywort::host
