// What of a page that was drawn tiny goes on looking so.
#include "host/render/fast_forward.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

namespace pennywort::host {
namespace {

using kept_case = std::tuple<const char*, const char*, const char*>;

constexpr const char* k_texts =
    R"("strings":["auto","transform","view-transition-group","before"])";

std::string with(const std::string& documents) {
    return std::string("{") + k_texts + ",\"documents\":" + documents + "}";
}

class KeptDrawing : public testing::TestWithParam<kept_case> {};

TEST_P(KeptDrawing, IsNamed) {
    const auto& [name, documents, kept] = GetParam();
    const char* const told = kept_drawing(with(documents));
    EXPECT_STREQ(told, kept);
}

INSTANTIATE_TEST_SUITE_P(
    Of, KeptDrawing,
    testing::Values(
        kept_case{"NoDocument", "[]", nullptr},
        kept_case{"PlainElements", R"([{"layout":{"styles":[[],[0],[0]]}}])", nullptr},
        kept_case{"OneElementOfASecondDocument",
                  R"([{"layout":{"styles":[[0]]}},{"layout":{"styles":[[0],[1]]}}])",
                  "will-change"},
        kept_case{"PlainPseudoElement", R"([{"nodes":{"pseudoType":{"value":[3]}}}])", nullptr},
        kept_case{"ViewTransition", R"([{"nodes":{"pseudoType":{"value":[3,2]}}}])",
                  "a view transition"},
        kept_case{"TextsThatThereAreNot",
                  R"([{"layout":{"styles":[[9],[-1],["1"],7,{}]},"nodes":{"pseudoType":[]}}])",
                  nullptr},
        kept_case{"NoList", "7", nullptr}),
    [](const auto& one) { return std::string(std::get<0>(one.param)); });

TEST(KeptDrawing, OfNoAnswerIsNone) {
    for (const char* answer :
         {"", "{", "[]", "null", R"({"documents":[{"layout":{"styles":[[1]]}}]})"}) {
        EXPECT_EQ(kept_drawing(answer), nullptr) << answer;
    }
}

TEST(TinyPicture, IsOfThePagesSize) {
    const auto asked = nlohmann::json::parse(tiny_picture(1920, 1080));
    EXPECT_EQ(asked["viewport"]["width"], 1920);
    EXPECT_EQ(asked["viewport"]["height"], 1080);
    EXPECT_LT(asked["viewport"]["scale"], 0.1);
    EXPECT_EQ(asked["deviceScaleFactor"], 0) << "the page's own stays";
}

}  // namespace
}  // namespace pennywort::host
