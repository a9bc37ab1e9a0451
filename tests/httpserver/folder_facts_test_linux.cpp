// folder_facts_test_linux.cpp - what a strict server says of files when the system is short of
// descriptors, and of times that only some file systems know.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/http/http_date.h"
#include "loam/id_generator.h"
#include "tests/httpserver/descriptors.h"
#include "tests/httpserver/serving_test.h"

namespace {

namespace fs = std::filesystem;

cHttpServerSettings strict() {
    cHttpServerSettings wanted;
    wanted.isStrict = true;
    return wanted;
}

std::int64_t now_in_seconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

std::string value_of(const std::string& answer, const std::string& name) {
    const std::size_t at = answer.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    const std::size_t begin = at + name.size() + 4;
    return answer.substr(begin, answer.find("\r\n", begin) - begin);
}

std::string new_name() {
    zString name;
    zIDGenerator::GenerateUUID(name);
    return name.CString();
}

class FolderFactsTest : public ServingTest {
protected:
    FolderFactsTest() : ServingTest("/after", strict()) {
        fs::create_directories(m_root);
        std::ofstream(m_root / "a.txt", std::ios::binary) << "text";
        install(*m_files);
    }
    ~FolderFactsTest() override {
        std::error_code ignored;
        fs::remove_all(m_root, ignored);
    }

    static std::string ask(test_client& client, const std::string& headers = "") {
        client.send("GET /a.txt HTTP/1.1\r\nHost: h\r\n" + headers + "\r\n");
        return client.receive_answer();
    }

    const fs::path m_root = fs::temp_directory_path() / new_name();
    const held<cHttpFolderHandler> m_files =
        make<cHttpFolderHandler>(zString(m_root.string()), zString("/"));
};

// A 404 would be kept by caches and have clients forget the file.
TEST_F(FolderFactsTest, AFileForWhichThereIsNoDescriptorIsNotSaidToBeMissing) {
    test_client client(port());
    EXPECT_EQ(body_of(ask(client)), "text");
    {
        const no_more_descriptors bound;
        ASSERT_TRUE(bound.is_available());
        EXPECT_EQ(ask(client).substr(0, 12), "HTTP/1.1 503");
    }
    EXPECT_EQ(body_of(ask(client)), "text");
}

// 2262 is where a number of nanoseconds ends, and nothing was written to in the future.
TEST_F(FolderFactsTest, ATimeInAFarFutureIsToldAsNow) {
    constexpr std::int64_t k_year_2300 = 10'413'792'000;
    const timespec times[2] = {{k_year_2300, 0}, {k_year_2300, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (m_root / "a.txt").c_str(), times, 0), 0);
    test_client client(port());
    const std::int64_t before = now_in_seconds();
    const std::string told = value_of(ask(client), "Last-Modified");
    const auto modified = pennywort::http::date_from(told, before);
    ASSERT_TRUE(modified.has_value()) << told;
    EXPECT_GE(*modified, before);
    EXPECT_LE(*modified, now_in_seconds());
}

TEST_F(FolderFactsTest, TagsCountOnEachLineOfTheirList) {
    test_client client(port());
    const std::string tag = value_of(ask(client), "ETag");
    const std::string none_match = "If-None-Match: \"x\"\r\nif-none-match: " + tag + "\r\n";
    EXPECT_EQ(ask(client, none_match).substr(0, 12), "HTTP/1.1 304");
    const std::string match = "If-Match: \"x\"\r\nIf-Match: " + tag + "\r\n";
    EXPECT_EQ(ask(client, match).substr(0, 12), "HTTP/1.1 200");
}

}  // namespace
