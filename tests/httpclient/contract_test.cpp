// contract_test.cpp - what every session keeps, whatever it talks to: URLs, names of headers, the
// order of virtual operations.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "httpclient.h"
#include "logger.h"
#include "tests/support/field_order.h"
#include "tests/support/slot_of.h"
#include "tests/xmlrpc/fake_session.h"

namespace pennywort::tests {

struct of_session {};
std::vector<std::ptrdiff_t> places(of_session);
template struct fields<of_session, &cHttpSession::m_logger,
                       &cHttpSession::m_use_basic_authentication, &cHttpSession::m_user_name,
                       &cHttpSession::m_password, &cHttpSession::m_settings>;

}  // namespace pennywort::tests

namespace {

using pennywort::tests::slot_of;

struct url_case {
    const char* name;
    std::string url;
    long want;
};
void PrintTo(const url_case& c, std::ostream* out) { *out << c.name; }

const url_case k_urls[] = {
    {"Plain", "http://host/", 0},
    {"Secure", "https://host/", 0},
    {"UpperCase", "HTTPS://host/", 0},
    {"EightCharacters", "http://a", 0},
    {"SevenCharacters", "http://", -21503},
    {"Empty", "", -21503},
    {"NoColon", "abcdefgh/", -21502},
    {"NoSlash", "http:abcdef", -21502},
    {"HostAndPortOnly", "localhost:8080", -21502},
    {"Ftp", "ftp://host/", -21501},
    {"BlankInScheme", "ht tp://host/", -21501},
    {"LongerScheme", "httpss://host/", -21501},
    {"EmptyScheme", "://host/abc", -21501},
    {"NothingElseIsLookedAt", "http:/\x01\xff:99999", 0},
    {"AHundredThousandCharacters", "http://" + std::string(100000, 'a') + "/", 0},
};

class Urls : public testing::TestWithParam<url_case> {};

TEST_P(Urls, HaveTheirResult) {
    EXPECT_EQ(cHttpSession::ValidateURL(GetParam().url), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(All, Urls, testing::ValuesIn(k_urls),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(HeaderNames, AreCheckedWithoutTheWhiteSpaceAround) {
    EXPECT_TRUE(cHttpSession::HeaderNameIsValid("Content-Type"));
    EXPECT_TRUE(cHttpSession::HeaderNameIsValid(" \t\v\f\r\nX \r\n"));
    EXPECT_TRUE(cHttpSession::HeaderNameIsValid("\x01\xff"));
    EXPECT_TRUE(cHttpSession::HeaderNameIsValid("a\tb"));
    EXPECT_TRUE(cHttpSession::HeaderNameIsValid(std::string(8096, 'a')));
    EXPECT_TRUE(cHttpSession::HeaderNameIsValid(" " + std::string(8096, 'a') + " "));
    EXPECT_FALSE(cHttpSession::HeaderNameIsValid(std::string(8097, 'a')));
    EXPECT_FALSE(cHttpSession::HeaderNameIsValid(""));
    EXPECT_FALSE(cHttpSession::HeaderNameIsValid("  \t"));
    for (const char* name : {"a b", "a:b", "a\nb", "a\rb"}) {
        EXPECT_FALSE(cHttpSession::HeaderNameIsValid(name)) << name;
    }
}

TEST(ContentTypeHeader, IsSetAndTheRecordReturned) {
    zRecord headers;
    EXPECT_EQ(&cHttpSession::SetContentTypeHeader(headers, "text/xml"), &headers);
    EXPECT_EQ(headers.AsString("Content-Type", ""), "text/xml");
    cHttpSession::SetContentTypeHeader(headers, nullptr);
    EXPECT_EQ(headers.AsString("Content-Type", "none"), "");
}

TEST(Session, IsSharedByItself) {
    const std::shared_ptr<cHttpSession> session = cHttpSession::Factory();
    EXPECT_EQ(session->shared_from_this(), session);
    EXPECT_EQ(session->weak_from_this().use_count(), 1);
}

TEST(Session, HoldsOneReferenceOfItsLogger) {
    const std::string path = testing::TempDir() + "session-logger.txt";
    auto* const logger = new cLogger(path.c_str(), 100);
    auto session = cHttpSession::Factory();
    session->SetLogger(logger);
    session->SetLogger(logger);
    EXPECT_EQ(logger->AddRef(), 3);
    EXPECT_EQ(logger->Release(), 2);
    session->SetLogger(nullptr);
    EXPECT_EQ(logger->AddRef(), 2);
    EXPECT_EQ(logger->Release(), 1);
    session->SetLogger(logger);
    session.reset();
    logger->RemoveFile();
    EXPECT_EQ(logger->Release(), 0);
}

// Its fields in order: a logger, whether to log on, and as whom; behind them the settings.
TEST(Session, IsAsLargeAsItsFields) {
    struct fields {
        void* operations;
        std::weak_ptr<int> self;
        cLogger* logger;
        std::int32_t use_basic_authentication;
        zString user_name;
        zString password;
        std::shared_ptr<int> settings;
    };
    EXPECT_EQ(sizeof(cHttpSession), sizeof(fields));
    const auto has = places(pennywort::tests::of_session());
    const std::vector<std::size_t> sizes = {sizeof(cLogger*), 8 /* with its gap */, sizeof(zString),
                                            sizeof(zString)};
    std::size_t place = sizeof(void*) + sizeof(std::weak_ptr<int>);
    for (std::size_t i = 0; i < has.size(); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(has[i]), place) << i;
        if (i < sizes.size()) place += sizes[i];
    }
    EXPECT_EQ(has.size(), sizes.size() + 1);
}

// Each copy holds a reference of its own, and gives it back.
TEST(Session, ACopyHoldsTheLoggerToo) {
    const std::string path = testing::TempDir() + "copied-logger.txt";
    auto* const logger = new cLogger(path.c_str(), 100);
    const auto references = [&] {
        logger->AddRef();
        return logger->Release();
    };
    {
        pennywort::tests::fake_session first;
        first.SetLogger(logger);
        EXPECT_EQ(references(), 2);
        pennywort::tests::fake_session copy(first);
        EXPECT_EQ(references(), 3);
        pennywort::tests::fake_session assigned;
        assigned = first;
        EXPECT_EQ(references(), 4);
        assigned = copy;
        EXPECT_EQ(references(), 4);
        auto& same = assigned;
        assigned = same;
        EXPECT_EQ(references(), 4);
        assigned = pennywort::tests::fake_session();
        EXPECT_EQ(references(), 3);
    }
    EXPECT_EQ(references(), 1);
    logger->RemoveFile();
    EXPECT_EQ(logger->Release(), 0);
}

TEST(Session, OfAnotherMakerHasNoErrorOfItsOwn) {
    EXPECT_EQ(pennywort::tests::fake_session().Request_Error(), cHttpSession::k_error_none);
}

TEST(Session, KeepsItsConfiguration) {
    const auto session = cHttpSession::Factory();
    EXPECT_FALSE(session->IsConfigured());
    session->Configure(cHttpSession::k_get, "whatever", 1.0);
    EXPECT_TRUE(session->IsConfigured());
    EXPECT_STREQ(session->GetURL().CString(), "whatever");
    session->Configure(0, nullptr, 1.0);
    EXPECT_FALSE(session->IsConfigured());
    EXPECT_STREQ(session->GetURL().CString(), "");
}

static_assert(cHttpSession::k_get == 0x6765742E && cHttpSession::k_post == 0x706F7374 &&
              cHttpSession::k_put == 0x7075742E && cHttpSession::k_patch == 0x70616368 &&
              cHttpSession::k_delete == 0x64656C74);

// Hosts that were built with an earlier library call them by their place.
TEST(Session, HasItsOperationsInTheirOrder) {
    // The destructor comes first and takes two.
    std::size_t slot = 2;
    EXPECT_EQ(slot_of(&cHttpSession::SetLogger), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Configure), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::IsConfigured), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::SetBasicHTTPAuthentication), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::SetAuthentication), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_BeginWithCallback), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_Begin), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_Status), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_IsComplete), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_BlockForResponse), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_BlockForResponseWithin), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Response_StatusCode), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Response_Headers), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Response_ContentType), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Response_ContentLength), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Response_ContentLength64), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_Stop), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_ContentBytesRead), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_ContentBytesRead64), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Request_End), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::LogElaspsedTime), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Reserved22), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::Reserved23), slot++);
    EXPECT_EQ(slot_of(&cHttpSession::GetURL), slot++);
}

}  // namespace
