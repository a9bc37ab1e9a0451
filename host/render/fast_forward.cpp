// host/render/fast_forward.cpp - see the header for the contract.
#include "host/render/fast_forward.h"

#include "host/app/json.h"

namespace pennywort::host {

namespace {

constexpr double k_tiny = 0.05;

const json& part_of(const json& whole, const char* path) {
    static const json k_none = json::array();
    const json::json_pointer at(path);
    return whole.is_structured() && whole.contains(at) ? whole.at(at) : k_none;
}

// The text at that place of the snapshot's table.
std::string_view entry_at(const json& texts, const json& index) {
    const bool is_index = index.is_number_unsigned() && index.get<std::size_t>() < texts.size();
    if (!is_index || !texts[index.get<std::size_t>()].is_string()) return {};
    return texts[index.get<std::size_t>()].get_ref<const std::string&>();
}

bool has_will_change(const json& document, const json& texts) {
    for (const json& styles : part_of(document, "/layout/styles")) {
        if (!styles.is_array() || styles.empty()) continue;
        const auto value = entry_at(texts, styles[0]);
        if (!value.empty() && value != "auto") return true;
    }
    return false;
}

bool changes_view(const json& document, const json& texts) {
    for (const json& type : part_of(document, "/nodes/pseudoType/value")) {
        if (entry_at(texts, type).starts_with("view-transition")) return true;
    }
    return false;
}

}  // namespace

const char* const k_drawing_snapshot = R"({"computedStyles":["will-change"]})";

std::string tiny_picture(long width, long height) {
    return json_text(
        {{"width", 0},
         {"height", 0},
         {"deviceScaleFactor", 0},
         {"mobile", false},
         {"dontSetVisibleSize", true},
         {"viewport",
          {{"x", 0}, {"y", 0}, {"width", width}, {"height", height}, {"scale", k_tiny}}}});
}

const char* kept_drawing(std::string_view snapshot) {
    const json whole = json::parse(snapshot, nullptr, false);
    const json& texts = part_of(whole, "/strings");
    for (const json& document : part_of(whole, "/documents")) {
        if (has_will_change(document, texts)) return "will-change";
        if (changes_view(document, texts)) return "a view transition";
    }
    return nullptr;
}

}  // namespace pennywort::host
