// multicall_test.cpp - several calls in one request.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "loam/xmlrpc.h"
#include "tests/xml/xml_shape.h"
#include "xmlrpc.h"

namespace {

using pennywort::tests::is_empty;
using pennywort::tests::parse_text;
using pennywort::tests::xml_shape;

TEST(Multicall, PutsCallsIntoOne) {
    zRecord request;
    cXMLRPCMulticall all(request);
    EXPECT_EQ(all.CallCount(), 0u);
    zRecord call;
    zXMLRPC message(call);
    message.SetCall("a");
    ASSERT_EQ(all.AddCall(call), 0);
    message.SetCall("b");
    message.AddParam().SetInt32(1);
    message.AddParam().SetArray();
    ASSERT_EQ(all.AddCall(call), 0);
    EXPECT_EQ(all.CallCount(), 2u);
    EXPECT_EQ(xml_shape(request),
              "methodCall(methodName'system.multicall' params(param(value(array(data("
              "value(struct(member(name'methodName' value(string'a')) "
              "member(name'params' value(array(data))))) "
              "value(struct(member(name'methodName' value(string'b')) "
              "member(name'params' value(array(data(value(i4'1') value(array(data))))))))))))))");
}

TEST(Multicall, TakesCallsAlone) {
    zRecord request;
    cXMLRPCMulticall all(request);
    zRecord fault;
    zXMLRPC(fault).SetFault("x", 1);
    EXPECT_EQ(all.AddCall(fault), zXMLRPC::k_no_message);
    zRecord nothing;
    EXPECT_EQ(all.AddCall(nothing), zXMLRPC::k_no_message);
    EXPECT_EQ(all.CallCount(), 0u);
}

std::string response_of(std::string_view results, std::uint32_t index) {
    zRecord response;
    EXPECT_EQ(parse_text(response, "<methodResponse><params><param><value>" + std::string(results) +
                                       "</value></param></params></methodResponse>"),
              0);
    zRecord out;
    out.SetCString("old", "1");
    const zStatus status = cXMLRPCMulticall::GetResponse(response, index, out);
    EXPECT_EQ(is_empty(out), status != 0);
    return status == 0 ? xml_shape(out) : std::to_string(status);
}

TEST(Multicall, GivesEachCallItsOwnResponse) {
    const std::string results =
        "<array><data><value><array><data><value>one</value></data></array></value>"
        "<value><struct><member><name>faultCode</name><value><int>4</int></value></member>"
        "<member><name>faultString</name><value>no</value></member></struct></value>"
        "</data></array>";
    EXPECT_EQ(response_of(results, 0), "methodResponse(params(param(value'one')))");
    EXPECT_EQ(response_of(results, 1),
              "methodResponse(fault(value(struct(member(name'faultCode' value(i4'4')) "
              "member(name'faultString' value(string'no'))))))");
    EXPECT_EQ(response_of(results, 2), std::to_string(zXMLRPC::k_no_message));
}

TEST(Multicall, TellsWhatIsNoResponse) {
    const std::string none = std::to_string(zXMLRPC::k_no_message);
    EXPECT_EQ(response_of("words", 0), none);
    EXPECT_EQ(response_of("<array><data><value>1</value></data></array>", 0), none);
    EXPECT_EQ(response_of("<array><data><value><array><data/></array></value></data></array>", 0),
              none);
    EXPECT_EQ(response_of("<array><data><value><struct/></value></data></array>", 0), none);
}

// A host that is done with the response to all may put the one it wants into the same record.
TEST(Multicall, AResponseMayReplaceThatOfAll) {
    zRecord response;
    ASSERT_EQ(parse_text(response,
                         "<methodResponse><params><param><value><array><data>"
                         "<value><array><data><value>one</value></data></array></value>"
                         "<value><array><data><value>two</value></data></array></value>"
                         "</data></array></value></param></params></methodResponse>"),
              0);
    ASSERT_EQ(cXMLRPCMulticall::GetResponse(response, 1, response), 0);
    EXPECT_EQ(xml_shape(response), "methodResponse(params(param(value'two')))");
}

TEST(Multicall, AFaultOfAllIsTheFaultOfEach) {
    zRecord response;
    zXMLRPC(response).SetFault("no such method", 9);
    zRecord out;
    ASSERT_EQ(cXMLRPCMulticall::GetResponse(response, 3, out), 0);
    EXPECT_EQ(xml_shape(out), xml_shape(response));
    zRecord broken;
    parse_text(broken, "<methodResponse><fault><value/></fault></methodResponse>");
    EXPECT_EQ(cXMLRPCMulticall::GetResponse(broken, 0, out), zXMLRPC::k_no_message);
}

}  // namespace
