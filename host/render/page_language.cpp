// host/render/page_language.cpp - see the header for the contract.
#include "host/render/page_language.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "core/run/folders.h"
#include "core/text/ascii.h"
#include "host/system/browser_language.h"
#include "loam/path.h"

namespace pennywort::host {

namespace {

// Languages whose words are in the pack of another name.
constexpr std::pair<std::string_view, std::string_view> k_language_names[] = {
    {"no", "nb"}, {"tl", "fil"}, {"iw", "he"}, {"in", "id"}};

// It need not be there: the browser does not start then, and says so.
std::string browser_words_folder() {
    zFSPath folder(run::program_folder().c_str());
    folder.GoChild("rsrc");
    return folder.GoChild("ChromeLocales");
}

}  // namespace

bool is_locale(const std::string& text) {
    const std::size_t language = text.find_first_of("-_");
    const std::size_t length = std::min(language, text.size());
    const auto is_part = [](char c) {
        return text::is_letter(c) || text::is_digit(c) || c == '-' || c == '_';
    };
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(length);
    return (length == 2 || length == 3) && std::all_of(text.begin(), end, &text::is_letter) &&
           std::all_of(end, text.end(), is_part);
}

bool has_words_of(const std::string& locale, const std::vector<std::string>& packs) {
    std::string language = text::lower(locale.substr(0, locale.find('-')));
    for (const auto& [other, name] : k_language_names) {
        if (language == other) language = name;
    }
    return std::any_of(packs.begin(), packs.end(), [&language](const std::string& pack) {
        const std::size_t end = pack.find_first_of("-.");
        return pack.ends_with(".pak") && text::lower(pack.substr(0, end)) == language;
    });
}

std::string speak_as(const std::string& locale) {
    if (locale.empty()) return {};
    choose_browser_language(locale);
    const auto packs = run::names_in(browser_words_folder());
    if (packs.empty() || has_words_of(locale, packs)) return {};
    return "this browser has no words of its own in " + locale +
           ": its form fields and messages are in American English";
}

}  // namespace pennywort::host
