// interop_test_linux.cpp - calls of servers that others have written: Python's, plain and over TLS,
// and a validator's server over xmlrpc-c.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "loam/xml.h"
#include "loam/xmlrpc.h"
#include "multipart.h"
#include "tests/xml/xml_shape.h"
#include "tests/xmlrpc/peer_process.h"
#include "tests/xmlrpc/python_server.h"
#include "xmlrpc.h"

namespace {

using pennywort::tests::peer_process;
using pennywort::tests::xml_shape;
using Value = zXMLRPC::Value;

constexpr double k_patient = 60.0;

// A call and what came of it.
class exchange {
public:
    explicit exchange(const char* method) { zXMLRPC(m_request).SetCall(method); }

    Value param() { return zXMLRPC(m_request).AddParam(); }
    zRecord& request() { return m_request; }
    zRecord& response() { return m_response; }

    zStatus send(cXMLRPC client, const std::string& url, bool is_escaped = false) {
        zBuffer body;
        client.Configure(url.c_str(), k_patient);
        zStatus status = client.Request_Begin(&body, m_request, is_escaped);
        client.Request_BlockForResponse();
        if (status == 0) status = client.Request_ResponseAsXML(m_response);
        client.Request_End();
        return status;
    }
    Value result() {
        Value value;
        EXPECT_EQ(zXMLRPC(m_response).Result(value), 0) << xml_shape(m_response);
        return value;
    }

private:
    zRecord m_request;
    zRecord m_response;
};

std::string text_of(const Value& value) {
    zString text;
    EXPECT_EQ(value.AsString(text), 0);
    return std::string(text.View());
}

std::int32_t number_of(const Value& value) {
    std::int32_t number = 0;
    EXPECT_EQ(value.AsInt32(number), 0);
    return number;
}

class Python : public pennywort::tests::PythonServerTest {};

TEST_F(Python, GivesBackEveryType) {
    exchange one("echo");
    one.param().SetInt32(std::numeric_limits<std::int32_t>::min());
    one.param().SetBool(true);
    one.param().SetDouble(0.1);
    one.param().SetString("<\xC3\xA9> & \xF0\x9F\x98\x80\r\n");
    one.param().SetBytes("\0\1\xFF", 3);
    one.param().SetDate("20260131T14:08:55");
    one.param().SetNil();
    one.param().SetArray();
    Value made = one.param();
    made.SetStruct();
    made.AddMember("a b").SetStruct();
    ASSERT_EQ(one.send(cXMLRPC(), s_url), 0);
    const Value result = one.result();
    ASSERT_EQ(result.Count(), 9u);
    EXPECT_EQ(number_of(result.Item(0)), std::numeric_limits<std::int32_t>::min());
    bool flag = false;
    EXPECT_EQ(result.Item(1).AsBool(flag), 0);
    EXPECT_TRUE(flag);
    double real = 0;
    EXPECT_EQ(result.Item(2).AsDouble(real), 0);
    EXPECT_EQ(real, 0.1);
    // Python's writer does not protect a carriage return, and XML makes a line feed of it.
    EXPECT_EQ(text_of(result.Item(3)), "<\xC3\xA9> & \xF0\x9F\x98\x80\n");
    zString text;
    EXPECT_EQ(result.Item(4).AsBytes(text), 0);
    EXPECT_EQ(text.View(), std::string_view("\0\1\xFF", 3));
    EXPECT_EQ(result.Item(5).AsDate(text), 0);
    EXPECT_EQ(text.View(), "20260131T14:08:55");
    EXPECT_TRUE(result.Item(6).IsNil());
    EXPECT_EQ(result.Item(7).GetType(), zXMLRPC::Type::array);
    EXPECT_EQ(result.Item(8).Member("a b").GetType(), zXMLRPC::Type::structure);
}

TEST_F(Python, UnderstandsEachTypeAsItsOwn) {
    const auto type_of = [](auto set) {
        exchange one("type");
        set(one.param());
        EXPECT_EQ(one.send(cXMLRPC(), s_url), 0);
        return text_of(one.result());
    };
    EXPECT_EQ(type_of([](Value v) { v.SetInt64(1LL << 40); }), "int");
    EXPECT_EQ(type_of([](Value v) { v.SetDouble(1e300); }), "float");
    EXPECT_EQ(type_of([](Value v) { v.SetBool(false); }), "bool");
    EXPECT_EQ(type_of([](Value v) { v.SetNil(); }), "NoneType");
    EXPECT_EQ(type_of([](Value v) { v.SetBytes("", 0); }), "Binary");
    EXPECT_EQ(type_of([](Value v) { v.SetDate("20260131T14:08:55"); }), "DateTime");
    EXPECT_EQ(type_of([](Value v) { v.SetStruct(); }), "dict");
}

TEST_F(Python, TellsAFault) {
    exchange one("fail");
    one.param().SetInt32(-42);
    one.param().SetString("no such deck");
    ASSERT_EQ(one.send(cXMLRPC(), s_url), 0);
    zString text;
    std::int32_t code = 0;
    ASSERT_EQ(zXMLRPC(one.response()).Fault(text, code), 0);
    EXPECT_EQ(code, -42);
    EXPECT_EQ(text.View(), "no such deck");
}

TEST_F(Python, GetsEscapesAsTextAndReferencesAsCharacters) {
    exchange escaped("echo");
    escaped.param().SetString("\xC3\xA9");
    ASSERT_EQ(escaped.send(cXMLRPC(), s_url, true), 0);
    EXPECT_EQ(text_of(escaped.result().Item(0)), "&#x00E9;");

    zBuffer body;
    zRecord response;
    cXMLRPC client(s_url.c_str(), k_patient);
    ASSERT_EQ(client.Request_BeginWithReferences(&body, escaped.request()), 0);
    client.Request_BlockForResponse();
    ASSERT_EQ(client.Request_ResponseAsXML(response), 0);
    Value result;
    ASSERT_EQ(zXMLRPC(response).Result(result), 0);
    EXPECT_EQ(text_of(result.Item(0)), "\xC3\xA9");
}

TEST_F(Python, AnswersSeveralCallsAtOnce) {
    exchange all("");
    cXMLRPCMulticall calls(all.request());
    for (const char* const method : {"add", "nothing of this name", "add"}) {
        exchange one(method);
        one.param().SetInt32(2);
        one.param().SetInt32(3);
        ASSERT_EQ(calls.AddCall(one.request()), 0);
    }
    ASSERT_EQ(all.send(cXMLRPC(), s_url), 0);
    zRecord response;
    ASSERT_EQ(cXMLRPCMulticall::GetResponse(all.response(), 0, response), 0);
    Value sum;
    ASSERT_EQ(zXMLRPC(response).Result(sum), 0);
    EXPECT_EQ(number_of(sum), 5);
    ASSERT_EQ(cXMLRPCMulticall::GetResponse(all.response(), 1, response), 0);
    EXPECT_EQ(zXMLRPC(response).GetKind(), zXMLRPC::Kind::fault);
    ASSERT_EQ(cXMLRPCMulticall::GetResponse(all.response(), 2, response), 0);
    EXPECT_EQ(zXMLRPC(response).GetKind(), zXMLRPC::Kind::response);
}

TEST_F(Python, SendsALargeResponse) {
    exchange one("repeat");
    one.param().SetString(std::string(100, 'x').c_str());
    one.param().SetInt32(20'000);
    ASSERT_EQ(one.send(cXMLRPC(), s_url), 0);
    EXPECT_EQ(one.result().Count(), 20'000u);
}

TEST_F(Python, SendsSeveralPartsThatTheReaderTakesApart) {
    exchange one("multipart");
    cXMLRPC client(s_url.replace(s_url.find("/RPC2"), 5, "/multipart").c_str(), k_patient);
    s_url.replace(s_url.find("/multipart"), 10, "/RPC2");
    zBuffer body;
    ASSERT_EQ(client.Request_Begin(&body, one.request(), false), 0);
    client.Request_BlockForResponse();
    ASSERT_EQ(client.Request_ResponseAsXML(one.response()), cXMLRPC::k_multipart);
    const auto length = static_cast<std::int32_t>(client.Request_ContentBytesRead());
    zRecord record;
    cMultipartReader reader(record);
    ASSERT_EQ(reader.Parse_BodyOnly(body.Data(), length, "xYzZY", 5, 0), 0);
    cMultipartRecord::Section section;
    const char* data = nullptr;
    std::int32_t size = 0;
    ASSERT_EQ(cMultipartRecord(record, nullptr)
                  .FindSectionBySectionHeaderValue(section, "Content-ID", "<all>"),
              0);
    ASSERT_EQ(reader.GetSectionData(section, body.Data(), length, &data, &size), 0);
    ASSERT_EQ(size, 256);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(static_cast<unsigned char>(data[i]), i);
}

// A server with a certificate of its own on an address and a port of its own.
std::string sum_over_tls(const std::string& url, const std::string& certificate, bool by_scheme) {
    cHttpSessionSettings settings;
    settings.caFile = certificate;
    settings.tlsByScheme = by_scheme;
    const auto session = cHttpSession::Factory();
    session->SetSettings(settings);
    exchange one("add");
    one.param().SetInt32(20);
    one.param().SetInt32(22);
    const zStatus status = one.send(cXMLRPC(session), url);
    return status == 0 ? std::to_string(number_of(one.result())) : std::to_string(status);
}

class tls_server {
public:
    tls_server(const std::string& address, const std::string& port)
        : m_process({"python3", PYTHON_SERVER, "--tls", address, port}) {
        const std::string line = m_process.line();
        const std::size_t space = line.find(' ');
        m_port = line.substr(0, space);
        m_certificate = space == std::string::npos ? "" : line.substr(space + 1);
    }
    const std::string& port() const { return m_port; }
    const std::string& certificate() const { return m_certificate; }

private:
    peer_process m_process;
    std::string m_port;
    std::string m_certificate;
};

TEST(PythonOverTls, ByTheScheme) {
    const tls_server server("127.0.0.1", "0");
    const std::string url = "https://127.0.0.1:" + server.port() + "/RPC2";
    EXPECT_EQ(sum_over_tls(url, server.certificate(), true), "42");
}

TEST(PythonOverTls, ByThePort) {
    if (geteuid() != 0) GTEST_SKIP() << "the port 443 belongs to root";
    // An address of its own on this machine, where nobody else listens.
    const tls_server server("127.43.13.1", "443");
    ASSERT_EQ(server.port(), "443");
    EXPECT_EQ(sum_over_tls("http://127.43.13.1:443/RPC2", server.certificate(), false), "42");
    EXPECT_LT(std::stoi(sum_over_tls("http://127.43.13.1:443/RPC2", "/dev/null", false)), 0);
}

class Validator : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_server = std::make_unique<peer_process>(std::vector<std::string>{VALIDATOR_SERVER});
        s_url = "http://127.0.0.1:" + s_server->line() + "/RPC2";
    }
    static void TearDownTestSuite() { s_server.reset(); }

    Value call() {
        EXPECT_EQ(m_one->send(cXMLRPC(), s_url), 0);
        return m_one->result();
    }
    Value begin(const char* method) {
        m_one = std::make_unique<exchange>((std::string("validator1.") + method).c_str());
        return m_one->param();
    }
    static void set_stooges(Value made, std::int32_t curly) {
        made.SetStruct();
        made.AddMember("moe").SetInt32(10);
        made.AddMember("larry").SetInt32(20);
        made.AddMember("curly").SetInt32(curly);
    }

    static std::unique_ptr<peer_process> s_server;
    static std::string s_url;
    std::unique_ptr<exchange> m_one;
};
std::unique_ptr<peer_process> Validator::s_server;
std::string Validator::s_url;

TEST_F(Validator, ArrayOfStructs) {
    Value array = begin("arrayOfStructsTest");
    array.SetArray();
    for (const std::int32_t curly : {1, 2, 39}) set_stooges(array.AddItem(), curly);
    EXPECT_EQ(number_of(call()), 42);
}

TEST_F(Validator, CountTheEntities) {
    begin("countTheEntities").SetString("a<b>>&&&'\"\"\"\"");
    const Value result = call();
    EXPECT_EQ(number_of(result.Member("ctLeftAngleBrackets")), 1);
    EXPECT_EQ(number_of(result.Member("ctRightAngleBrackets")), 2);
    EXPECT_EQ(number_of(result.Member("ctAmpersands")), 3);
    EXPECT_EQ(number_of(result.Member("ctApostrophes")), 1);
    EXPECT_EQ(number_of(result.Member("ctQuotes")), 4);
}

TEST_F(Validator, EasyStruct) {
    set_stooges(begin("easyStructTest"), 30);
    EXPECT_EQ(number_of(call()), 60);
}

TEST_F(Validator, EchoStruct) {
    Value made = begin("echoStructTest");
    made.SetStruct();
    made.AddMember("substruct").SetStruct();
    made.AddMember("text").SetString("\xC3\xA9 ");
    made.AddMember("list").SetArray();
    const Value result = call();
    EXPECT_EQ(result.Count(), 3u);
    EXPECT_EQ(result.Member("substruct").GetType(), zXMLRPC::Type::structure);
    EXPECT_EQ(text_of(result.Member("text")), "\xC3\xA9 ");
    EXPECT_EQ(result.Member("list").GetType(), zXMLRPC::Type::array);
}

TEST_F(Validator, ManyTypes) {
    begin("manyTypesTest").SetInt32(-5);
    m_one->param().SetBool(true);
    m_one->param().SetString("text");
    m_one->param().SetDouble(2.5);
    m_one->param().SetDate("20260131T14:08:55");
    m_one->param().SetBytes("\0\xFF", 2);
    const Value result = call();
    ASSERT_EQ(result.Count(), 6u);
    EXPECT_EQ(number_of(result.Item(0)), -5);
    bool flag = false;
    EXPECT_EQ(result.Item(1).AsBool(flag), 0);
    EXPECT_TRUE(flag);
    EXPECT_EQ(text_of(result.Item(2)), "text");
    double real = 0;
    EXPECT_EQ(result.Item(3).AsDouble(real), 0);
    EXPECT_EQ(real, 2.5);
    zString text;
    EXPECT_EQ(result.Item(4).AsDate(text), 0);
    EXPECT_EQ(text.View(), "20260131T14:08:55");
    EXPECT_EQ(result.Item(5).AsBytes(text), 0);
    EXPECT_EQ(text.View(), std::string_view("\0\xFF", 2));
}

TEST_F(Validator, ModerateSizeArray) {
    Value array = begin("moderateSizeArrayCheck");
    array.SetArray();
    for (int i = 0; i < 150; ++i) array.AddItem().SetString(("item " + std::to_string(i)).c_str());
    EXPECT_EQ(text_of(call()), "item 0item 149");
}

TEST_F(Validator, NestedStruct) {
    Value calendar = begin("nestedStructTest");
    calendar.SetStruct();
    Value year = calendar.AddMember("2000");
    year.SetStruct();
    Value april = year.AddMember("04");
    april.SetStruct();
    set_stooges(april.AddMember("01"), 12);
    EXPECT_EQ(number_of(call()), 42);
}

TEST_F(Validator, SimpleStructReturn) {
    begin("simpleStructReturnTest").SetInt32(7);
    const Value result = call();
    EXPECT_EQ(number_of(result.Member("times10")), 70);
    EXPECT_EQ(number_of(result.Member("times100")), 700);
    EXPECT_EQ(number_of(result.Member("times1000")), 7000);
}

}  // namespace
