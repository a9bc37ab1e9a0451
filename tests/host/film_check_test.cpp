// tests/host/film_check_test.cpp - films that are whole, and films cut off at each of their bytes.
#include "host/output/film_check.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

namespace pennywort::host {
namespace {

bool is_whole(output_kind kind, const std::string& bytes) {
    std::istringstream film(bytes);
    return is_whole_film(kind, film, bytes.size());
}

std::string atom(const std::string& name, const std::string& content) {
    const std::size_t size = content.size() + 8;
    return std::string{'\0', '\0', static_cast<char>(size >> 8), static_cast<char>(size & 255)} +
           name + content;
}

const std::string k_mov = atom("ftyp", "qt  ") + atom("mdat", "frames") + atom("moov", "index");
// A head, and a segment whose length is written in 8 bytes and in 1.
const std::string k_mkv_head = "\x1A\x45\xDF\xA3\x82xy";
const std::string k_segment_id = "\x18\x53\x80\x67";
const std::string k_mkv =
    k_mkv_head + k_segment_id + std::string("\x01\0\0\0\0\0\0\x05", 8) + "films";

TEST(FilmCheck, WholeFilmsAreWhole) {
    EXPECT_TRUE(is_whole(output_kind::mov, k_mov));
    EXPECT_TRUE(is_whole(output_kind::mov, atom("moov", "") + atom("mdat", "frames")));
    EXPECT_TRUE(is_whole(output_kind::mkv, k_mkv));
    EXPECT_TRUE(is_whole(output_kind::mkv, k_mkv_head + k_segment_id + "\x85" + "films"));
}

TEST(FilmCheck, AFilmThatIsCutOffAnywhereIsNotWhole) {
    for (std::size_t size = 0; size < k_mov.size(); ++size) {
        EXPECT_FALSE(is_whole(output_kind::mov, k_mov.substr(0, size))) << size;
    }
    for (std::size_t size = 0; size < k_mkv.size(); ++size) {
        EXPECT_FALSE(is_whole(output_kind::mkv, k_mkv.substr(0, size))) << size;
    }
}

TEST(FilmCheck, AFilmWithoutItsIndexIsNotWhole) {
    EXPECT_FALSE(is_whole(output_kind::mov, atom("ftyp", "qt  ") + atom("mdat", "frames")));
}

TEST(FilmCheck, ALengthThatIsLeftOpenIsThatOfAFilmWithoutAnEnd) {
    EXPECT_FALSE(is_whole(output_kind::mkv, k_mkv_head + k_segment_id +
                                                "\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF" + "films"));
    EXPECT_FALSE(is_whole(output_kind::mkv, k_mkv_head + k_segment_id + "\xFF" + "films"));
    EXPECT_FALSE(
        is_whole(output_kind::mov, atom("moov", "") + std::string("\0\0\0\0mdat", 8) + "frames"));
}

TEST(FilmCheck, LongAtomsAreCountedInEightBytes) {
    const std::string mdat = std::string("\0\0\0\1mdat\0\0\0\0\0\0\0\x16", 16) + "frames";
    EXPECT_TRUE(is_whole(output_kind::mov, mdat + atom("moov", "")));
    const std::string huge = std::string("\0\0\0\1mdat", 8) + std::string(8, '\xFF') + "frames";
    EXPECT_FALSE(is_whole(output_kind::mov, huge + atom("moov", "")));
}

TEST(FilmCheck, KindsOfOneFamilyAreReadAlike) {
    EXPECT_TRUE(is_whole(output_kind::mp4, k_mov));
    EXPECT_TRUE(is_whole(output_kind::webm, k_mkv));
    EXPECT_FALSE(is_whole(output_kind::mp4, k_mkv));
    EXPECT_FALSE(is_whole(output_kind::webm, k_mov));
}

TEST(FilmCheck, PicturesAreWholeToTheirEnd) {
    const std::pair<output_kind, std::string> cases[] = {
        {output_kind::gif, "GIF89a...;"},
        {output_kind::jpg, "\xFF\xD8...\xFF\xD9"},
        {output_kind::jpg_series, "\xFF\xD8...\xFF\xD9"},
        {output_kind::webp, std::string("RIFF\x07\0\0\0WEBP...", 15)},
        {output_kind::webp_series, std::string("RIFF\x07\0\0\0WEBP...", 15)},
    };
    for (const auto& [kind, picture] : cases) {
        EXPECT_TRUE(is_whole(kind, picture)) << picture;
        for (std::size_t size = 0; size < picture.size(); ++size) {
            EXPECT_FALSE(is_whole(kind, picture.substr(0, size))) << picture << size;
        }
        EXPECT_FALSE(is_whole(kind, k_mov)) << picture;
    }
}

TEST(FilmCheck, WhatIsNoFilmIsNotWhole) {
    EXPECT_FALSE(is_whole(output_kind::mov, ""));
    EXPECT_FALSE(is_whole(output_kind::mkv, std::string(64, '\0')));
    EXPECT_FALSE(is_whole(output_kind::mov, std::string(64, '\0')));
    EXPECT_FALSE(is_whole(output_kind::mkv, k_mov));
}

}  // namespace
}  // namespace pennywort::host
