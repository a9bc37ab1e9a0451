// host/output/word_list.cpp - see the header for the contract.
#include "host/output/word_list.h"

#include <utility>

namespace pennywort::host {

std::optional<std::vector<std::string>> words_of(std::string_view text) {
    std::vector<std::string> words;
    std::optional<std::string> word;  // nothing between two words; an empty one can be quoted
    char quote = 0;
    for (const char c : text) {
        const bool is_blank = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        if (quote == 0 && is_blank) {
            if (word) words.push_back(*std::exchange(word, std::nullopt));
            continue;
        }
        if (!word) word.emplace();
        if (quote == 0 && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == quote) {
            quote = 0;
        } else {
            word->push_back(c);
        }
    }
    if (quote != 0) return {};
    if (word) words.push_back(*word);
    return words;
}

}  // namespace pennywort::host
