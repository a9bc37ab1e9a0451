// host/render/clock_fault.h - names what of a page in an exact film does not go by the page's own
// clock.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

// Stands in each document before its own scripts, and tells by the binding of that name which of
// these things the page uses, each of them once.
inline constexpr const char* k_clock_binding = "thinternalClock";
extern const char* const k_clock_watch;

// What the binding was called with. A line; nothing for another text, since any page can call it.
std::optional<std::string> clock_fault(std::string_view payload);
// The same of a <video> that shows one picture all the time.
std::optional<std::string> still_film_fault(std::string_view payload);

}  // namespace pennywort::host
