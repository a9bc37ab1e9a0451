// host/output/word_list.h - a text of several words, as a user writes them in one option.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pennywort::host {

using strings = std::vector<std::string>;

inline void append(strings& to, const strings& more) {
    to.insert(to.end(), more.begin(), more.end());
}

// Words between blanks; what stands in '...' or "..." is part of one word, blanks and all. No other
// character is special, so that a path of Windows stays as it is. Nothing if a quote has no end.
std::optional<strings> words_of(std::string_view text);

}  // namespace pennywort::host
