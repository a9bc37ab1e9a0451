// session_test.cpp - cXMLRPC over a session of this system and a server that does what the test
// says.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "loam/xml.h"
#include "loam/xmlrpc.h"
#include "multipart.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/xml/xml_shape.h"
#include "xmlrpc.h"

namespace {

using pennywort::tests::is_empty;
using pennywort::tests::xml_shape;

constexpr double k_patient = 30.0;
constexpr std::string_view k_answer =
    "<methodResponse><params><param><value><i4>7</i4></value></param></params></methodResponse>";

std::string answer(std::string_view first_line, std::string_view type, std::string_view body) {
    return "HTTP/1.1 " + std::string(first_line) + "\r\nContent-Type: " + std::string(type) +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

class SessionTest : public testing::Test {
protected:
    SessionTest() { zXMLRPC(m_request).SetCall("m"); }

    // The status of the whole call.
    zStatus call(const scripted_peer& peer) {
        m_client.Configure(peer.url("/RPC2").c_str(), k_patient);
        zStatus status = m_client.Request_Begin(&m_body, m_request, false);
        m_client.Request_BlockForResponse();
        if (status == 0) status = m_client.Request_ResponseAsXML(m_out);
        return status;
    }
    zStatus call_answered(const std::string& bytes) {
        const scripted_peer peer(answering(bytes));
        return call(peer);
    }

    cXMLRPC m_client;
    zBuffer m_body;
    zRecord m_request;
    zRecord m_out;
};

TEST_F(SessionTest, CallsAndGetsItsResult) {
    std::string head;
    std::string body;
    {
        const scripted_peer peer([&](peer_connection& connection) {
            head = connection.receive_head();
            const std::size_t at = head.find("Content-Length: ");
            body = connection.receive(std::stoul(head.substr(at + 16)));
            connection.send(answer("200 OK", "text/xml", k_answer));
            connection.wait_for_end();
        });
        ASSERT_EQ(call(peer), 0);
        m_client.Request_End();
        m_client = cXMLRPC();  // closes the connection
    }
    EXPECT_EQ(head.substr(0, 20), "POST /RPC2 HTTP/1.1\r");
    EXPECT_NE(head.find("Content-Type: text/xml\r\n"), std::string::npos) << head;
    EXPECT_EQ(body,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<methodCall><methodName>m</methodName><params/></methodCall>\n");
    EXPECT_EQ(xml_shape(m_out), "methodResponse(params(param(value(i4'7'))))");
}

TEST_F(SessionTest, AnswersThatAreNoXmlRpc) {
    EXPECT_EQ(call_answered(answer("200 OK", "text/html", "<!DOCTYPE html><html></html>")),
              zXML::k_doctype);
    EXPECT_EQ(call_answered(answer("200 OK", "text/plain", "words")), zXML::k_malformed);
    EXPECT_EQ(call_answered(answer("200 OK", "text/xml", "")), zXML::k_malformed);
    EXPECT_EQ(call_answered(answer("404 Not Found", "text/html", "<html></html>")), -29404);
    EXPECT_EQ(call_answered(answer("500 Broken", "text/xml", k_answer)), -29500);
    EXPECT_TRUE(is_empty(m_out));
}

TEST_F(SessionTest, ABodyInChunksIsParsedWithoutItsLength) {
    std::string chunks;
    for (const char c : k_answer) chunks += std::string("1\r\n") + c + "\r\n";
    EXPECT_EQ(call_answered("HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n"
                            "Transfer-Encoding: chunked\r\n\r\n" +
                            chunks + "0\r\n\r\n"),
              0);
    EXPECT_FALSE(is_empty(m_out));
}

TEST_F(SessionTest, AMultipartAnswerIsTakenApartByTheReader) {
    const std::string image("\x89PNG\r\n\0\xFF--B-", 12);
    const std::string body = "--B\r\nContent-Type: text/xml\r\n\r\n" + std::string(k_answer) +
                             "\r\n--B\r\nContent-Type: image/png\r\nContent-ID: <i>\r\n\r\n" +
                             image + "\r\n--B--";
    ASSERT_EQ(call_answered(answer("200 OK", "multipart/related; boundary=B", body)),
              cXMLRPC::k_multipart);
    const auto length = static_cast<std::int32_t>(m_client.Request_ContentBytesRead());
    zRecord record;
    cMultipartReader reader(record);
    ASSERT_EQ(reader.Parse_BodyOnly(m_body.Data(), length, "B", 1, 0), 0);
    const cMultipartRecord message(record, nullptr);
    cMultipartRecord::Section section;
    const char* data = nullptr;
    std::int32_t size = 0;
    ASSERT_EQ(message.FindSectionBySectionHeaderValue(section, "Content-ID", "<i>"), 0);
    ASSERT_EQ(reader.GetSectionData(section, m_body.Data(), length, &data, &size), 0);
    EXPECT_EQ(std::string(data, static_cast<std::size_t>(size)), image);
    ASSERT_EQ(message.GetSection(section, 0), 0);
    ASSERT_EQ(reader.GetSectionData(section, m_body.Data(), length, &data, &size), 0);
    ASSERT_EQ(zXML::ParseBuffer(255, &m_out, data, size), 0);
    EXPECT_EQ(zXMLRPC(m_out).GetKind(), zXMLRPC::Kind::response);
}

TEST_F(SessionTest, OneObjectCallsAgainAndAgain) {
    const scripted_peer peer(answering(answer("200 OK", "text/xml", k_answer)));
    for (int i = 0; i < 20; ++i) {
        m_body.ResizeTo(0, 0);
        m_out.MakeEmpty();
        ASSERT_EQ(call(peer), 0);
        ASSERT_FALSE(is_empty(m_out));
        m_client.Request_End();
    }
}

TEST_F(SessionTest, AServerThatIsNotThereBecomesAFault) {
    m_client.Configure("http://127.0.0.1:1/RPC2", k_patient);
    const zStatus status = m_client.Request_Begin(&m_body, m_request, false);
    ASSERT_NE(status, 0);
    EXPECT_EQ(cXMLRPC::MakeErrorResponse(m_out, status), status);
    zString text;
    std::int32_t code = 0;
    ASSERT_EQ(zXMLRPC(m_out).Fault(text, code), 0);
    EXPECT_EQ(code, status);
}

}  // namespace
