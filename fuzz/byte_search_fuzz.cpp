// byte_search_fuzz.cpp - cBoyerMoore with any pattern in any text. The first byte is the pattern's
// length.
#include <algorithm>

#include "fuzz/fuzz.h"
#include "utils.h"

namespace {

void look(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    const std::size_t length = std::min<std::size_t>(*data, size - 1);
    const std::uint8_t* const pattern = data + 1;
    const std::uint8_t* const text = pattern + length;
    const std::uint8_t* const end = data + size;
    const std::int32_t found = cBoyerMoore(pattern, static_cast<std::int32_t>(length))
                                   .FindIn(text, static_cast<std::int32_t>(end - text));
    const auto* const wanted = std::search(text, end, pattern, text);
    const bool is_there = length > 0 && wanted != end;
    require(found == (is_there ? wanted - text : -1), "the first place is found");
}

const fuzz_target k_target("byte_search", look);

}  // namespace
