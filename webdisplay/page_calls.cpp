// page_calls.cpp - see the header for the contract.
#include "webdisplay/page_calls.h"

#include "core/limits.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"

namespace pennywort::webdisplay {

cef::ref<cef_dictionary_value_t> bound_of(std::int32_t waiting_calls) {
    if (waiting_calls <= 0) return {};
    cef::ref<cef_dictionary_value_t> bound(cef::api().cef_dictionary_value_create());
    if (bound) bound->set_int(bound.get(), cef::utf16(k_max_calls_key).get(), waiting_calls);
    return bound;
}

// Not one by one, which would cost as many messages as there are calls; unless there are more
// frames than are worth to be remembered.
std::uint32_t page_calls::handled(const std::string& frame) {
    const auto entry = m_untold.try_emplace(frame, 0u).first;
    const std::uint32_t calls = ++entry->second;
    if (calls < k_calls_handled_untold && m_untold.size() <= k_max_calling_frames) return 0;
    m_untold.erase(entry);
    return calls;
}

}  // namespace pennywort::webdisplay
