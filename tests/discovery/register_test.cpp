// register_test.cpp - cBonjour: services are advertised and withdrawn.
#include <string>

#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

std::string registered_txt() {
    int length = 0;
    const void* const bytes = fake_dnssd::registered_txt(&length);
    return length == 0
               ? ""
               : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

class Register : public FakeNetwork {};

TEST_F(Register, TellsTheSystemWhatWasAsked) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register(k_http, 8080,
                                       "\x03"
                                       "a=1"),
              0);
    EXPECT_STREQ(fake_dnssd::calls(),
                 "Register flags=0 interface=0 name=(null) type=_http._tcp. domain=(null) "
                 "host=(null) port=8080 txt=4\n");
    EXPECT_EQ(registered_txt(),
              "\x03"
              "a=1");
}

TEST_F(Register, TakesOneItemAndNoMore) {
    cBonjour bonjour;
    bonjour.Service_Register(k_http, 1,
                             "\x01"
                             "ab");
    EXPECT_EQ(registered_txt(),
              "\x01"
              "a");
}

TEST_F(Register, TakesAnItemOf255Bytes) {
    cBonjour bonjour;
    const std::string item = "\xFF" + std::string(255, 'x');
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, item.c_str()), 0);
    EXPECT_EQ(registered_txt(), item);
}

TEST_F(Register, TakesNoTextAsNone) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    EXPECT_EQ(registered_txt(), "");
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, "\0abc"), 0);
    EXPECT_EQ(registered_txt(), "");
    EXPECT_NE(std::string(fake_dnssd::calls()).find("txt=0\n"), std::string::npos);
}

TEST_F(Register, LeavesTheTypeToTheSystem) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register("anything", 1, nullptr), 0);
    EXPECT_EQ(bonjour.Service_Register(nullptr, 1, nullptr), 0);
}

TEST_F(Register, FailsWithTheSystem) {
    cBonjour bonjour;
    fake_dnssd::fail("Register", -65540, 1);
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(bonjour.Service_Unregister(nullptr, 0), -1) << "it was kept";
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
}

TEST_F(Register, FailsWhereNothingCanArrive) {
    cBonjour bonjour;
    fake_dnssd::break_next_socket();
    const collected_traces traces;
    EXPECT_EQ(bonjour.Service_Register(k_http, 1, nullptr), -1);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Register, WithdrawsEveryMatch) {
    cBonjour bonjour;
    bonjour.Service_Register(k_http, 1, nullptr);
    bonjour.Service_Register(k_http, 1, nullptr);
    bonjour.Service_Register("_http._tcp.local", 1, nullptr);
    bonjour.Service_Register(k_http, 2, nullptr);
    bonjour.Service_Register("_ftp._tcp.", 1, nullptr);
    EXPECT_EQ(bonjour.Service_Unregister(k_http, 1), 0);
    EXPECT_EQ(fake_dnssd::live_references(), 2);
    EXPECT_EQ(bonjour.Service_Unregister(k_http, 1), -1);
    EXPECT_EQ(bonjour.Service_Unregister("_http._tcp.local", 0), -1) << "a longer type is another";
    EXPECT_EQ(bonjour.Service_Unregister(nullptr, 2), 0);
    EXPECT_EQ(bonjour.Service_Unregister(nullptr, 0), 0);
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Register, TheObjectsEndWithdrawsAll) {
    {
        cBonjour bonjour;
        bonjour.Service_Register(k_http, 1, nullptr);
        bonjour.StartObserving(1, k_http, 0);
    }
    EXPECT_EQ(fake_dnssd::live_references(), 0);
}

TEST_F(Register, OneMayHaveItsOwnNameAndAWholeRecord) {
    cBonjour bonjour;
    zString record;
    ASSERT_TRUE(cBonjour::TXTAddItem(record, "path", "/", 1));
    ASSERT_TRUE(cBonjour::TXTAddItem(record, "flag", nullptr, 0));
    ASSERT_TRUE(cBonjour::TXTAddItem(record, "bytes", "\0\xFF=", 3));
    EXPECT_EQ(bonjour.Service_Advertise("Camera 1", k_http, 80, record.CString(), record.Length()),
              0);
    EXPECT_STREQ(fake_dnssd::calls(),
                 "Register flags=0 interface=0 name=Camera 1 type=_http._tcp. domain=(null) "
                 "host=(null) port=80 txt=22\n");
    EXPECT_EQ(registered_txt(), std::string("\x06path=/\x04"
                                            "flag\x09"
                                            "bytes=\0\xFF=",
                                            22));
    EXPECT_EQ(bonjour.Service_Unregister(k_http, 80), 0);
}

TEST_F(Register, AWholeRecordHasToBeOne) {
    cBonjour bonjour;
    std::string record;
    while (record.size() + 256 <= 65535) record += "\xFF" + std::string(255, 'x');
    record += static_cast<char>(65535 - record.size() - 1);
    record.append(65535 - record.size(), 'y');
    EXPECT_EQ(bonjour.Service_Advertise("", k_http, 1, record.data(), 65535), 0);
    EXPECT_EQ(registered_txt().size(), 65535u);
    record += '\0';
    EXPECT_EQ(bonjour.Service_Advertise("", k_http, 1, record.data(), 65536), -1) << "64 KiB";
    EXPECT_EQ(bonjour.Service_Advertise("", k_http, 1,
                                        "\x05"
                                        "abcd",
                                        5),
              -1)
        << "cut";
    EXPECT_EQ(bonjour.Service_Advertise("", k_http, 1, nullptr, 5), 0) << "none";
}

TEST(TXTRecord, TakesNoItemThatIsNone) {
    zString record;
    const std::string longest(253, 'x');
    EXPECT_FALSE(cBonjour::TXTAddItem(record, nullptr, "", 0));
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "", "x", 1));
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "a=b", "x", 1));
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "a\x7F", "x", 1));
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "\xC3\xA4", "x", 1));
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "ab", longest.data(), 253)) << "256 bytes";
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "a", longest.data(), ~0ul));
    EXPECT_EQ(record.Length(), 0u);
    EXPECT_TRUE(cBonjour::TXTAddItem(record, "a", longest.data(), 253));
    EXPECT_EQ(record.Length(), 256u);
}

TEST(TXTRecord, EndsAt65535Bytes) {
    zString record;
    const std::string value(253, 'x');
    while (cBonjour::TXTAddItem(record, "a", value.data(), 253)) {
    }
    EXPECT_EQ(record.Length(), 65280u);
    EXPECT_TRUE(cBonjour::TXTAddItem(record, "a", value.data(), 252));
    EXPECT_EQ(record.Length(), 65535u);
    EXPECT_FALSE(cBonjour::TXTAddItem(record, "a", nullptr, 0));
}

TEST(TCPServiceType, FormatsTheName) {
    zString type("before");
    EXPECT_STREQ(cBonjour::TCPServiceType(type, "http"), "_http._tcp.");
    EXPECT_EQ(type, zString("_http._tcp."));
    EXPECT_STREQ(cBonjour::TCPServiceType(type, nullptr), "_._tcp.");
}

TEST_F(Register, AnAdvertisedServiceHasATypeAndAPort) {
    cBonjour bonjour;
    for (const long port : {-1L, 0L, 65536L, 70000L}) {
        EXPECT_EQ(bonjour.Service_Advertise("Studio", k_http, port, nullptr, 0), -1) << port;
    }
    EXPECT_EQ(bonjour.Service_Advertise("Studio", nullptr, 80, nullptr, 0), -1);
    EXPECT_STREQ(fake_dnssd::calls(), "");
    for (const long port : {1L, 65535L}) {
        EXPECT_EQ(bonjour.Service_Advertise("Studio", k_http, port, nullptr, 0), 0) << port;
    }
}

}  // namespace
}  // namespace pennywort::tests
