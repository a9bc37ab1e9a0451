// page_calls.h - what the host's process and that of a page tell each other: what the page may do,
// and, where the number of its calls is bounded, what becomes of them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "cef_abi.h"
#include "webdisplay/cef/ref.h"

namespace pennywort::webdisplay {

// Among what a browser is made with: the bound, and whether window.print does nothing.
inline constexpr std::string_view k_max_calls_key = "max_waiting_calls";
inline constexpr std::string_view k_refuses_printing_key = "refuses_printing";
// From the host: so many calls of the frame are done with.
inline constexpr std::string_view k_handled_message = "handled";
// From the page: so many calls were dropped.
inline constexpr std::string_view k_dropped_message = "dropped";

// What a host allows the pages of a display, as far as their own process sees to it.
struct page_terms {
    std::int32_t max_waiting_calls = 0;  // of hostApp.execute; 0: no bound
    bool refuses_printing = false;
};

// The same for that process; empty where everything is allowed.
cef::ref<cef_dictionary_value_t> told_to_page(const page_terms& terms);

// Counts the calls that the host is done with, frame by frame. For the display thread.
class page_calls {
public:
    // One more of `frame`. Returns how many the page is to be told of now; mostly none.
    std::uint32_t handled(const std::string& frame);

private:
    std::map<std::string, std::uint32_t> m_untold;
};

}  // namespace pennywort::webdisplay
