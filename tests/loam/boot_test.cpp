// boot_test.cpp - zBoot: modules start after what they need, once, and stop in reverse.
#include "loam/boot.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "loam/message_loop.h"

namespace {

// What the routines of the modules below did; routines are plain functions.
std::string g_log;
bool g_needs_b = false;
bool g_b_needs_a = false;
bool g_throw = false;
std::optional<zBoot> g_late;

constexpr std::int32_t k_a = 0x61616161;
constexpr std::int32_t k_b = 0x62626262;
constexpr std::int32_t k_unregistered = 0x75757575;

void boot_unregistered() { g_log += "U"; }

void start_a() {
    if (g_throw) throw std::runtime_error("start");
    zBoot::Depends(zMire::k_tag, zMire::boot_Module);
    if (g_needs_b) zBoot::Depends(k_b, nullptr);
    g_log += "A";
}
void stop_a() { g_log += "a"; }
void start_b() {
    if (g_b_needs_a) zBoot::Depends(k_a, nullptr);
    g_log += "B";
}
void stop_b() { g_log += "b"; }
void start_needs_unregistered() {
    zBoot::Depends(k_unregistered, boot_unregistered);
    zBoot::Depends(k_unregistered, boot_unregistered);
    zBoot::Depends(k_unregistered + 1, nullptr);
    g_log += "N";
}
void start_reenters() {
    EXPECT_LT(zBoot::StopModules(), 0);
    g_log += "R";
}

class BootTest : public testing::Test {
protected:
    void SetUp() override {
        zBoot::StopModules();
        g_log.clear();
        g_needs_b = g_b_needs_a = g_throw = false;
    }
    void TearDown() override { zBoot::StopModules(); }
};

TEST_F(BootTest, NeedsComeFirstAndGoLast) {
    g_needs_b = true;
    const zBoot a(start_a, stop_a, k_a);
    const zBoot b(start_b, stop_b, k_b);
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_EQ(g_log, "BA");
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_EQ(g_log, "BA") << "started twice";
    EXPECT_EQ(zBoot::StopModules(), 0);
    EXPECT_EQ(g_log, "BAab");
    EXPECT_EQ(zBoot::StopModules(), 0);
    EXPECT_EQ(g_log, "BAab") << "stopped twice";
}

TEST_F(BootTest, ACircleOfNeedsIsStartedAllTheSame) {
    g_needs_b = g_b_needs_a = true;
    const zBoot a(start_a, stop_a, k_a);
    const zBoot b(start_b, stop_b, k_b);
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_EQ(g_log, "BA");
}

TEST_F(BootTest, AModuleThatThrowsStaysStoppedAndTheOthersStart) {
    g_throw = true;
    const zBoot a(start_a, stop_a, k_a);
    const zBoot b(start_b, stop_b, k_b);
    EXPECT_LT(zBoot::StartModules(), 0);
    EXPECT_EQ(g_log, "B");
    zBoot::StopModules();
    EXPECT_EQ(g_log, "Bb");
}

TEST_F(BootTest, WhatNobodyRegisteredIsBroughtUpOnce) {
    const zBoot needs(start_needs_unregistered, nullptr, k_a);
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_EQ(g_log, "UN");
}

TEST_F(BootTest, StoppingFromWithinAStartIsRefused) {
    const zBoot module(start_reenters, nullptr, k_a);
    EXPECT_EQ(zBoot::StartModules(), 0);
    EXPECT_EQ(g_log, "R");
}

TEST_F(BootTest, AModuleThatIsUnloadedIsForgotten) {
    {
        const zBoot a(start_a, stop_a, k_a);
        zBoot::StartModules();
    }
    EXPECT_EQ(zBoot::StopModules(), 0);
    EXPECT_EQ(g_log, "A");
}

TEST_F(BootTest, AModuleLoadedLaterStartsWithTheNextCall) {
    zBoot::StartModules();
    g_late.emplace(start_b, stop_b, k_b);
    EXPECT_EQ(g_log, "");
    zBoot::StartModules();
    zBoot::StopModules();
    EXPECT_EQ(g_log, "Bb");
    g_late.reset();
}

TEST_F(BootTest, StartsAndStopsAHundredTimes) {
    g_needs_b = true;
    const zBoot a(start_a, stop_a, k_a);
    const zBoot b(start_b, stop_b, k_b);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(zBoot::StartModules(), 0);
        zMessageLoop::RunOnce(0);
        ASSERT_EQ(zBoot::StopModules(), 0);
    }
    EXPECT_EQ(g_log.size(), 400u);
}

}  // namespace
