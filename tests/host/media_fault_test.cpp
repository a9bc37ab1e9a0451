// tests/host/media_fault_test.cpp - films and sounds that the browser runtime cannot play, by name.
#include "host/render/media_fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

TEST(MediaFault, FormatsAreNamedByTheirMarksOnceEach) {
    EXPECT_EQ(lacking_formats(""), "");
    EXPECT_EQ(lacking_formats("stsd....vp09....Opus"), "");
    EXPECT_EQ(lacking_formats("stsd....avc1....mp4a"), "H.264, AAC");
    EXPECT_EQ(lacking_formats("hev1 hvc1"), "HEVC");
    EXPECT_EQ(lacking_formats("video/mp4; codecs=\"avc1.64001f, mp4a.40.2\""), "H.264, AAC");
}

std::string payload(std::string url, const std::string& type = {}) {
    std::replace(url.begin(), url.end(), '\\', '/');
    return R"({"url":")" + url + R"(","type":")" + type + R"("})";
}

TEST(MediaFault, AFileOfThisMachineIsLookedInto) {
    const temporary_folder folder;
    // Behind what is read of its beginning.
    folder.write("a film.mp4", std::string(9 << 20, 'x') + "hvc1");
    const auto told = media_fault(payload("file://" + folder.path("a%20film.mp4") + "?x#y"), true);
    ASSERT_TRUE(told);
    EXPECT_NE(told->find("it is HEVC and cannot be played"), std::string::npos) << *told;
}

// A page of the net may name a file too, and a share of another machine is asked for with the
// user's name.
TEST(MediaFault, NoFileIsLookedIntoForAPageOfTheNetNorOneOfAnotherMachine) {
    const temporary_folder folder;
    folder.write("film", "hvc1");
    const std::string name = "file://" + folder.path("film");
    EXPECT_TRUE(media_fault(payload(name), true));
    EXPECT_FALSE(media_fault(payload(name), false));
    for (const char* more : {"//", "%2F%2F"}) {
        EXPECT_FALSE(
            media_fault(payload("file://" + std::string(more) + folder.path("film")), true))
            << more;
    }
}

TEST(MediaFault, ATypeOrANameSaysItWhereNothingElseDoes) {
    auto told = media_fault(payload("http://a/film", "video/mp4; codecs=avc1.4d401e"), true);
    ASSERT_TRUE(told);
    EXPECT_NE(told->find("it is H.264 and"), std::string::npos) << *told;
    told = media_fault(payload("http://a/film.MP4?v=2"), true);
    ASSERT_TRUE(told);
    EXPECT_NE(told->find("by its name"), std::string::npos) << *told;
}

std::string answered(const std::string& id, const std::string& url, const std::string& type,
                     int status = 200) {
    return R"({"requestId":")" + id + R"(","type":"Media","response":{"status":)" +
           std::to_string(status) + R"(,"mimeType":")" + type + R"(","url":")" + url + R"("}})";
}

TEST(MediaFault, AServersTypeSaysItWhereTheNameDoesNot) {
    media_types types;
    types.hear("Network.requestWillBeSent",
               R"({"requestId":"7","type":"Media","request":{"url":"http://a/clip"}})");
    types.hear("Network.requestWillBeSent",
               R"({"requestId":"7","type":"Media","request":{"url":"http://b/elsewhere"}})");
    types.hear("Network.responseReceived", answered("7", "http://b/elsewhere", "Video/MP4"));
    types.hear("Network.responseReceived", answered("8", "http://a/other", "audio/midi"));
    types.hear("Network.responseReceived", answered("9", "http://a/none", "video/mp4", 404));
    auto told = media_fault(payload("http://a/clip#t=1"), false, types);
    ASSERT_TRUE(told);
    EXPECT_NE(told->find("clip#t=1: it is H.264, HEVC or AAC, by its type (video/mp4), and"),
              std::string::npos)
        << *told;
    told = media_fault(payload("http://a/other"), false, types);
    ASSERT_TRUE(told) << "it has come";
    EXPECT_NE(told->find("it is audio/midi and cannot be played"), std::string::npos) << *told;
    EXPECT_FALSE(media_fault(payload("http://a/none"), false, types)) << "that is told elsewhere";
    types.page_begins();
    EXPECT_FALSE(media_fault(payload("http://a/clip"), false, types));
}

TEST(MediaFault, NothingThatAPageSendsBreaksTheTypes) {
    media_types types;
    for (const char* text : {"", "\"Media\"", R"(["Media"])", R"({"type":"Media"})",
                             R"({"type":"Media","response":"x","requestId":5})",
                             R"({"type":"Media","response":{"status":"200","url":{}}})"}) {
        EXPECT_NO_THROW(types.hear("Network.responseReceived", text)) << text;
        EXPECT_NO_THROW(types.hear("Network.requestWillBeSent", text)) << text;
    }
    EXPECT_EQ(types.of(""), "");
}

TEST(MediaFault, WhatFailedForAnotherReasonIsNotCalledSo) {
    const temporary_folder folder;
    folder.write("film.webm", "no film");
    for (const auto& text :
         {payload("file://" + folder.path("film.webm")), payload("http://a/film.webm"), payload(""),
          payload("file:///"), payload("file:///dev/zero"), std::string("{"), std::string("[]"),
          std::string(R"({"url":1,"type":null})")}) {
        EXPECT_FALSE(media_fault(text, true)) << text;
    }
}

}  // namespace
}  // namespace pennywort::host
