// message_test.cpp - records as XML-RPC calls, responses and faults.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "loam/xmlrpc.h"
#include "tests/support/failing_memory.h"
#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::is_empty;
using pennywort::tests::parse_text;
using pennywort::tests::xml_shape;
using Kind = zXMLRPC::Kind;
using Value = zXMLRPC::Value;

struct kind_case {
    const char* name;
    std::string_view xml;
    Kind want;
};
void PrintTo(const kind_case& c, std::ostream* out) { *out << c.name; }

const kind_case k_kind_cases[] = {
    {"Call", "<methodCall><methodName>a.b</methodName><params/></methodCall>", Kind::call},
    {"CallWithoutParams", "<methodCall><methodName>a.b</methodName></methodCall>", Kind::call},
    {"CallWithoutAName", "<methodCall><params/></methodCall>", Kind::other},
    {"Response", "<methodResponse><params><param><value/></param></params></methodResponse>",
     Kind::response},
    {"ResponseWithoutAValue", "<methodResponse><params><param/></params></methodResponse>",
     Kind::other},
    {"ResponseWithoutAParam", "<methodResponse><params/></methodResponse>", Kind::other},
    {"ResponseWithTwo",
     "<methodResponse><params><param><value/></param><param><value/></param></params>"
     "</methodResponse>",
     Kind::other},
    {"Fault", "<methodResponse><fault><value><struct/></value></fault></methodResponse>",
     Kind::fault},
    {"FaultWithoutAValue", "<methodResponse><fault/></methodResponse>", Kind::other},
    {"EmptyResponse", "<methodResponse/>", Kind::other},
    {"Html", "<html><body>Not here</body></html>", Kind::other},
};

class Kinds : public testing::TestWithParam<kind_case> {};

TEST_P(Kinds, AreTold) {
    zRecord record;
    ASSERT_EQ(parse_text(record, GetParam().xml), 0);
    zXMLRPC message(record);
    EXPECT_EQ(message.GetKind(), GetParam().want);
    Value value;
    const zStatus want = GetParam().want == Kind::response ? 0
                         : GetParam().want == Kind::fault  ? zXMLRPC::k_is_fault
                                                           : zXMLRPC::k_no_message;
    EXPECT_EQ(message.Result(value), want);
    EXPECT_EQ(message.MethodName(), GetParam().want == Kind::call ? "a.b" : "");
}

INSTANTIATE_TEST_SUITE_P(All, Kinds, testing::ValuesIn(k_kind_cases),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(Message, OfAnEmptyRecordIsNone) {
    zRecord record;
    zXMLRPC message(record);
    EXPECT_EQ(message.GetKind(), Kind::other);
    EXPECT_EQ(message.ParamCount(), 0u);
    EXPECT_FALSE(message.Param(0).IsSet());
    EXPECT_FALSE(message.AddParam().IsSet());
}

TEST(Message, BecomesACall) {
    zRecord record;
    record.SetCString("old", "1");
    zXMLRPC message(record);
    ASSERT_EQ(message.SetCall("deck.play"), 0);
    EXPECT_EQ(message.MethodName(), "deck.play");
    EXPECT_EQ(message.ParamCount(), 0u);
    ASSERT_EQ(message.AddParam().SetInt32(7), 0);
    ASSERT_EQ(message.AddParam().SetString("x"), 0);
    EXPECT_EQ(message.ParamCount(), 2u);
    EXPECT_EQ(
        xml_shape(record),
        "methodCall(methodName'deck.play' params(param(value(i4'7')) param(value(string'x'))))");
    std::int32_t number = 0;
    EXPECT_EQ(message.Param(0).AsInt32(number), 0);
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(message.Param(2).IsSet());
}

TEST(Message, ACallWithoutParamsGetsThem) {
    zRecord record;
    ASSERT_EQ(parse_text(record, "<methodCall><methodName>m</methodName></methodCall>"), 0);
    zXMLRPC message(record);
    ASSERT_EQ(message.AddParam().SetNil(), 0);
    EXPECT_EQ(xml_shape(record), "methodCall(methodName'm' params(param(value(nil))))");
}

TEST(Message, BecomesAResponse) {
    zRecord record;
    zXMLRPC message(record);
    Value value;
    ASSERT_EQ(message.SetResponse(value), 0);
    ASSERT_EQ(value.SetBool(true), 0);
    EXPECT_EQ(xml_shape(record), "methodResponse(params(param(value(boolean'1'))))");
    EXPECT_EQ(message.GetKind(), Kind::response);
}

TEST(Message, BecomesAFault) {
    zRecord record;
    record.AddChild(new zRecord, zRecord::k_at_end);
    zXMLRPC message(record);
    EXPECT_EQ(message.SetFault("transport fault", -21313), 0);
    EXPECT_EQ(xml_shape(record),
              "methodResponse(fault(value(struct(member(name'faultCode' value(i4'-21313')) "
              "member(name'faultString' value(string'transport fault'))))))");
    zString text;
    std::int32_t code = 0;
    EXPECT_EQ(message.Fault(text, code), 0);
    EXPECT_EQ(text.View(), "transport fault");
    EXPECT_EQ(code, -21313);
    EXPECT_EQ(message.SetFault(nullptr, 0), 0);
    EXPECT_EQ(message.Fault(text, code), 0);
    EXPECT_EQ(text.View(), "");
}

TEST(Message, AFaultWithoutItsMembersIsToldAsSuch) {
    const std::string code = "<member><name>faultCode</name><value><int>1</int></value></member>";
    const std::string text = "<member><name>faultString</name><value>x</value></member>";
    const auto status = [](const std::string& members) {
        zRecord record;
        parse_text(record, "<methodResponse><fault><value>" + members +
                               "</value></fault></methodResponse>");
        zString message("old");
        std::int32_t number = 42;
        const zStatus found = zXMLRPC(record).Fault(message, number);
        EXPECT_EQ(number, found == 0 ? 1 : 42);
        return found;
    };
    EXPECT_EQ(status("<struct>" + code + text + "</struct>"), 0);
    EXPECT_EQ(status("<struct>" + text + code + "</struct>"), 0);
    EXPECT_EQ(status("<struct>" + code + "</struct>"), zXMLRPC::k_bad_value);
    EXPECT_EQ(status("<struct>" + text + "</struct>"), zXMLRPC::k_bad_value);
    EXPECT_EQ(status("<struct/>"), zXMLRPC::k_bad_value);
    EXPECT_EQ(status("words"), zXMLRPC::k_bad_value);
    EXPECT_EQ(status(""), zXMLRPC::k_bad_value);
    zRecord call;
    zXMLRPC(call).SetCall("m");
    zString message;
    std::int32_t number = 0;
    EXPECT_EQ(zXMLRPC(call).Fault(message, number), zXMLRPC::k_no_message);
}

zStatus fill(zXMLRPC& message) {
    if (message.SetCall("a method with a name that is long") != 0) return -1;
    Value rows = message.AddParam();
    if (rows.SetStruct() != 0) return -1;
    if (rows.AddMember("a member with a long name").SetString(std::string(50, 't').c_str()) != 0) {
        return -1;
    }
    if (rows.AddMember("bytes").SetBytes("\0\1\2", 3) != 0) return -1;
    Value list = message.AddParam();
    if (list.SetArray() != 0) return -1;
    return list.AddItem().SetDouble(1e300);
}

TEST(MessageMemory, RunsOutAtAnyPlaceOfMakingACall) {
    zRecord record;
    zXMLRPC message(record);
    zStatus status = 0;
    const int failures = with_each_allocation_failing(
        [&] {
            try {
                status = fill(message);
            } catch (const std::bad_alloc&) {
                status = -1;  // the test's own text
            }
        },
        [&] { EXPECT_TRUE(status == 0 || status == -1); });
    EXPECT_GT(failures, 50);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(message.ParamCount(), 2u);
}

TEST(MessageMemory, RunsOutAtAnyPlaceOfMakingAFault) {
    zRecord record;
    zXMLRPC message(record);
    zStatus status = 0;
    const int failures = with_each_allocation_failing(
        [&] { status = message.SetFault("a fault with words of some length", 1); },
        [&] { EXPECT_EQ(status != 0, is_empty(record)); });
    EXPECT_GT(failures, 20);
}

// A value that cannot be replaced is what it was.
TEST(MessageMemory, RunsOutAtAnyPlaceOfReplacingAValue) {
    zRecord record;
    Value value;
    ASSERT_EQ(zXMLRPC(record).SetResponse(value), 0);
    const std::string text(100, 'x');
    zStatus status = 0;
    zString back;
    const int failures =
        with_each_allocation_failing([&] { status = value.SetString(text.c_str()); },
                                     [&] {
                                         if (status == 0) {
                                             EXPECT_EQ(value.AsString(back), 0);
                                             EXPECT_EQ(back.View(), text);
                                         } else {
                                             std::int32_t number = 0;
                                             EXPECT_EQ(value.AsInt32(number), 0);
                                         }
                                         value.SetInt32(1);
                                     });
    EXPECT_GT(failures, 3);
}

}  // namespace
