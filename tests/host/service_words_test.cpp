// service_words_test.cpp - types and services as the user writes and reads them, and the arguments
// of the two commands.
#include "host/discover/service_words.h"

#include <gtest/gtest.h>

#include "host/advertise/advertise_command.h"
#include "host/app/command_line.h"
#include "host/discover/discover_command.h"

namespace pennywort::host {
namespace {

using strings = std::vector<std::string>;

struct type_case {
    const char* name;
    const char* text;
    const char* type;  // null: refused
};
void PrintTo(const type_case& c, std::ostream* out) { *out << c.name; }

constexpr type_case k_types[] = {
    {"Word", "http", "_http._tcp."},
    {"WordOf15", "a-2345678901234", "_a-2345678901234._tcp."},
    {"WordOf16", "a-23456789012345", nullptr},
    {"Type", "_http._tcp", "_http._tcp."},
    {"TypeWithDot", "_http._tcp.", "_http._tcp."},
    {"Udp", "_osc._udp", "_osc._udp."},
    {"WithDomain", "_http._tcp.example.org", "_http._tcp.example.org"},
    {"OtherProtocol", "_http._sctp", nullptr},
    {"NoUnderscore", "http._tcp", nullptr},
    {"Space", "ht tp", nullptr},
    {"Empty", "", nullptr},
    {"NoUtf8", "_\xFF._tcp", nullptr},
};

class ServiceType : public testing::TestWithParam<type_case> {};

TEST_P(ServiceType, IsUnderstoodOrRefused) {
    std::string type;
    const std::string wrong = take_service_type(GetParam().text, type);
    EXPECT_EQ(wrong.empty(), GetParam().type != nullptr) << wrong;
    if (GetParam().type != nullptr) {
        EXPECT_EQ(type, GetParam().type);
    } else {
        EXPECT_NE(wrong.find(GetParam().text), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ServiceType, testing::ValuesIn(k_types),
                         [](const auto& each) { return std::string(each.param.name); });

zRecord notification(std::int32_t what, const std::string& name) {
    zRecord record;
    record.SetInt32(std::uint64_t{0x77686174}, what);
    record.SetCString("host", "studio.local.");
    record.SetCString("service", "_http._tcp.");
    record.SetInt32("port", 8080);
    record.SetString("name", name);
    return record;
}

TEST(ServiceLine, SaysWhatThereIs) {
    zRecord record = notification(0x63426A2B, "Caméra 1");
    EXPECT_EQ(service_line(record), "found Caméra 1 studio.local:8080");
    auto* const items = new zRecord;
    items->SetCString("path", "/");
    items->SetText("raw", "\0\xFF", 2);
    items->SetCString("", "nothing");
    record.AddChild(items, zRecord::k_at_end);
    EXPECT_EQ(service_line(record), "found Caméra 1 studio.local:8080 path=/ raw=\\x00\\xFF");
    EXPECT_EQ(service_line(notification(0x63426A2D, "x")), "gone x studio.local:8080");
}

TEST(ServiceLine, LetsNobodyWriteToTheTerminal) {
    const std::string name =
        "a\x1B[2Jb\nc\x7F"
        "\xC2\x9B"
        "d\xE2\x80\xAE"
        "e";
    EXPECT_EQ(service_line(notification(0x63426A2B, name)),
              "found a\\x1B[2Jb\\x0Ac\\x7F\\xC2\\x9Bd\\xE2\\x80\\xAEe studio.local:8080");
}

TEST(ServiceLine, HidesNothing) {
    const std::string marks =
        "\xD8\x9C|\xE2\x80\x8B|\xE2\x80\x8F|\xE2\x80\xA8|\xE2\x80\xA9|\xE2\x81\xA0|"
        "\xE2\x81\xAF|\xEF\xBB\xBF|\xC2\xAD";
    EXPECT_EQ(service_line(notification(0x63426A2B, marks)),
              "found \\xD8\\x9C|\\xE2\\x80\\x8B|\\xE2\\x80\\x8F|\\xE2\\x80\\xA8|\\xE2\\x80\\xA9|"
              "\\xE2\\x81\\xA0|\\xE2\\x81\\xAF|\\xEF\\xBB\\xBF|\\xC2\\xAD studio.local:8080");
}

TEST(DnssdRefusal, SaysWhatToDo) {
    EXPECT_NE(dnssd_refusal(-65548).find("--name"), std::string::npos);
    EXPECT_NE(dnssd_refusal(-65544).find("--local"), std::string::npos);
    EXPECT_NE(dnssd_refusal(-65537).find("is it running"), std::string::npos);
}

TEST(ServiceJson, HasTheSame) {
    zRecord record = notification(0x63426A2B, "Camera");
    auto* const items = new zRecord;
    items->SetCString("path", "/");
    record.AddChild(items, zRecord::k_at_end);
    EXPECT_EQ(json_text(service_json(record)),
              R"({"event":"found","name":"Camera","type":"_http._tcp.","host":"studio.local",)"
              R"("port":8080,"text":{"path":"/"}})");
}

std::string refusal_of(const strings& arguments) {
    const auto line = parse_command_line(arguments);
    return line.chosen == nullptr ? line.text : "";
}

TEST(DiscoverCommand, TakesItsArguments) {
    const auto line =
        parse_command_line({"discover", "http", "--seconds", "3", "--json", "--local"});
    const auto* const chosen = dynamic_cast<const discover_command*>(line.chosen.get());
    ASSERT_NE(chosen, nullptr) << line.text;
    EXPECT_EQ(chosen->options().type, "_http._tcp.");
    EXPECT_EQ(chosen->options().seconds, 3);
    EXPECT_TRUE(chosen->options().is_json);
    EXPECT_TRUE(chosen->options().is_local);
    EXPECT_FALSE(chosen->options().is_each);
    EXPECT_NE(refusal_of({"discover"}).find("type"), std::string::npos);
    EXPECT_NE(refusal_of({"discover", "a b"}).find("a b"), std::string::npos);
    EXPECT_NE(refusal_of({"discover", "http", "--seconds", "0"}).find("--seconds 0"),
              std::string::npos);
    EXPECT_NE(refusal_of({"discover", "http", "--seconds", "3601"}).find("3601"),
              std::string::npos);
}

TEST(AdvertiseCommand, TakesItsArguments) {
    const auto line = parse_command_line(
        {"advertise", "http", "8080", "path=/", "flag", "empty=", "sum=1=1", "--name", "Studio 2"});
    const auto* const chosen = dynamic_cast<const advertise_command*>(line.chosen.get());
    ASSERT_NE(chosen, nullptr) << line.text;
    EXPECT_EQ(chosen->options().type, "_http._tcp.");
    EXPECT_EQ(chosen->options().port, 8080);
    EXPECT_EQ(chosen->options().name, "Studio 2");
    EXPECT_EQ(chosen->options().text.View(),
              "\x06path=/\x04"
              "flag\x06"
              "empty=\x07sum=1=1");
}

TEST(AdvertiseCommand, RefusesWhatDoesNotFit) {
    EXPECT_NE(refusal_of({"advertise", "http"}).find("port"), std::string::npos);
    EXPECT_NE(refusal_of({"advertise", "http", "0"}).find("PORT 0"), std::string::npos);
    EXPECT_NE(refusal_of({"advertise", "http", "65536"}).find("65536"), std::string::npos);
    EXPECT_NE(refusal_of({"advertise", "http", "80", "=x"}).find("=x"), std::string::npos);
    EXPECT_NE(
        refusal_of({"advertise", "http", "80", "k=" + std::string(254, 'x')}).find("255 bytes"),
        std::string::npos);
    EXPECT_EQ(refusal_of({"advertise", "http", "80", "k=" + std::string(253, 'x')}), "");
    EXPECT_NE(refusal_of({"advertise", "http", "80", "--name", std::string(64, 'n')}).find("63"),
              std::string::npos);
    EXPECT_EQ(refusal_of({"advertise", "http", "80", "--name", std::string(63, 'n')}), "");
}

}  // namespace
}  // namespace pennywort::host
