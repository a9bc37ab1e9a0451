// memory_test.cpp - calls whose memory runs out at any moment.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "loam/xmlrpc.h"
#include "tests/support/failing_memory.h"
#include "tests/xml/xml_shape.h"
#include "xmlrpc.h"

namespace {

using pennywort::tests::is_empty;

// A session that needs no memory of its own: it notes the size of what it sends and answers from
// what it was given.
class plain_session final : public cHttpSession {
public:
    std::string body;
    std::uint32_t sent = 0;

    void Configure(std::uint32_t, const char*, double) override {}
    bool IsConfigured() override { return true; }
    void SetAuthentication(bool, const char*, const char*) override {}
    long Request_BeginWithCallback(chunk_callback, const zRecord*, const void*,
                                   std::uint32_t) override {
        return -1;
    }
    long Request_Begin(zBuffer* sink, const zRecord*, const void*, std::uint32_t length) override {
        sent = length;
        if (sink->ResizeTo(static_cast<std::uint32_t>(body.size()), 0) != 0) return -1;
        body.copy(sink->Data(), body.size());
        return 0;
    }
    void Request_Status(float*, float*) override {}
    bool Request_IsComplete() override { return true; }
    void Request_BlockForResponse() override {}
    bool Request_BlockForResponseWithin(std::uint32_t) override { return true; }
    long Response_StatusCode(std::uint32_t*) override { return 0; }
    long Response_Headers(zRecord&) override { return 0; }
    long Response_ContentType(zString&) override { return 0; }
    long Response_ContentLength(std::uint32_t* length) override {
        *length = static_cast<std::uint32_t>(body.size());
        return 0;
    }
    long Response_ContentLength64(std::uint64_t*) override { return -1; }
    void Request_Stop() override {}
    std::uint32_t Request_ContentBytesRead() override { return 0; }
    std::int64_t Request_ContentBytesRead64() override { return 0; }
    void Request_End() override {}
    void Reserved22() override {}
    void Reserved23() override {}
    zString GetURL() override { return {}; }
};

class CallMemory : public testing::Test {
protected:
    CallMemory() {
        zXMLRPC message(m_request);
        message.SetCall("a.method.with.a.long.name");
        message.AddParam().SetString(("\xC3\xA9" + std::string(200, 'x')).c_str());
        zXMLRPC::Value value;
        zRecord response;
        zXMLRPC(response).SetResponse(value);
        value.SetString(std::string(100, 'y').c_str());
        zBuffer text;
        zXML::RecordToBuffer(&text, response, 3, false, true);
        m_session->body = pennywort::tests::buffer_text(text);
    }

    template <typename function>
    void fail_each(function begin) {
        zStatus status = 0;
        const int failures = with_each_allocation_failing(
            [&] {
                zBuffer body;
                status = begin(body);
                if (status == 0) status = m_client.Request_ResponseAsXML(m_out);
                m_client.Request_End();
            },
            [&] {
                if (status == 0) {
                    EXPECT_EQ(zXMLRPC(m_out).GetKind(), zXMLRPC::Kind::response);
                } else {
                    EXPECT_EQ(status, -1);
                }
                m_out.MakeEmpty();
            });
        EXPECT_GT(failures, 20);
        EXPECT_EQ(status, 0);
    }

    std::shared_ptr<plain_session> m_session = std::make_shared<plain_session>();
    cXMLRPC m_client{m_session};
    zRecord m_request;
    zRecord m_out;
};

TEST_F(CallMemory, RunsOutAtAnyPlaceOfACall) {
    fail_each([&](zBuffer& body) { return m_client.Request_Begin(&body, m_request, false); });
}

TEST_F(CallMemory, RunsOutAtAnyPlaceOfACallWithEscapes) {
    fail_each([&](zBuffer& body) { return m_client.Request_Begin(&body, m_request, true); });
}

TEST_F(CallMemory, RunsOutAtAnyPlaceOfACallWithReferences) {
    fail_each(
        [&](zBuffer& body) { return m_client.Request_BeginWithReferences(&body, m_request); });
}

TEST_F(CallMemory, RunsOutAtAnyPlaceOfSeveralCalls) {
    zRecord all;
    zStatus status = 0;
    const int failures = with_each_allocation_failing(
        [&] {
            cXMLRPCMulticall calls(all);
            status = calls.AddCall(m_request);
        },
        [&] { EXPECT_TRUE(status == 0 || status == -1) << status; });
    EXPECT_GT(failures, 20);
    EXPECT_EQ(status, 0);
}

// One call's own response, out of the response to all: whole, or none.
void expect_response_whole_or_none(const std::string& results, zXMLRPC::Kind kind) {
    zRecord response;
    const std::string text = "<methodResponse>" + results + "</methodResponse>";
    ASSERT_EQ(pennywort::tests::parse_text(response, text), 0);
    zRecord out;
    zStatus status = 0;
    const int failures = with_each_allocation_failing(
        [&] { status = cXMLRPCMulticall::GetResponse(response, 0, out); },
        [&] {
            EXPECT_TRUE(status == 0 || status == -1) << status;
            EXPECT_TRUE(status == 0 ? zXMLRPC(out).GetKind() == kind : is_empty(out));
        });
    EXPECT_GT(failures, 5);
    EXPECT_EQ(status, 0);
}

TEST_F(CallMemory, RunsOutAtAnyPlaceOfOneResponseOfSeveral) {
    const std::string words(100, 'w');
    const std::string fault =
        "<value><struct><member><name>faultCode</name><value><int>4</int></value></member>"
        "<member><name>faultString</name><value>" +
        words + "</value></member></struct></value>";
    const auto among = [](const std::string& result) {
        return "<params><param><value><array><data>" + result +
               "</data></array></value></param></params>";
    };
    expect_response_whole_or_none(
        among("<value><array><data><value>" + words + "</value></data></array></value>"),
        zXMLRPC::Kind::response);
    expect_response_whole_or_none(among(fault), zXMLRPC::Kind::fault);
    expect_response_whole_or_none("<fault>" + fault + "</fault>", zXMLRPC::Kind::fault);
}

TEST_F(CallMemory, RunsOutAtAnyPlaceOfAnErrorResponse) {
    std::int32_t code = 0;
    const int failures = with_each_allocation_failing(
        [&] { code = cXMLRPC::MakeErrorResponse(m_out, -3); },
        [&] {
            EXPECT_EQ(code, -3);
            EXPECT_TRUE(is_empty(m_out) || zXMLRPC(m_out).GetKind() == zXMLRPC::Kind::fault);
        });
    EXPECT_GT(failures, 20);
}

}  // namespace
