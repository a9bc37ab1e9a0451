// message_values_test.cpp - values of XML-RPC messages: every type both ways, and what is none.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "loam/xmlrpc.h"
#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::buffer_text;
using pennywort::tests::parse_text;
using Value = zXMLRPC::Value;
using Type = zXMLRPC::Type;

// A response with this inside its <value>.
class received {
public:
    explicit received(std::string_view inside) {
        const std::string text = "<methodResponse><params><param><value>" + std::string(inside) +
                                 "</value></param></params></methodResponse>";
        status = parse_text(m_record, text);
        if (status == 0) status = zXMLRPC(m_record).Result(value);
    }
    zStatus status = -1;
    Value value;

private:
    zRecord m_record;
};

// A response that is made by `set`, written and read again.
class sent {
public:
    template <typename function>
    explicit sent(function set) {
        zRecord record;
        Value made;
        zXMLRPC(record).SetResponse(made);
        status = set(made);
        zBuffer text;
        if (status == 0) status = zXML::RecordToBuffer(&text, record, 3, false, true);
        xml = buffer_text(text);
        if (status == 0) status = parse_text(m_record, xml);
        if (status == 0) status = zXMLRPC(m_record).Result(value);
    }
    zStatus status = -1;
    std::string xml;
    Value value;

private:
    zRecord m_record;
};

template <typename result>
std::string shown(zStatus status, const result& value) {
    return status == 0 ? std::to_string(value) : std::to_string(status);
}

std::string shown(zStatus status, const zString& value) {
    return status == 0 ? "'" + std::string(value.View()) + "'" : std::to_string(status);
}

// The value by the reader of its type.
std::string read(const Value& value) {
    std::int32_t narrow = 0;
    std::int64_t wide = 0;
    bool flag = false;
    double real = 0;
    zString text;
    switch (value.GetType()) {
        case Type::int32:
            return "int32 " + shown(value.AsInt32(narrow), narrow);
        case Type::int64:
            return "int64 " + shown(value.AsInt64(wide), wide);
        case Type::boolean:
            return "boolean " + shown(value.AsBool(flag), flag);
        case Type::text:
            return "text " + shown(value.AsString(text), text);
        case Type::real:
            return "real " + shown(value.AsDouble(real), real);
        case Type::date:
            return "date " + shown(value.AsDate(text), text);
        case Type::bytes:
            return "bytes " + shown(value.AsBytes(text), text);
        case Type::nil:
            return "nil";
        case Type::array:
            return "array " + std::to_string(value.Count());
        case Type::structure:
            return "struct " + std::to_string(value.Count());
        default:
            return "unknown";
    }
}

struct value_case {
    const char* name;
    std::string_view xml;
    std::string_view want;
};
void PrintTo(const value_case& c, std::ostream* out) { *out << c.name; }

const value_case k_value_cases[] = {
    {"I4", "<i4>-12</i4>", "int32 -12"},
    {"Int", "<int>12</int>", "int32 12"},
    {"IntWithSpaces", "<int>\n +7 </int>", "int32 7"},
    {"SpacesAroundTheType", "\n  <int>7</int>\n", "int32 7"},
    {"LeadingZeros", "<int>007</int>", "int32 7"},
    {"LowestInt", "<int>-2147483648</int>", "int32 -2147483648"},
    {"IntTooLarge", "<int>2147483648</int>", "int32 -2024"},
    {"IntMuchTooLarge", "<i4>99999999999999999999999</i4>", "int32 -2024"},
    {"IntWithAFraction", "<int>1.5</int>", "int32 -2023"},
    {"IntOfWords", "<int>one</int>", "int32 -2023"},
    {"EmptyInt", "<int/>", "int32 -2023"},
    {"IntWithTwoSigns", "<int>+-1</int>", "int32 -2023"},
    {"IntWithElements", "<int><b/></int>", "unknown"},
    {"I8", "<i8>-9223372036854775808</i8>", "int64 -9223372036854775808"},
    {"I8TooLarge", "<i8>9223372036854775808</i8>", "int64 -2024"},
    {"ApacheI8", "<ex:i8 xmlns:ex='e'>5</ex:i8>", "int64 5"},
    {"True", "<boolean>1</boolean>", "boolean 1"},
    {"False", "<boolean> 0 </boolean>", "boolean 0"},
    {"BooleanOfWords", "<boolean>true</boolean>", "boolean -2023"},
    {"BooleanTwo", "<boolean>2</boolean>", "boolean -2023"},
    {"String", "<string>a &lt; b</string>", "text 'a < b'"},
    {"StringWithSpaces", "<string> \n</string>", "text ' \n'"},
    {"EmptyString", "<string/>", "text ''"},
    {"WithoutAType", "text ", "text 'text '"},
    {"SpacesWithoutAType", "  ", "text '  '"},
    {"EmptyValue", "", "text ''"},
    {"Double", "<double>-1.25</double>", "real -1.250000"},
    {"DoubleWithAnExponent", "<double>1e3</double>", "real 1000.000000"},
    {"DoubleOfDigits", "<double>+3</double>", "real 3.000000"},
    {"DoubleTooLarge", "<double>1e999</double>", "real -2024"},
    {"DoubleInfinite", "<double>inf</double>", "real -2023"},
    {"DoubleNan", "<double>nan</double>", "real -2023"},
    {"DoubleEmpty", "<double></double>", "real -2023"},
    {"Date", "<dateTime.iso8601>19980717T14:08:55</dateTime.iso8601>", "date '19980717T14:08:55'"},
    {"DateWithAZone", "<dateTime.iso8601> 1998-07-17T14:08:55.5Z </dateTime.iso8601>",
     "date '1998-07-17T14:08:55.5Z'"},
    {"DateOfWords", "<dateTime.iso8601>tomorrow</dateTime.iso8601>", "date 'tomorrow'"},
    {"Base64", "<base64>eW91\n IGNhbid0</base64>", "bytes 'you can't'"},
    {"EmptyBase64", "<base64/>", "bytes ''"},
    {"Base64WithoutPadding", "<base64>eQ</base64>", "bytes -2023"},
    {"Base64WithPadding", "<base64>eQ==</base64>", "bytes 'y'"},
    {"Base64OfOtherBytes", "<base64>e*==</base64>", "bytes -2023"},
    {"Base64BehindItsEnd", "<base64>eQ==eQ==</base64>", "bytes -2023"},
    {"Base64OfPaddingAlone", "<base64>====</base64>", "bytes -2023"},
    {"Base64OfThreePaddings", "<base64>e===</base64>", "bytes -2023"},
    {"Nil", "<nil/>", "nil"},
    {"ApacheNil", "<ex:nil xmlns:ex='e'/>", "nil"},
    {"EmptyArray", "<array><data/></array>", "array 0"},
    {"Array", "<array>\n<data>\n<value>1</value> <value/>\n</data>\n</array>", "array 2"},
    {"ArrayWithoutData", "<array/>", "unknown"},
    {"EmptyStruct", "<struct/>", "struct 0"},
    {"EmptyStructInLines", "<struct>\n</struct>", "struct 0"},
    {"EmptyArrayInLines", "<array>\n<data>\n</data>\n</array>", "array 0"},
    {"Struct", "<struct><member><name>a</name><value>1</value></member></struct>", "struct 1"},
    {"OtherType", "<float>1</float>", "unknown"},
    {"TwoTypes", "<int>1</int><int>2</int>", "unknown"},
    {"TextBesideTheType", "x<int>1</int>", "unknown"},
    {"TextInAStruct", "<struct>x<member/></struct>", "unknown"},
};

class Received : public testing::TestWithParam<value_case> {};

TEST_P(Received, IsWhatItsTypeSays) {
    const received one(GetParam().xml);
    ASSERT_EQ(one.status, 0);
    EXPECT_EQ(read(one.value), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(All, Received, testing::ValuesIn(k_value_cases),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(Sent, IntegersComeBack) {
    for (const std::int32_t number : {0, -1, 1, INT32_MAX, INT32_MIN}) {
        const sent one([&](Value value) { return value.SetInt32(number); });
        std::int32_t back = 7;
        ASSERT_EQ(one.value.AsInt32(back), 0);
        EXPECT_EQ(back, number);
        EXPECT_EQ(one.value.GetType(), Type::int32);
    }
    for (const std::int64_t number : {std::int64_t{0}, INT64_MAX, INT64_MIN}) {
        const sent one([&](Value value) { return value.SetInt64(number); });
        std::int64_t back = 7;
        ASSERT_EQ(one.value.AsInt64(back), 0);
        EXPECT_EQ(back, number);
        EXPECT_EQ(one.value.GetType(), Type::int64);
    }
}

void expect_back(double number) {
    const sent one([&](Value value) { return value.SetDouble(number); });
    ASSERT_EQ(one.status, 0);
    double back = 7;
    ASSERT_EQ(one.value.AsDouble(back), 0);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(number)) << one.xml;
    EXPECT_EQ(one.xml.find_first_of("eE", one.xml.find("<double>") + 8),
              one.xml.find("</double>") + 7);
}

// Bit by bit, and without the exponent that XML-RPC does not have.
TEST(Sent, DoublesComeBackToTheLastBit) {
    using limits = std::numeric_limits<double>;
    for (const double number :
         {0.0, -0.0, 0.1, 1.0 / 3, -2.5e-8, 1e22, 123456789012345680.0, limits::max(),
          limits::lowest(), limits::min(), limits::denorm_min(), limits::epsilon()}) {
        expect_back(number);
    }
    std::mt19937_64 random(1);
    for (int i = 0; i < 2000; ++i) {
        const auto number = std::bit_cast<double>(random());
        if (std::isfinite(number)) expect_back(number);
    }
}

TEST(Sent, WhatIsNoNumberIsRefused) {
    zRecord record;
    Value value;
    ASSERT_EQ(zXMLRPC(record).SetResponse(value), 0);
    ASSERT_EQ(value.SetInt32(5), 0);
    EXPECT_EQ(value.SetDouble(std::numeric_limits<double>::infinity()), zXMLRPC::k_bad_value);
    EXPECT_EQ(value.SetDouble(std::numeric_limits<double>::quiet_NaN()), zXMLRPC::k_bad_value);
    EXPECT_EQ(read(value), "int32 5");
}

TEST(Sent, TextsComeBackByteForByte) {
    for (const std::string& text :
         {std::string(), std::string(" "), std::string("\r\n\t x \r"), std::string("<&>]]>\"'"),
          std::string("\xC3\xA9\xF0\x9F\x98\x80"), std::string("\x7F"),
          std::string(100'000, 'x')}) {
        const sent one([&](Value value) {
            return value.SetString(text.data(), static_cast<std::uint32_t>(text.size()));
        });
        zString back;
        ASSERT_EQ(one.value.AsString(back), 0);
        EXPECT_EQ(back.View(), text);
    }
}

TEST(Sent, TextThatXmlCannotHoldIsRefusedWhenItIsWritten) {
    for (const char* const text : {"\x01", "a\x1B[0m", "\xFF"}) {
        const sent one([&](Value value) { return value.SetString(text); });
        EXPECT_EQ(one.status, zXML::k_bad_text);
    }
    const sent one([](Value value) { return value.SetString("\0", 1); });
    EXPECT_EQ(one.status, zXML::k_bad_text);
}

TEST(Sent, BytesComeBackWithTheirNuls) {
    std::string all;
    for (int i = 0; i < 256; ++i) all.push_back(static_cast<char>(i));
    for (const std::size_t length : {0, 1, 2, 3, 4, 255, 256}) {
        const sent one([&](Value value) {
            return value.SetBytes(all.data(), static_cast<std::uint32_t>(length));
        });
        zString back("old");
        ASSERT_EQ(one.value.AsBytes(back), 0);
        EXPECT_EQ(back.View(), all.substr(0, length));
    }
}

TEST(Sent, OtherTypesComeBack) {
    EXPECT_EQ(read(sent([](Value value) { return value.SetBool(true); }).value), "boolean 1");
    EXPECT_EQ(read(sent([](Value value) { return value.SetBool(false); }).value), "boolean 0");
    EXPECT_EQ(read(sent([](Value value) { return value.SetNil(); }).value), "nil");
    EXPECT_EQ(read(sent([](Value value) { return value.SetDate("19980717T14:08:55"); }).value),
              "date '19980717T14:08:55'");
    EXPECT_EQ(read(sent([](Value value) { return value.SetArray(); }).value), "array 0");
    EXPECT_EQ(read(sent([](Value value) { return value.SetStruct(); }).value), "struct 0");
}

TEST(Sent, NestedArraysAndStructsComeBack) {
    const sent one([](Value value) {
        value.SetStruct();
        Value rows = value.AddMember("rows");
        rows.SetArray();
        rows.AddItem().SetInt32(1);
        rows.AddItem().SetArray();
        Value inner = rows.AddItem();
        inner.SetStruct();
        inner.AddMember("").SetString("no name");
        value.AddMember("<odd> & \xC3\xA9").SetStruct();
        return 0;
    });
    ASSERT_EQ(one.status, 0);
    EXPECT_EQ(read(one.value), "struct 2");
    const Value rows = one.value.Member("rows");
    ASSERT_EQ(read(rows), "array 3");
    EXPECT_EQ(read(rows.Item(0)), "int32 1");
    EXPECT_EQ(read(rows.Item(1)), "array 0");
    EXPECT_EQ(rows.Item(2).MemberName(0), "");
    EXPECT_EQ(read(rows.Item(2).Item(0)), "text 'no name'");
    EXPECT_EQ(one.value.MemberName(1), "<odd> & \xC3\xA9");
    EXPECT_EQ(read(one.value.Member("<odd> & \xC3\xA9")), "struct 0");
}

TEST(Values, AreConvertedBetweenNumbersAlone) {
    const received narrow("<i8>5</i8>");
    std::int32_t number = 0;
    std::int64_t wide = 0;
    double real = 0;
    bool flag = false;
    zString text;
    EXPECT_EQ(narrow.value.AsInt32(number), 0);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(narrow.value.AsDouble(real), 0);
    EXPECT_EQ(real, 5.0);
    EXPECT_EQ(narrow.value.AsBool(flag), zXMLRPC::k_other_type);
    EXPECT_EQ(narrow.value.AsString(text), zXMLRPC::k_other_type);
    EXPECT_EQ(narrow.value.AsDate(text), zXMLRPC::k_other_type);
    EXPECT_EQ(narrow.value.AsBytes(text), zXMLRPC::k_other_type);
    EXPECT_EQ(received("<i8>5000000000</i8>").value.AsInt32(number), zXMLRPC::k_out_of_range);
    EXPECT_EQ(received("<double>1</double>").value.AsInt64(wide), zXMLRPC::k_other_type);
    EXPECT_EQ(received("5").value.AsInt32(number), zXMLRPC::k_other_type);
    EXPECT_EQ(number, 5);
}

TEST(Values, OfBrokenStructsAreNotThere) {
    const received one(
        "<struct><member><value>1</value></member><member><name>b</name></member>"
        "<other/><member><value>3</value><name>c</name></member></struct>");
    ASSERT_EQ(one.value.Count(), 4u);
    EXPECT_EQ(one.value.MemberName(0), "");
    EXPECT_FALSE(one.value.Item(1).IsSet());
    EXPECT_FALSE(one.value.Item(2).IsSet());
    EXPECT_FALSE(one.value.Member("b").IsSet());
    EXPECT_EQ(read(one.value.Member("c")), "text '3'");
    EXPECT_FALSE(one.value.Member(nullptr).IsSet());
    EXPECT_FALSE(one.value.Item(4).IsSet());
    EXPECT_EQ(one.value.MemberName(4), "");
    EXPECT_FALSE(received("<array><data><other/></data></array>").value.Item(0).IsSet());
}

TEST(Values, AreReplacedWhole) {
    const received one("some <b/> text");
    Value value = one.value;
    ASSERT_EQ(value.SetInt32(1), 0);
    EXPECT_EQ(read(value), "int32 1");
    ASSERT_EQ(value.SetString(nullptr), 0);
    EXPECT_EQ(read(value), "text ''");
    ASSERT_EQ(value.SetBytes(nullptr, 5), 0);
    EXPECT_EQ(read(value), "bytes ''");
    const received other("<array><data><value>x</value></data></array>");
    ASSERT_EQ(value.SetCopy(other.value), 0);
    EXPECT_EQ(read(value.Item(0)), "text 'x'");
}

TEST(Values, ThatReferToNothingDoNothing) {
    Value none;
    std::int32_t number = 3;
    zString text;
    EXPECT_EQ(none.GetType(), Type::unknown);
    EXPECT_EQ(none.AsInt32(number), -1);
    EXPECT_EQ(none.AsString(text), -1);
    EXPECT_EQ(none.AsBytes(text), -1);
    EXPECT_EQ(none.SetInt32(1), -1);
    EXPECT_EQ(none.SetDouble(1), -1);
    EXPECT_EQ(none.SetArray(), -1);
    EXPECT_EQ(none.SetBytes("x", 1), -1);
    EXPECT_EQ(none.SetCopy(none), -1);
    EXPECT_EQ(none.Count(), 0u);
    EXPECT_FALSE(none.AddItem().IsSet());
    EXPECT_FALSE(none.AddMember("a").IsSet());
    EXPECT_FALSE(none.Item(0).IsSet());
    const received one("<int>1</int>");
    Value value = one.value;
    EXPECT_FALSE(value.AddItem().IsSet());
    EXPECT_FALSE(value.AddMember("a").IsSet());
}

}  // namespace
