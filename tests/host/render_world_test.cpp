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

// Nobody clicks in a film; the user's script counts as a click.
TEST_F(RenderUser, WhoseScriptOpensAListOrAPickerHasItInThePicture) {
    const colour background{255, 0, 0, 255};
    for (const std::string element : {"<select><option>one<option>two<option>three</select>",
                                      "<input type=date>", "<input type=color>"}) {
        folder.write("page.html",
                     "<!doctype html><body style='margin:0;background:#00f'>" + element);
        folder.write("open.js", "document.body.firstChild.showPicker()");
        const std::string film = "pennywort render page.html --size 320x320 --frames 2 ";
        expect_fine(film + "-o without-%d.png");
        expect_fine(film + "--script open.js -o with-%d.png");
        EXPECT_EQ(pixel("without-1.png", 10, 32), background) << element;
        EXPECT_NE(pixel("with-1.png", 10, 32), background) << element;
        EXPECT_NE(pixel("with-2.png", 10, 32), background) << element;
    }
}

TEST_F(RenderUser, WhoseZoneIsNotKnownIsNotShown) {
    folder.write("page.html", "<!doctype html><p>text");
    const auto run = folder.run("pennywort render page.html --timezone Mars/Phobos -o a.png");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("--timezone Mars/Phobos: not known to the browser"),
              std::string::npos)
        << run.errors;
    EXPECT_FALSE(folder.has("a.png"));
}

// What a page writes for a user: by the browser's own words, by those of Intl, in form fields, in
// the signs that languages draw in different ways.
constexpr const char* k_words =
    "<!doctype html><style>body{margin:0;font-size:12px}</style><input type=date value=2026-11-22>"
    "<input type=file><input type=submit><input type=number value=1.5><q>quoted</q> "
    "&#x76F4;&#x9AA8; <details><summary>x</summary></details><p id=out></p><p id=worked></p>"
    "<script>"
    "const say = () => [navigator.language, navigator.languages, (1234.5).toLocaleString(),"
    "new Date().toLocaleString(), new Intl.DateTimeFormat().resolvedOptions().timeZone,"
    "new Date().getTimezoneOffset(), new Intl.NumberFormat().resolvedOptions().locale,"
    "['z', '&auml;'].sort(new Intl.Collator().compare)].join(' ');"
    "out.textContent = say(); const field = document.createElement('input');"
    "field.required = true; out.append(field.validationMessage);"
    "new Worker(URL.createObjectURL(new Blob(['postMessage((' + say + ')())'])))"
    ".onmessage = event => worked.textContent = event.data</script>";

TEST_F(RenderUser, IsTheSameOnAMachineOfAnotherLanguageWhereItsUserIsNamed) {
    folder.write("words.html", k_words);
    const auto run = folder.run(
        "film='pennywort render words.html --size 400x300 --date 2026-11-22T23:00Z "
        "--locale en-GB --timezone Europe/Oslo --wait-for worked.textContent'\n"
        "LANG=C.UTF-8 LC_ALL=C.UTF-8 TZ=UTC $film -o a.png\n"
        "LANG=de_DE.UTF-8 LC_ALL=de_DE.UTF-8 LANGUAGE=de:fr TZ=Asia/Tokyo $film -o b.png\n"
        "LANG=ja_JP.UTF-8 LC_ALL=ja_JP.UTF-8 TZ=America/New_York $film -o c.png\n"
        "cmp a.png b.png && cmp a.png c.png");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
}

TEST_F(RenderUser, HearsTheBrowsersOwnWordsInItsLanguage) {
    folder.write("field.html", "<!doctype html><input type=file>");
    const auto run = folder.run(
        "film='pennywort render field.html --size 300x40 --frames 3'\n"
        "export LC_ALL=C.UTF-8 LANG= LANGUAGE=\n"
        "LC_ALL=de_DE.UTF-8 $film -o machine.bgra && $film --locale de-DE -o asked.bgra &&\n"
        "$film --locale de-DE --live -o live.bgra && $film -o english.bgra &&\n"
        "cmp machine.bgra asked.bgra && cmp asked.bgra live.bgra &&\n"
        "! cmp -s asked.bgra english.bgra");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
}

TEST_F(RenderUser, WhoseLanguageTheBrowserLacksIsToldWhichOneItSpeaks) {
    folder.write("field.html", "<!doctype html><input type=file>");
    const auto run = folder.run(
        "film='pennywort render field.html --size 300x40 --frames 3'\n"
        "LC_ALL=C.UTF-8 LANGUAGE= $film --locale gsw-CH -o a.bgra &&\n"
        "LC_ALL=de_DE.UTF-8 LANGUAGE=ja $film --locale gsw-CH -o b.bgra && cmp a.bgra b.bgra");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_NE(run.errors.find("pennywort: this browser has no words of its own in gsw-CH: its form "
                              "fields and messages are in American English"),
              std::string::npos)
        << run.errors;
}

}  // namespace
}  // namespace pennywort::host
