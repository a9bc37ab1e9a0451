// client_test.cpp - cXMLRPC over a session that answers what the test says.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "loam/xml.h"
#include "loam/xmlrpc.h"
#include "logger.h"
#include "tests/host/temporary_folder.h"
#include "tests/xml/xml_shape.h"
#include "tests/xmlrpc/fake_session.h"
#include "xmlrpc.h"

namespace {

using pennywort::tests::fake_session;
using pennywort::tests::is_empty;
using pennywort::tests::parse_text;
using pennywort::tests::xml_shape;

// Reaches what hosts reach by deriving.
class open_client : public cXMLRPC {
public:
    using cXMLRPC::convert_utf8_to_escapes;
    using cXMLRPC::cXMLRPC;
};

class Client : public testing::Test {
protected:
    Client() { zXMLRPC(m_call).SetCall("m"); }

    std::string sent_text(const std::string& text, bool is_escaped) {
        zXMLRPC message(m_call);
        message.SetCall("m");
        message.AddParam().SetString(text.data(), static_cast<std::uint32_t>(text.size()));
        EXPECT_EQ(m_client.Request_Begin(&m_body, m_call, is_escaped), 0);
        const std::size_t from = m_session->sent.find("<string>") + 8;
        return m_session->sent.substr(from, m_session->sent.find("</string>") - from);
    }
    zStatus response(const std::string& text) {
        m_session->answer(text);
        EXPECT_EQ(m_client.Request_Begin(&m_body, m_call, false), 0);
        return m_client.Request_ResponseAsXML(m_out);
    }

    std::shared_ptr<fake_session> m_session = std::make_shared<fake_session>();
    open_client m_client{m_session};
    zBuffer m_body;
    zRecord m_call;
    zRecord m_out;
};

constexpr char k_response[] =
    "<methodResponse><params><param><value>x</value></param></params></methodResponse>";

TEST_F(Client, PassesOnWhatBelongsToTheSession) {
    EXPECT_FALSE(m_client.IsConfigured());
    m_client.Configure("http://h/RPC2", 2.5);
    EXPECT_TRUE(m_client.IsConfigured());
    m_client.SetAuthentication("u", "p");
    m_client.SetLogger(nullptr);
    m_client.Request_BlockForResponse();
    m_client.Request_Stop();
    m_client.Request_End();
    const std::vector<std::string> want = {"Configure 1886352244 http://h/RPC2 2.500000",
                                           "SetAuthentication 1 u p",
                                           "SetLogger",
                                           "Request_BlockForResponse",
                                           "Request_Stop",
                                           "Request_End"};
    EXPECT_EQ(m_session->calls, want);
    float started = 0;
    float fraction = 0;
    m_client.Request_Status(&started, &fraction);
    EXPECT_EQ(started, 1.0F);
    EXPECT_EQ(fraction, 0.5F);
    EXPECT_TRUE(m_client.Request_IsComplete());
    EXPECT_EQ(m_client.Request_ContentBytesRead(), 7u);
    std::uint32_t code = 0;
    EXPECT_EQ(m_client.Response_StatusCode(&code), 0);
    EXPECT_EQ(code, 200u);
    std::uint32_t length = 1;
    EXPECT_EQ(m_client.Response_ContentLength(&length), 0);
    EXPECT_EQ(length, 0u);
    zString type;
    EXPECT_EQ(m_client.Response_ContentType(type), 0);
    EXPECT_EQ(type.View(), "text/xml");
}

TEST_F(Client, HandsItsLoggerToTheSession) {
    const pennywort::host::temporary_folder folder;
    auto* const logger = new cLogger(folder.path("log").c_str(), 1000);
    m_client.SetLogger(logger);
    EXPECT_EQ(m_session->given_logger, logger);
    m_client.SetLogger(nullptr);
    EXPECT_EQ(m_session->given_logger, nullptr);
    logger->Release();
}

TEST_F(Client, IsConfiguredByItsConstructor) {
    EXPECT_TRUE(cXMLRPC("http://127.0.0.1:1/RPC2", 2.5).IsConfigured());
    EXPECT_FALSE(cXMLRPC().IsConfigured());
}

TEST_F(Client, SendsTheCallAsXml) {
    ASSERT_EQ(m_client.Request_Begin(&m_body, m_call, false), 0);
    EXPECT_EQ(m_session->sent,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<methodCall><methodName>m</methodName><params/></methodCall>\n");
    EXPECT_EQ(m_session->sent_type, "text/xml");
}

TEST_F(Client, SendsCharactersAsTheyAre) { EXPECT_EQ(sent_text("\xC3\xA9", false), "\xC3\xA9"); }

TEST_F(Client, EscapesEachUnitBeyondAscii) {
    EXPECT_EQ(sent_text("\xC3\xA9", true), "&amp;#x00E9;");
    EXPECT_EQ(sent_text("a\x7F\xC2\x80\xEF\xBF\xBD", true), "a\x7F&amp;#x0080;&amp;#xFFFD;");
    EXPECT_EQ(sent_text("\xF0\x9F\x98\x80", true), "&amp;#xD83D;&amp;#xDE00;");
    EXPECT_EQ(sent_text("a & b", true), "a &amp; b");
}

TEST_F(Client, ReferencesAreTurnedBackByTheReceiver) {
    const std::string text = "a \xC3\xA9 & \xF0\x9F\x98\x80";
    zXMLRPC message(m_call);
    message.AddParam().SetString(text.c_str());
    ASSERT_EQ(m_client.Request_BeginWithReferences(&m_body, m_call), 0);
    EXPECT_NE(m_session->sent.find("a &#xe9; &amp; &#x1f600;"), std::string::npos);
    zRecord received;
    ASSERT_EQ(parse_text(received, m_session->sent), 0);
    zString back;
    ASSERT_EQ(zXMLRPC(received).Param(0).AsString(back), 0);
    EXPECT_EQ(back.View(), text);
}

TEST_F(Client, TheEscapingStopsAtANulAndAppends) {
    zBuffer out;
    EXPECT_EQ(m_client.convert_utf8_to_escapes(out, "ab\0cd", 5), 0);
    EXPECT_EQ(pennywort::tests::buffer_text(out), "ab");
    EXPECT_EQ(m_client.convert_utf8_to_escapes(out, "\xC3\xA9", 2), 0);
    EXPECT_EQ(pennywort::tests::buffer_text(out), "ab&amp;#x00E9;");
    EXPECT_EQ(m_client.convert_utf8_to_escapes(out, "\xC3", 1), -1);
    EXPECT_EQ(m_client.convert_utf8_to_escapes(out, "", 0), 0);
    EXPECT_EQ(m_client.convert_utf8_to_escapes(out, "x", 0xFFFFFFFF), zXML::k_too_large);
    EXPECT_EQ(pennywort::tests::buffer_text(out), "ab&amp;#x00E9;");
}

TEST_F(Client, AFaultOfTheXmlIsToldAndNothingIsSent) {
    zXMLRPC(m_call).AddParam().SetString("\x01");
    EXPECT_EQ(m_client.Request_Begin(&m_body, m_call, false), zXML::k_bad_text);
    EXPECT_EQ(m_client.Request_Begin(&m_body, m_call, true), zXML::k_bad_text);
    EXPECT_EQ(m_client.Request_BeginWithReferences(&m_body, m_call), zXML::k_bad_text);
    EXPECT_EQ(m_client.Request_Begin(&m_body, zRecord(), false), zXML::k_bad_name);
    EXPECT_TRUE(m_session->calls.empty());
}

TEST_F(Client, AFaultOfTheSessionIsTold) {
    m_session->begin_result = -21313;
    EXPECT_EQ(m_client.Request_Begin(&m_body, m_call, false), -21313);
    m_session->begin_result = 0;
    m_session->status = -29404;
    EXPECT_EQ(response(k_response), -29404);
    EXPECT_TRUE(is_empty(m_out));
    EXPECT_EQ(m_session->calls.back(), "Response_StatusCode null");
}

TEST_F(Client, ParsesTheResponse) {
    EXPECT_EQ(response(k_response), 0);
    EXPECT_EQ(xml_shape(m_out), "methodResponse(params(param(value'x')))");
    EXPECT_EQ(response("<html>"), zXML::k_malformed);
    EXPECT_EQ(response("<!DOCTYPE html><html></html>"), zXML::k_doctype);
    EXPECT_TRUE(is_empty(m_out));
}

TEST_F(Client, ParsesNoMoreThanWasAnnounced) {
    m_session->answer(std::string(k_response) + "garbage");
    m_session->announced_length = sizeof k_response - 1;
    ASSERT_EQ(m_client.Request_Begin(&m_body, m_call, false), 0);
    EXPECT_EQ(m_client.Request_ResponseAsXML(m_out), 0);
    EXPECT_FALSE(is_empty(m_out));
}

TEST_F(Client, WaitsForAllThatWasAnnounced) {
    m_out.SetCString("mine", "1");
    m_session->answer(k_response);
    ++m_session->announced_length;
    ASSERT_EQ(m_client.Request_Begin(&m_body, m_call, false), 0);
    EXPECT_EQ(m_client.Request_ResponseAsXML(m_out), 0);
    EXPECT_EQ(m_out.AsString("mine", ""), "1");
    m_session->announced_length = 0xFFFFFFFF;
    EXPECT_EQ(m_client.Request_ResponseAsXML(m_out), 0);
}

TEST_F(Client, RefusesAResponseOfSeveralParts) {
    m_out.SetCString("mine", "1");
    for (const char* const type : {"Multipart/Related; boundary=x", "multipart/", "MULTIPART/x"}) {
        m_session->content_type = type;
        EXPECT_EQ(response(k_response), cXMLRPC::k_multipart);
        EXPECT_EQ(m_out.AsString("mine", ""), "1");
    }
    for (const char* const type : {"multipart", " multipart/related", "text/multipart/"}) {
        m_session->content_type = type;
        EXPECT_EQ(response(k_response), 0);
    }
}

// Without a length the type is not looked at; hosts know it so.
TEST_F(Client, WithoutALengthParsesAllThatCame) {
    m_session->length_result = -1;
    m_session->content_type = "multipart/related; boundary=x";
    EXPECT_EQ(response(k_response), 0);
    EXPECT_EQ(xml_shape(m_out), "methodResponse(params(param(value'x')))");
}

TEST_F(Client, WithoutARequestThereIsNoResponse) {
    EXPECT_EQ(m_client.Request_ResponseAsXML(m_out), -1);
    EXPECT_EQ(response(k_response), 0);
    m_client.Request_End();
    EXPECT_EQ(m_client.Request_ResponseAsXML(m_out), -1);
    ASSERT_EQ(m_client.Request_Begin(nullptr, m_call, false), 0);
    EXPECT_EQ(m_client.Request_ResponseAsXML(m_out), -1);
}

TEST_F(Client, CopiesShareTheRequest) {
    m_session->answer(k_response);
    ASSERT_EQ(m_client.Request_Begin(&m_body, m_call, false), 0);
    cXMLRPC copy(m_client);
    EXPECT_EQ(copy.Request_ResponseAsXML(m_out), 0);
    cXMLRPC other;
    other = copy;
    EXPECT_EQ(other.Request_ResponseAsXML(m_out), 0);
    copy.Request_End();
    EXPECT_EQ(copy.Request_ResponseAsXML(m_out), -1);
    EXPECT_EQ(other.Request_ResponseAsXML(m_out), 0);
}

TEST(ClientWithoutASession, DoesNothing) {
    cXMLRPC client{std::shared_ptr<cHttpSession>()};
    zBuffer body;
    zRecord call;
    zXMLRPC(call).SetCall("m");
    client.Configure("http://h/", 1);
    EXPECT_FALSE(client.IsConfigured());
    client.SetAuthentication("u", "p");
    client.SetLogger(nullptr);
    EXPECT_EQ(client.Request_Begin(&body, call, false), -1);
    client.Request_BlockForResponse();
    EXPECT_TRUE(client.Request_IsComplete());
    client.Request_Stop();
    EXPECT_EQ(client.Request_ContentBytesRead(), 0u);
    EXPECT_EQ(client.Request_ResponseAsXML(call), -1);
    std::uint32_t number = 0;
    zString type;
    EXPECT_EQ(client.Response_StatusCode(&number), -1);
    EXPECT_EQ(client.Response_ContentType(type), -1);
    EXPECT_EQ(client.Response_ContentLength(&number), -1);
    client.Request_End();
}

TEST(ClientFault, StandsForATransportThatFailed) {
    zRecord record;
    record.SetCString("old", "1");
    EXPECT_EQ(cXMLRPC::MakeErrorResponse(record, -21313), -21313);
    zString text;
    std::int32_t code = 0;
    ASSERT_EQ(zXMLRPC(record).Fault(text, code), 0);
    EXPECT_EQ(text.View(), "transport fault");
    EXPECT_EQ(code, -21313);
}

// The two fields that hosts know, and no more.
TEST(ClientLayout, IsTheSessionAndTheResponse) {
    EXPECT_EQ(sizeof(cXMLRPC), sizeof(std::shared_ptr<cHttpSession>) + sizeof(zBuffer*));
}

}  // namespace
