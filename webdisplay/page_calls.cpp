// page_calls.cpp - see the header for the contract.
#include "webdisplay/page_calls.h"

#include "core/limits.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"

namespace pennywort::webdisplay {

cef::ref<cef_dictionary_value_t> told_to_page(const page_terms& terms) {
    if (terms.max_waiting_calls <= 0 && !terms.refuses_printing) return {};
    cef::ref<cef_dictionary_value_t> told(cef::api().cef_dictionary_value_create());
    if (!told) return told;
    const auto put = [&told](std::string_view key, std::int32_t value) {
        told->set_int(told.get(), cef::utf16(key).get(), value);
    };
    if (terms.max_waiting_calls > 0) put(k_max_calls_key, terms.max_waiting_calls);
    if (terms.refuses_printing) put(k_refuses_printing_key, 1);
    return told;
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
