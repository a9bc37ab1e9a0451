// host/render/page_language.h - the language of the user for whom pages are shown.
#pragma once

#include <string>
#include <vector>

namespace pennywort::host {

// Whether it is one such as de, de-CH or zh-Hant-TW, as far as its form goes.
bool is_locale(const std::string& text);

// Whether one of the packs of a browser's words ("de.pak") is for the language of `locale`.
bool has_words_of(const std::string& locale, const std::vector<std::string>& packs);

// The browser's own words, of form fields and messages, are those of `locale` from now on. Before
// there are other threads. Returns a line for the user where there are no such words, else an empty
// text.
std::string speak_as(const std::string& locale);

}  // namespace pennywort::host
