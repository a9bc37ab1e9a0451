// tests/host/render_world_test.cpp - the program on the real browser runtime: the user whom its
// options make for a page.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

struct world_case {
    const char* name;
    const char* options;
    const char* truth;
};
void PrintTo(const world_case& c, std::ostream* out) { *out << c.name; }

constexpr world_case k_worlds[] = {
    {"ADarkOne", "--media prefers-color-scheme=dark",
     "matchMedia('(prefers-color-scheme: dark)').matches"},
    {"ALightOne", "--media prefers-color-scheme=light",
     "matchMedia('(prefers-color-scheme: light)').matches"},
    {"APrinter", "--media print --media prefers-reduced-motion=reduce",
     "matchMedia('print').matches && matchMedia('(prefers-reduced-motion: reduce)').matches"},
    {"ALanguage", "--locale de-DE",
     "(1234.5).toLocaleString() === '1.234,5' && navigator.language === 'de-DE'"},
    {"AZone", "--timezone Asia/Tokyo",
     "new Date(0).getHours() === 9 && "
     "Intl.DateTimeFormat().resolvedOptions().timeZone === 'Asia/Tokyo'"},
    {"ABrowser", "--user-agent 'Me/1.0 (test)'", "navigator.userAgent === 'Me/1.0 (test)'"},
    {"ASwitch", "--switch user-agent=Switched/1", "navigator.userAgent === 'Switched/1'"},
};

class RenderUser : public RenderFixture {};

class RenderWorld : public RenderFixture, public testing::WithParamInterface<world_case> {};

TEST_P(RenderWorld, IsThePagesFromItsFirstScriptOn) {
    folder.write("world.html", truth_page(GetParam().truth));
    const std::string film = std::string("pennywort render world.html --size 16x16 ");
    expect_fine(film + "-o without.png");
    EXPECT_EQ(pixel("without.png", 8, 8),
              GetParam().name == std::string("ALightOne") ? k_white : k_black)
        << "it would be true of this machine too";
    for (const char* way : {"", "--live --frames 3 "}) {
        expect_fine(film + way + GetParam().options + " -o a.png");
        EXPECT_EQ(pixel("a.png", 8, 8), k_white) << way;
    }
}

INSTANTIATE_TEST_SUITE_P(All, RenderWorld, testing::ValuesIn(k_worlds),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(RenderUser, WhoseZoneIsNotKnownIsNotShown) {
    folder.write("page.html", "<!doctype html><p>text");
    const auto run = folder.run("pennywort render page.html --timezone Mars/Phobos -o a.png");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("--timezone Mars/Phobos: not known to the browser"),
              std::string::npos)
        << run.errors;
    EXPECT_FALSE(folder.has("a.png"));
}

}  // namespace
}  // namespace pennywort::host
