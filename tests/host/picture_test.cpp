// tests/host/picture_test.cpp - the pool that pictures come from.
#include "host/output/picture.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace pennywort::host {
namespace {

TEST(PicturePool, GivesOutNoMoreThanItsLimit) {
    picture_pool pool(4, 2, 3);
    std::vector<std::shared_ptr<picture>> held;
    for (int i = 0; i < 3; ++i) held.push_back(pool.take());
    for (const auto& one : held) ASSERT_TRUE(one);
    EXPECT_EQ(pool.take(), nullptr);
    held.pop_back();
    EXPECT_NE(pool.take(), nullptr);
}

TEST(PicturePool, UsesMemoryAgain) {
    picture_pool pool(4, 2, 3);
    std::set<const void*> places;
    for (int i = 0; i < 100; ++i) places.insert(pool.take()->pixels.get());
    EXPECT_EQ(places.size(), 1u);
}

TEST(PicturePool, MayBeOutlivedByItsPictures) {
    std::shared_ptr<picture> left;
    {
        picture_pool pool(4, 2, 3);
        left = pool.take();
    }
    left->pixels[7] = 1;
    EXPECT_EQ(left->width, 4);
    EXPECT_EQ(left->height, 2);
    EXPECT_EQ(left->byte_count(), 32u);
}

TEST(PicturePool, SmallPicturesAreManyAndLargeOnesStillEnough) {
    const std::size_t memory = std::size_t(768) << 20;
    EXPECT_EQ(picture_pool::limit_for(1920, 1080, memory), 97u);
    EXPECT_EQ(picture_pool::limit_for(1, 1, memory), 256u);
    EXPECT_EQ(picture_pool::limit_for(16384, 16384, memory), 4u);
}

}  // namespace
}  // namespace pennywort::host
