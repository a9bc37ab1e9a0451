// spare_text.h - the memory of long messages, used again. To give a mebibyte back to the system and
// to take it anew costs more than everything else that a message of that length needs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace pennywort::websocket {

// Shorter texts are not worth keeping.
inline constexpr std::size_t k_long_text = std::size_t(64) << 10;

// Threads: any. What is kept is bounded.
class spare_text {
public:
    // A text of `size` characters or more, which are anything; of `wish` characters if there is
    // one.
    static std::string take(std::size_t size, std::size_t wish);
    // Keeps the memory of a text that nobody needs any more, if it is worth it.
    static void give_back(std::string text) noexcept;
    static void drop_all() noexcept;
    // How many are kept.
    static std::size_t count() noexcept;

    // A copy in such memory.
    static std::string copy_of(std::string_view text);
};

}  // namespace pennywort::websocket
