// page_calls.h - a page's calls of the host where their number is bounded: what the host's process
// and the page's tell each other of them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "cef_abi.h"
#include "webdisplay/cef/ref.h"

namespace pennywort::webdisplay {

// The bound, among what a browser is made with.
inline constexpr std::string_view k_max_calls_key = "max_waiting_calls";
// From the host: so many calls of the frame are done with.
inline constexpr std::string_view k_handled_message = "handled";
// From the page: so many calls were dropped.
inline constexpr std::string_view k_dropped_message = "dropped";

// What the process of a page is told of its bound; empty where its calls are not bounded.
cef::ref<cef_dictionary_value_t> bound_of(std::int32_t waiting_calls);

// Counts the calls that the host is done with, frame by frame. For the display thread.
class page_calls {
public:
    // One more of `frame`. Returns how many the page is to be told of now; mostly none.
    std::uint32_t handled(const std::string& frame);

private:
    std::map<std::string, std::uint32_t> m_untold;
};

}  // namespace pennywort::webdisplay
