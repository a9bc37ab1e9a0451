// bridge_frames_test.cpp - the bridge in the frames of a page, whatever their origin.
#include <string>

#include "harness.h"
#include "peer.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class BridgeOfFrames : public RuntimeTest {
protected:
    peer m_peer;
};

std::string saying(const std::string& name) {
    return "<!doctype html><script>window.hostApp.execute('" + name +
           "', location.hostname)</script>";
}

TEST_F(BridgeOfFrames, TheMainFrameHasTheBridgeBeforeItsFirstScript) {
    shown_page page({.url = m_peer.html(saying("main"))});
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("main") == "127.0.0.1"; }));
}

TEST_F(BridgeOfFrames, AFrameOfTheSameOriginHasTheBridge) {
    shown_page page({.url = m_peer.html("<iframe src='" + m_peer.html(saying("inner")) + "'>")});
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("inner") == "127.0.0.1"; }));
}

TEST_F(BridgeOfFrames, AFrameOfAnotherOriginHasTheBridge) {
    shown_page page({.url = m_peer.html("<iframe src='" +
                                        m_peer.html_of_other_origin(saying("inner")) + "'>")});
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("inner") == "localhost"; }));
}

TEST_F(BridgeOfFrames, FramesWithoutAnAddressHaveTheBridge) {
    shown_page page(
        {.url = m_peer.html(
             "<iframe srcdoc=\"<script>window.hostApp.execute('document', 1)</script>\">"
             "</iframe><iframe sandbox=allow-scripts "
             "srcdoc=\"<script>window.hostApp.execute('sandbox', 1)</script>\"></iframe>"
             "<iframe id=blank></iframe><script>"
             "blank.contentWindow.hostApp.execute('blank', 1)</script>")});
    EXPECT_TRUE(wait_for([&] {
        return page.calls.count_of("document") && page.calls.count_of("sandbox") &&
               page.calls.count_of("blank");
    })) << PrintToString(page.calls.calls);
}

TEST_F(BridgeOfFrames, TheAnswerToAFrameGoesToTheMainFrame) {
    const std::string inner =
        "<script>window.hostAppCallback = () => parent.postMessage('wrong', '*');"
        "window.hostApp.execute('inner', 1)</script>";
    shown_page page(
        {.url = m_peer.html("<script>window.got = ''; onmessage = e => window.got += e.data;"
                            "window.hostAppCallback = (name, b) => window.got += name + b</script>"
                            "<iframe src='" +
                            m_peer.html_of_other_origin(inner) + "'>")});
    page.calls.answer = [](const std::string&, const std::string&) { return "!"; };
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_TRUE(wait_for([&] { return page.ask("return window.got") == "inner!"; }))
        << PrintToString(page.ask("return window.got"));
}

TEST_F(BridgeOfFrames, TheBridgeIsThereAgainInTheNextPage) {
    shown_page page({.url = m_peer.html(saying("first"))});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl(m_peer.html_of_other_origin(saying("second")).c_str());
    EXPECT_TRUE(wait_for([&] { return page.calls.argument_of("second") == "localhost"; }));
}

}  // namespace
}  // namespace pennywort::runtime_test
