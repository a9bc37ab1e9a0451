// logger_test.cpp - the bytes of a transcript.
#include "logger.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <string>

namespace {

class LoggerTest : public testing::Test {
protected:
    ~LoggerTest() override { std::filesystem::remove(m_path); }

    std::string file() const {
        std::ifstream in(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // What a logger wrote that did this and was released.
    std::string after(std::int32_t maximum, const std::function<void(cLogger&)>& work) {
        auto* const logger = new cLogger(m_path.c_str(), maximum);
        work(*logger);
        EXPECT_EQ(logger->Release(), 0);
        return file();
    }

    const std::string m_path = testing::TempDir() + "transcript.txt";
    const std::string m_dashes = std::string(96, '-');
    const std::string m_end = "\n" + m_dashes;
    const std::string m_cut = "\n\n... message truncated ....\n";
};

std::string line(const std::string& label) {
    const std::string half((96 - label.size()) / 2, '-');
    return "\n" + half + label + half + "\n";
}

TEST_F(LoggerTest, OneThatWritesNothingHasItsEndOnly) {
    EXPECT_EQ(after(100, [](cLogger&) {}), m_end);
}

TEST_F(LoggerTest, AnEntryIsASeparatorAndItsBytes) {
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Sent("a\0b\xff", 4); }),
              "\n" + std::string(45, '-') + " SENT " + std::string(45, '-') + "\n" +
                  std::string("a\0b\xff", 4) + m_end);
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Received("xyz", 3); }),
              "\n" + std::string(43, '-') + " RECEIVED " + std::string(43, '-') + "\nxyz" + m_end);
}

TEST_F(LoggerTest, AnEntryOfNothingIsASeparator) {
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Sent("abc", 0); }), line(" SENT ") + m_end);
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Sent(nullptr, 0); }), line(" SENT ") + m_end);
}

TEST_F(LoggerTest, NullBytesHaveNoBodyAndAreCutOnlyPastTheMaximum) {
    EXPECT_EQ(after(10, [](cLogger& logger) { logger.Sent(nullptr, 10); }), line(" SENT ") + m_end);
    EXPECT_EQ(after(9, [](cLogger& logger) { logger.Sent(nullptr, 10); }),
              line(" SENT ") + m_cut + m_end);
}

TEST_F(LoggerTest, ABodyIsCutAtTheMaximum) {
    EXPECT_EQ(m_cut.size(), 29U);
    EXPECT_EQ(after(3, [](cLogger& logger) { logger.Received("abc", 3); }),
              line(" RECEIVED ") + "abc" + m_end);
    EXPECT_EQ(after(3, [](cLogger& logger) { logger.Received("abcd", 4); }),
              line(" RECEIVED ") + "abc" + m_cut + m_end);
    EXPECT_EQ(after(0, [](cLogger& logger) { logger.Received("abcd", 4); }),
              line(" RECEIVED ") + m_cut + m_end);
}

TEST_F(LoggerTest, NegativeNumbersWriteNoBytes) {
    EXPECT_EQ(after(-1, [](cLogger& logger) { logger.Sent("abc", 3); }),
              line(" SENT ") + m_cut + m_end);
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Sent("abc", -5); }), line(" SENT ") + m_end);
    EXPECT_EQ(after(std::numeric_limits<std::int32_t>::min(),
                    [](cLogger& logger) { logger.Message("m", nullptr); }),
              "\n" + std::string(47, '-') + "m" + std::string(47, '-') + "\n" + m_cut + m_end);
}

TEST_F(LoggerTest, AMessageHasItsLabelAndText) {
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Message(" NOTE ", "text"); }),
              line(" NOTE ") + "text" + m_end);
    EXPECT_EQ(after(2, [](cLogger& logger) { logger.Message(" NOTE ", "text"); }),
              line(" NOTE ") + "te" + m_cut + m_end);
    EXPECT_EQ(after(0, [](cLogger& logger) { logger.Message(" NOTE ", nullptr); }),
              line(" NOTE ") + m_end);
    EXPECT_EQ(after(-1, [](cLogger& logger) { logger.Message(" NOTE ", nullptr); }),
              line(" NOTE ") + m_cut + m_end);
}

TEST_F(LoggerTest, AnErrorHasItsCodeInItsLabel) {
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Error(-14, "late"); }),
              line(" ERROR -14 ") + "late" + m_end);
    const std::string odd = " ERROR -2147483648 ";
    const std::string half(38, '-');
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Error(INT32_MIN, nullptr); }),
              "\n" + half + odd + half + "\n" + m_end);
}

TEST_F(LoggerTest, ALabelOfOddLengthMakesALineOf95) {
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Separator("abc"); }),
              "\n" + std::string(46, '-') + "abc" + std::string(46, '-') + "\n" + m_end);
}

TEST_F(LoggerTest, NoLabelIsALineOfDashes) {
    EXPECT_EQ(after(100, [](cLogger& logger) { logger.Separator(nullptr); }),
              "\n" + m_dashes + "\n" + m_end);
}

TEST_F(LoggerTest, ALabelAsLongAsTheLineAndLongerStandsAlone) {
    for (const std::size_t length : {96U, 97U, 98U, 500U}) {
        SCOPED_TRACE(length);
        const std::string label(length, 'x');
        EXPECT_EQ(after(100, [&](cLogger& logger) { logger.Separator(label.c_str()); }),
                  "\n" + label + "\n" + m_end);
    }
}

TEST_F(LoggerTest, AClosedOneWritesNothingAndBeginsAnew) {
    EXPECT_EQ(after(100,
                    [this](cLogger& logger) {
                        logger.Sent("before", 6);
                        logger.Close();
                        EXPECT_EQ(file(), line(" SENT ") + "before" + m_end);
                        logger.Close();
                        logger.Sent("between", 7);
                        logger.Separator("x");
                        logger.Message("x", "y");
                        logger.Error(1, "z");
                        EXPECT_EQ(file(), line(" SENT ") + "before" + m_end);
                        logger.Start();
                        logger.Sent("after", 5);
                    }),
              line(" SENT ") + "after" + m_end);
}

TEST_F(LoggerTest, StartEndsWhatWasOpenAndEmptiesTheFile) {
    EXPECT_EQ(after(100,
                    [](cLogger& logger) {
                        logger.Sent("before", 6);
                        logger.Start();
                    }),
              m_end);
}

TEST_F(LoggerTest, TheFileCanBeRemoved) {
    auto* const logger = new cLogger(m_path.c_str(), 100);
    EXPECT_STREQ(logger->FilePath(), m_path.c_str());
    logger->Close();
    logger->RemoveFile();
    EXPECT_FALSE(std::filesystem::exists(m_path));
    EXPECT_EQ(logger->Release(), 0);
}

// Only one of the two may close it: the other one forgets it by way of a third.
TEST_F(LoggerTest, ACopySharesTheOpenFile) {
    auto* const logger = new cLogger(m_path.c_str(), 3);
    EXPECT_EQ(logger->AddRef(), 2);
    auto* const copy = new cLogger(*logger);
    EXPECT_STREQ(copy->FilePath(), m_path.c_str());
    copy->Sent("abcd", 4);
    EXPECT_EQ(file(), line(" SENT ") + "abc" + m_cut);
    // Its count is copied too.
    EXPECT_EQ(copy->Release(), 1);
    auto* const closed = new cLogger(nullptr, 100);
    closed->Close();
    *copy = *closed;
    EXPECT_STREQ(copy->FilePath(), "");
    EXPECT_EQ(closed->Release(), 0);
    EXPECT_EQ(copy->Release(), 0);
    EXPECT_EQ(file(), line(" SENT ") + "abc" + m_cut);
    EXPECT_EQ(logger->Release(), 1);
    EXPECT_EQ(logger->Release(), 0);
    EXPECT_EQ(file(), line(" SENT ") + "abc" + m_cut + m_end);
}

// What the system makes of an open file that is removed is its own: Windows keeps it.
TEST_F(LoggerTest, RemovingAnOpenOneHarmsNothing) {
    auto* const logger = new cLogger(m_path.c_str(), 100);
    logger->RemoveFile();
    logger->Sent("x", 1);
    EXPECT_FALSE(logger->HasFailed());
    EXPECT_EQ(logger->Release(), 0);
}

TEST_F(LoggerTest, SaysWhetherItCouldBeWritten) {
    auto* const logger = new cLogger("/nowhere/at/all/file.txt", 100);
    EXPECT_TRUE(logger->HasFailed());
    logger->Close();
    EXPECT_FALSE(logger->HasFailed());
    EXPECT_EQ(logger->Release(), 0);
    EXPECT_EQ(after(100,
                    [](cLogger& good) {
                        good.Sent("x", 1);
                        EXPECT_FALSE(good.HasFailed());
                    }),
              line(" SENT ") + "x" + m_end);
}

TEST_F(LoggerTest, APathThatCannotBeWrittenHarmsNothing) {
    for (const char* path : {"", "/nowhere/at/all/file.txt"}) {
        auto* const logger = new cLogger(path, 100);
        logger->Sent("x", 1);
        logger->Message("x", "y");
        logger->RemoveFile();
        EXPECT_EQ(logger->Release(), 0);
    }
    auto* const logger = new cLogger(nullptr, 100);
    EXPECT_STREQ(logger->FilePath(), "");
    EXPECT_EQ(logger->Release(), 0);
}

// Hosts that copy it rely on its size.
TEST_F(LoggerTest, HasItsFieldsInTheirOrder) {
    auto* const logger = new cLogger(m_path.c_str(), 77);
    std::int32_t numbers[2] = {};
    constexpr std::size_t k_at = sizeof(void*) + sizeof(zString);
    static_assert(sizeof(cLogger) == k_at + sizeof numbers);
    std::memcpy(numbers, reinterpret_cast<const char*>(logger) + k_at, sizeof numbers);
    EXPECT_EQ(numbers[0], 1);
    EXPECT_EQ(numbers[1], 77);
    EXPECT_EQ(logger->Release(), 0);
}

TEST_F(LoggerTest, ItsReferencesAreCounted) {
    auto* const logger = new cLogger(m_path.c_str(), 100);
    EXPECT_EQ(logger->AddRef(), 2);
    EXPECT_EQ(logger->AddRef(), 3);
    EXPECT_EQ(logger->Release(), 2);
    EXPECT_EQ(logger->Release(), 1);
    EXPECT_EQ(file(), "");
    EXPECT_EQ(logger->Release(), 0);
    EXPECT_EQ(file(), m_end);
}

}  // namespace
